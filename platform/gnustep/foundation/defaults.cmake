target_sources(platform_foundation PRIVATE defaults/WriteThrough.m)
