#import "DaemonLink.h"

#import <Foundation/Foundation.h>
#include <unistd.h>

// How long the daemon may take for one answer before it counts as gone.
static const NSTimeInterval kPatience = 10;

/// Whether a daemon has put its name into the name server's folder. Asked first, because the name
/// server takes a lock on that folder to find out. Looking again and again for a daemon that is not
/// there must not get in others' way, and a process that ended while it held the lock would leave
/// them waiting a quarter of a minute.
static BOOL DaemonIsNamed(void) {
  NSString *name =
      [[GDNC_SERVICE dataUsingEncoding:NSUTF8StringEncoding] base64EncodedStringWithOptions:0];
  NSString *path = [NSString
      pathWithComponents:[NSArray arrayWithObjects:NSTemporaryDirectory(), @"NSMessagePort",
                                                   @"names", name, nil]];
  return access([path fileSystemRepresentation], F_OK) == 0;
}

@implementation DaemonLink

- (id)initWithReceiver:(id<DaemonLinkReceiver>)receiver {
  if (!(self = [super init])) {
    return nil;
  }
  _receiver = receiver;
  if (!DaemonIsNamed()) {
    [self release];
    return nil;
  }
  @try {
    // A new receiving port each time, so the connection is shared with nobody.
    _connection = [[NSConnection
        connectionWithRegisteredName:GDNC_SERVICE
                                host:@""
                     usingNameServer:[NSMessagePortNameServer sharedInstance]] retain];
    [_connection setReplyTimeout:kPatience];
    [_connection setRequestTimeout:kPatience];
    NSDistantObject *daemon = [_connection rootProxy];
    [daemon setProtocolForProxy:@protocol(GDNCProtocol)];
    _daemon = (id<GDNCProtocol>)[daemon retain];
    [_daemon registerClient:self];
  } @catch (NSException *exception) {
    [self close];
  }
  if (![self isAlive]) {
    [self close];
    [self release];
    return nil;
  }
  return self;
}

- (void)dealloc {
  [(id)_daemon release];
  [_connection release];
  [super dealloc];
}

- (BOOL)isAlive {
  return _daemon && [_connection isValid];
}

- (void)close {
  _receiver = nil;
  [_connection invalidate];
}

/// Makes one request.
- (BOOL)ask:(__attribute__((noescape)) void (^)(void))request {
  if (![self isAlive]) {
    return NO;
  }
  @try {
    request();
  } @catch (NSException *exception) {
    [self close];
    return NO;
  }
  return [self isAlive];
}

- (BOOL)addObserver:(uint64_t)number
               name:(NSString *)name
             object:(NSString *)object
           behavior:(NSUInteger)behavior {
  return [self ask:^{
    // Clients of GNUstep's own are sent this selector; this one goes by the number.
    [_daemon addObserver:number
                  selector:@"postNotification:"
                      name:name
                    object:object
        suspensionBehavior:behavior
                       for:self];
  }];
}

- (BOOL)removeObserver:(uint64_t)number {
  return [self ask:^{
    [_daemon removeObserver:number name:nil object:nil for:self];
  }];
}

- (BOOL)postName:(NSString *)name
                object:(NSString *)object
              userInfo:(NSData *)archive
    deliverImmediately:(BOOL)deliverImmediately {
  return [self ask:^{
    [_daemon postNotificationName:name
                           object:object
                         userInfo:archive
               deliverImmediately:deliverImmediately
                              for:self];
    // The daemon takes up what comes in while it hands on the notification before, one call inside
    // the other, and a burst overflows its stack. So each waits for an answer, to this harmless
    // request, since the one above has none.
    [_daemon setSuspended:NO for:self];
  }];
}

- (BOOL)unregister {
  return [self ask:^{
    [_daemon unregisterClient:self];
  }];
}

- (oneway void)postNotificationName:(NSString *)name
                             object:(NSString *)object
                           userInfo:(NSData *)info
                           selector:(NSString *)selector
                                 to:(uint64_t)observer {
  (void)selector;
  [_receiver receiveName:name object:object userInfo:info forObserver:observer];
}

@end
