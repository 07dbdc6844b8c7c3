target_sources(platform_foundation PRIVATE threads/FoundationReady.m threads/PlatformThread.m)
