target_sources(platform_foundation PRIVATE threads/FoundationReady.m threads/ThreadEntry.m)
