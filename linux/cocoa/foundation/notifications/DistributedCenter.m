#import "DistributedCenter.h"

#include <dispatch/dispatch.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "../dispatch/DispatchClock.h"
#include "DaemonLauncher.h"

static const NSTimeInterval kFirstPause = 0.05;
static const NSTimeInterval kLongestPause = 2;
// How long a notification waits for a daemon that is not there yet.
static const NSTimeInterval kPostLife = 10;
// How long the end of the process waits for a daemon that does nothing: for one that has only to be
// told that the process ends, and for one that has not taken all that was posted. On a Mac posting
// hands a notification over, so that none is lost by an exit.
static const int64_t kExitPatience = 100 * (int64_t)NSEC_PER_MSEC;
static const int64_t kPostPatience = 10 * (int64_t)NSEC_PER_SEC;

/// One call of `addObserver:…`. Does not change.
@interface DistributedObserver : NSObject {
 @public
  const void *_observer;
  CFNotificationCallback _callback;
  NSString *_name;
  NSString *_object;
  CFNotificationSuspensionBehavior _behavior;
}
@end

@implementation DistributedObserver

- (void)dealloc {
  [_name release];
  [_object release];
  [super dealloc];
}

@end

/// One notification that is to be sent. Does not change.
@interface DistributedPost : NSObject {
 @public
  NSString *_name;
  NSString *_object;
  NSData *_archive;
  BOOL _deliverImmediately;
  NSDate *_end;
}
@end

@implementation DistributedPost

- (void)dealloc {
  [_name release];
  [_object release];
  [_archive release];
  [_end release];
  [super dealloc];
}

@end

@interface DistributedCenter ()
- (void)stop;
@end

static void StopAtExit(void) { [[DistributedCenter center] stop]; }

@implementation DistributedCenter

+ (DistributedCenter *)center {
  static DistributedCenter *center;
  static dispatch_once_t once;
  dispatch_once(&once, ^{
    center = [DistributedCenter new];
  });
  return center;
}

- (id)init {
  if ((self = [super init])) {
    pthread_mutex_init(&_lock, NULL);
    DispatchConditionInit(&_stopped);
    _wanted = [NSMutableDictionary new];
    _posts = [NSMutableArray new];
    _registered = [NSMutableSet new];
    _pause = kFirstPause;
  }
  return self;
}

/// Called with the lock held.
- (void)wake {
  if (!_started) {
    _descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (_descriptor < 0) {
      return;  // Out of descriptors: the next call tries again.
    }
    _started = YES;
    // For a process that exits before the thread has come to do so.
    atexit(StopAtExit);
    // A serial queue's block may take its thread for good.
    dispatch_queue_t queue =
        dispatch_queue_create("com.apple.distributed-notifications", DISPATCH_QUEUE_SERIAL);
    dispatch_async(queue, ^{
      [self run];
    });
    dispatch_release(queue);
  }
  uint64_t one = 1;
  (void)!write(_descriptor, &one, sizeof(one));
}

- (void)addObserver:(const void *)observer
           callback:(CFNotificationCallback)callback
               name:(NSString *)name
             object:(NSString *)object
           behavior:(CFNotificationSuspensionBehavior)behavior {
  DistributedObserver *added = [DistributedObserver new];
  added->_observer = observer;
  added->_callback = callback;
  added->_name = [name copy];
  added->_object = [object copy];
  added->_behavior = behavior;
  pthread_mutex_lock(&_lock);
  NSNumber *number = [[NSNumber alloc] initWithUnsignedLongLong:++_lastNumber];
  [_wanted setObject:added forKey:number];
  [self wake];
  pthread_mutex_unlock(&_lock);
  [number release];
  [added release];
}

- (void)removeObserver:(const void *)observer name:(NSString *)name object:(NSString *)object {
  // An exit handler has no pool around it.
  NSAutoreleasePool *pool = [NSAutoreleasePool new];
  pthread_mutex_lock(&_lock);
  for (NSNumber *number in [_wanted allKeys]) {
    DistributedObserver *known = [_wanted objectForKey:number];
    if (known->_observer != observer || (name && ![name isEqual:known->_name]) ||
        (object && ![object isEqual:known->_object])) {
      continue;
    }
    [_wanted removeObjectForKey:number];
    [self wake];
  }
  pthread_mutex_unlock(&_lock);
  [pool release];
}

