// Connections between processes, as far as this system uses them: what Apple's header of this name
// declares, over a Unix-domain socket for each service name. It stands before GNUstep's header,
// whose classes only raise; theirs are the names, the objects are of classes of our own.

#ifndef PLATFORM_FOUNDATION_NSXPCCONNECTION_H
#define PLATFORM_FOUNDATION_NSXPCCONNECTION_H

#import <Foundation/FoundationErrors.h>
#import <Foundation/NSError.h>
#import <Foundation/NSObject.h>
#import <GNUstepBase/GSConfig.h>
#include <sys/types.h>

@class NSSet, NSString;
@class NSXPCConnection, NSXPCListener, NSXPCInterface, NSXPCListenerEndpoint;

#pragma clang assume_nonnull begin

// base 1.31 has them.
#if GNUSTEP_BASE_MAJOR_VERSION == 1 && GNUSTEP_BASE_MINOR_VERSION < 31
/// Codes in NSCocoaErrorDomain.
enum {
  /// The peer closed or broke the connection, which a further message opens again.
  NSXPCConnectionInterrupted = 4097,
  /// Nobody serves the name, or the connection has been invalidated.
  NSXPCConnectionInvalid = 4099,
  /// The reply does not fit the reply block.
  NSXPCConnectionReplyInvalid = 4101,
};
#endif

typedef NSUInteger NSXPCConnectionOptions;
enum {
  NSXPCConnectionPrivileged = (1 << 12UL),
};

@protocol NSXPCProxyCreating

/// Returns a new proxy, with which a failure of a message is silent. It keeps the connection, and
/// makes proxies itself.
/// Raises NSInvalidArgumentException when the connection has no `remoteObjectInterface`.
- (id)remoteObjectProxy;

/// Returns a new proxy. For each message with a reply block either the block or `handler` runs,
/// once, on the connection's queue; for one without, `handler` runs at most. When the receiver
/// releases the reply block without having called it, `handler` gets NSXPCConnectionInterrupted;
/// when the reply does not fit, NSXPCConnectionReplyInvalid. The connection goes on in both cases.
- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError *error))handler;

@end

/// A connection. It is set up completely and then resumed. All methods may be called from any
/// thread; blocks run and messages arrive on a serial queue of its own. Messages are sent in the
/// order of the calls, never wait for the peer, and raise NSInvalidArgumentException when an
/// argument cannot be encoded. Besides scalars these can, up to 64 levels deep: NSString, NSNumber,
/// NSArray, NSDictionary, NSError (without what cannot of its user info), NSData, NSDate (a finite
/// one), NSURL (which arrives as an absolute one), NSNull, nil, and one reply block, whose arguments
/// are as these. A message of more than 64 MiB or 2^20 values fails with NSXPCConnectionInvalid.
///
/// When the last reference goes it is invalidated.
@interface NSXPCConnection : NSObject <NSXPCProxyCreating>

/// A connection to the process that serves `name`. Nothing happens before `resume`.
/// @param options  Without effect: there is one directory of services.
- (instancetype)initWithMachServiceName:(NSString *)name options:(NSXPCConnectionOptions)options;

/// A connection to a listener of this process.
- (instancetype)initWithListenerEndpoint:(NSXPCListenerEndpoint *)endpoint;

@property (nullable, readonly, copy) NSString *serviceName;
@property (readonly, retain) NSXPCListenerEndpoint *endpoint;

/// What the peer may send, and to whom. The object is given up on invalidation.
@property (nullable, retain) NSXPCInterface *exportedInterface;
@property (nullable, retain) id exportedObject;

/// What may be sent to the peer.
@property (nullable, retain) NSXPCInterface *remoteObjectInterface;
@property (readonly, retain) id remoteObjectProxy;

/// Runs when the peer has closed, after the error handlers of all that was outstanding. Given up on
/// invalidation.
@property (nullable, copy) void (^interruptionHandler)(void);

/// Runs once, last of all, and is given up then.
@property (nullable, copy) void (^invalidationHandler)(void);

/// Connects, or goes on after `suspend`. Returns at once; that nobody serves the name shows in an
/// invalidation soon after.
- (void)resume;

/// Holds back replies, messages that arrive and the peer's end until `resume`. Suspends have to be
/// balanced before `invalidate`, as on a Mac; here it fails what is outstanding all the same.
- (void)suspend;

/// Ends the connection: what is outstanding fails with NSXPCConnectionInvalid.
- (void)invalidate;

/// The peer's; 0, or the highest value for the identifiers, when there was none yet.
@property (readonly) pid_t processIdentifier;
@property (readonly) uid_t effectiveUserIdentifier;
@property (readonly) gid_t effectiveGroupIdentifier;

@end

@interface NSXPCConnection (NSXPCConnectionCurrent)

/// Inside a method or a reply block that a connection calls: this connection, else nil.
+ (nullable NSXPCConnection *)currentConnection;

@end

@protocol NSXPCListenerDelegate;

/// Takes connections to a name, or through its endpoint. All methods may be called from any thread.
@interface NSXPCListener : NSObject

/// A listener for `name`. Nothing happens before `resume`; when another process serves the name the
/// log says so then, and this listener is invalid.
- (instancetype)initWithMachServiceName:(NSString *)name;

/// Not retained. Called on a serial queue of the listener.
@property (nullable, assign) id<NSXPCListenerDelegate> delegate;
@property (readonly, retain) NSXPCListenerEndpoint *endpoint;

- (void)resume;
/// Takes no further connections until `resume`; they wait.
- (void)suspend;
/// Releases the name. Accepted connections are not touched.
- (void)invalidate;

@end

@interface NSXPCListener (NSXPCListenerCreation)

/// A listener that can be reached through its endpoint only. Must be resumed as any other.
+ (NSXPCListener *)anonymousListener;

@end

@protocol NSXPCListenerDelegate <NSObject>
@optional

/// Sets `newConnection` up, resumes it and returns YES, or returns NO. A resumed connection lives
/// until it is invalidated or the peer closes.
- (BOOL)listener:(NSXPCListener *)listener
    shouldAcceptNewConnection:(NSXPCConnection *)newConnection;

@end

/// What may be sent over a connection: the methods, required and optional, of a protocol that clang
/// has compiled and of those it adopts, NSObject's excepted. They return nothing and take objects,
/// scalars and at most one reply block.
@interface NSXPCInterface : NSObject

@property (assign) Protocol *protocol;

/// Lets only objects of `classes` through at this place, the elements of collections included: an
/// argument of the method, or of its reply block. Without this any class that can be encoded is.
/// To be called before the connection is resumed.
- (void)setClasses:(NSSet *)classes
       forSelector:(SEL)sel
     argumentIndex:(NSUInteger)arg
           ofReply:(BOOL)ofReply;
- (NSSet *)classesForSelector:(SEL)sel argumentIndex:(NSUInteger)arg ofReply:(BOOL)ofReply;

@end

@interface NSXPCInterface (NSXPCInterfaceCreation)

/// Raises NSInvalidArgumentException when a method's types cannot be sent.
+ (NSXPCInterface *)interfaceWithProtocol:(Protocol *)protocol;

@end

/// Stands for a listener of this process.
@interface NSXPCListenerEndpoint : NSObject
@end

#pragma clang assume_nonnull end

#endif
