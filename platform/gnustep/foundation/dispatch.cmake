target_sources(platform_foundation PRIVATE
  dispatch/DispatchCallout.cpp
  dispatch/DispatchClock.c
  dispatch/DispatchGroup.m
  dispatch/DispatchMainQueue.m
  dispatch/DispatchObject.m
  dispatch/DispatchOnce.m
  dispatch/DispatchProtected.m
  dispatch/DispatchQueue.m
  dispatch/DispatchRootQueue.m
  dispatch/DispatchSemaphore.m
  dispatch/DispatchTimer.m
  dispatch/DispatchTrap.c
  dispatch/DispatchWorkers.m)