- (void)postName:(NSString *)name
                object:(NSString *)object
              userInfo:(NSData *)archive
    deliverImmediately:(BOOL)deliverImmediately {
  DistributedPost *post = [DistributedPost new];
  post->_name = [name copy];
  post->_object = [object copy];
  // The post's alone: who shares it might free it by a count that ThreadSanitizer cannot see.
  post->_archive = archive ? [[NSData alloc] initWithData:archive] : nil;
  post->_deliverImmediately = deliverImmediately;
  post->_end = [[NSDate alloc] initWithTimeIntervalSinceNow:kPostLife];
  pthread_mutex_lock(&_lock);
  [_posts addObject:post];
  [self wake];
  pthread_mutex_unlock(&_lock);
  [post release];
}

- (void)receiveName:(NSString *)name
             object:(NSString *)object
           userInfo:(NSData *)archive
        forObserver:(uint64_t)number {
  NSDictionary *userInfo = nil;
  @try {
    id unpacked = archive ? [NSUnarchiver unarchiveObjectWithData:archive] : nil;
    if ([unpacked isKindOfClass:[NSDictionary class]]) {
      userInfo = unpacked;
    }
  } @catch (NSException *exception) {
    return;  // What cannot be read is nobody's notification.
  }
  dispatch_async(dispatch_get_main_queue(), ^{
    // Only now: it may have been removed meanwhile.
    pthread_mutex_lock(&_lock);
    DistributedObserver *known =
        [_wanted objectForKey:[NSNumber numberWithUnsignedLongLong:number]];
    [[known retain] autorelease];
    pthread_mutex_unlock(&_lock);
    if (!known) {
      return;
    }
    known->_callback((CFNotificationCenterRef)self, (void *)known->_observer, (CFStringRef)name,
                     object, (CFDictionaryRef)userInfo);
  });
}

// From here on: the center's own thread.

- (void)run {
  NSAutoreleasePool *pool = [NSAutoreleasePool new];
  // Both take their files and locks away when the process exits, so this thread must stop before
  // they do: handlers run in the reverse order of their registration.
  [NSMessagePort class];
  [NSMessagePortNameServer sharedInstance];
  atexit(StopAtExit);
  NSRunLoop *loop = [NSRunLoop currentRunLoop];
  // In this mode only: while a request to the daemon waits, nothing else is begun.
  [loop addEvent:(void *)(intptr_t)_descriptor
            type:ET_RDESC
         watcher:self
         forMode:NSDefaultRunLoopMode];
  [pool release];
  while (![self isStopping]) {
    pool = [NSAutoreleasePool new];
    NSTimeInterval pause = [self serve];
    [loop runMode:NSDefaultRunLoopMode
        beforeDate:pause ? [NSDate dateWithTimeIntervalSinceNow:pause] : [NSDate distantFuture]];
    [pool release];
  }
  pool = [NSAutoreleasePool new];
  if ([self hasPosts]) {
    _triedToStart = YES;  // There is no time for that now.
    [self serve];
  }
  [_link unregister];
  [pool release];
  pthread_mutex_lock(&_lock);
  _hasStopped = YES;
  pthread_cond_broadcast(&_stopped);
  pthread_mutex_unlock(&_lock);
  // The process exits. Nothing of Foundation may be touched any more.
  for (;;) {
    pause();
  }
}

- (void)stop {
  pthread_mutex_lock(&_lock);
  _stopping = YES;
  [self wake];
  // What has been posted is handed over as long as the daemon takes it.
  uint64_t sent;
  do {
    sent = _sent;
    dispatch_time_t end =
        dispatch_time(DISPATCH_TIME_NOW, [_posts count] ? kPostPatience : kExitPatience);
    BOOL inTime = YES;
    while (!_hasStopped && inTime) {
      inTime = DispatchConditionWait(&_stopped, &_lock, end);
    }
  } while (!_hasStopped && _sent != sent);
  pthread_mutex_unlock(&_lock);
}

- (BOOL)isStopping {
  pthread_mutex_lock(&_lock);
  BOOL stopping = _stopping;
  pthread_mutex_unlock(&_lock);
  return stopping;
}

