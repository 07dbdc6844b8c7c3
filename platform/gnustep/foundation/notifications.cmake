target_sources(platform_foundation PRIVATE
  notifications/CFBase.m
  notifications/CFNotificationCenter.m
  notifications/DaemonLauncher.c
  notifications/DaemonLink.m
  notifications/DistributedCenter.m)