- (BOOL)hasPosts {
  pthread_mutex_lock(&_lock);
  BOOL posts = [_posts count] != 0;
  pthread_mutex_unlock(&_lock);
  return posts;
}

- (void)receivedEvent:(void *)data
                 type:(RunLoopEventType)type
                extra:(void *)extra
              forMode:(NSString *)mode {
  (void)data;
  (void)type;
  (void)extra;
  (void)mode;
  uint64_t count;
  (void)!read(_descriptor, &count, sizeof(count));
}

/// Brings the daemon into line with what is wanted. Returns the seconds to wait before the next
/// attempt, or 0 where there is nothing to be done until the next call or message.
- (NSTimeInterval)serve {
  if (_link && ![_link isAlive]) {
    [self dropLink];
  }
  if (![self hasWork]) {
    return 0;
  }
  if (!_link && ![self connect]) {
    NSTimeInterval pause = _pause;
    _pause = MIN(_pause * 2, kLongestPause);
    return pause;
  }
  for (;;) {
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    // Both at once: whoever posts after adding an observer of his own finds it in place.
    pthread_mutex_lock(&_lock);
    NSDictionary *wanted = [[_wanted copy] autorelease];
    NSUInteger posts = [_posts count];
    pthread_mutex_unlock(&_lock);
    BOOL done = [self bringIntoLine:wanted] && [self sendPosts:posts];
    [pool release];
    if (!done) {
      return kFirstPause;
    }
    if (posts == 0) {
      return 0;
    }
  }
}

/// Whether the daemon must be there, or must be told something.
- (BOOL)hasWork {
  NSDate *now = [NSDate date];
  pthread_mutex_lock(&_lock);
  while ([_posts count] &&
         [((DistributedPost *)[_posts objectAtIndex:0])->_end compare:now] == NSOrderedAscending) {
    [_posts removeObjectAtIndex:0];
  }
  BOOL work = [_wanted count] || [_posts count] || [_registered count];
  pthread_mutex_unlock(&_lock);
  return work;
}

- (BOOL)connect {
  _link = [[DaemonLink alloc] initWithReceiver:self];
  if (!_link && !_triedToStart) {
    _triedToStart = YES;
    DaemonLauncherStart();
    _link = [[DaemonLink alloc] initWithReceiver:self];
  }
  if (!_link) {
    return NO;
  }
  _triedToStart = NO;
  _pause = kFirstPause;
  return YES;
}

- (void)dropLink {
  [_link close];
  [_link release];
  _link = nil;
  [_registered removeAllObjects];
}

- (BOOL)bringIntoLine:(NSDictionary *)wanted {
  for (NSNumber *number in [_registered allObjects]) {
    if ([wanted objectForKey:number]) {
      continue;
    }
    if (![_link removeObserver:[number unsignedLongLongValue]]) {
      return NO;
    }
    [_registered removeObject:number];
  }
  for (NSNumber *number in [[wanted allKeys] sortedArrayUsingSelector:@selector(compare:)]) {
    if ([_registered containsObject:number]) {
      continue;
    }
    DistributedObserver *added = [wanted objectForKey:number];
    if (![_link addObserver:[number unsignedLongLongValue]
                       name:added->_name
                     object:added->_object
                   behavior:(NSUInteger)added->_behavior]) {
      return NO;
    }
    [_registered addObject:number];
  }
  return YES;
}

/// Sends the first ones. What cannot be sent is dropped: it may be what broke the link.
- (BOOL)sendPosts:(NSUInteger)count {
  BOOL taken = YES;
  for (NSUInteger i = 0; i < count && taken; ++i) {
    pthread_mutex_lock(&_lock);
    DistributedPost *post = [_posts objectAtIndex:0];
    pthread_mutex_unlock(&_lock);
    // Nobody else takes it out of the list.
    taken = [_link postName:post->_name
                     object:post->_object
                   userInfo:post->_archive
         deliverImmediately:post->_deliverImmediately];
    pthread_mutex_lock(&_lock);
    [_posts removeObjectAtIndex:0];
    ++_sent;
    pthread_mutex_unlock(&_lock);
  }
  return taken;
}

@end
