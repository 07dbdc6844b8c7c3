// What the reply blocks of a protocol take. On a Mac the compiler writes it into the protocol. This
// one does not, so a program that exports an object over a connection has to say it: what a peer
// claims would have the receiver take any number for an object.
//
//   id<Service> service =
//       [[NSXPCInterface interfaceWithProtocol:@protocol(Service)] replyTypesRecorder];
//   const PlatformAnyArgument any;
//   [service fetch:any reply:any];  // the same for each method with a reply block

#ifndef PLATFORM_FOUNDATION_PLATFORMREPLYTYPES_H
#define PLATFORM_FOUNDATION_PLATFORMREPLYTYPES_H

#import <Foundation/NSXPCConnection.h>

@interface NSXPCInterface (PlatformReplyTypes)

/// Returns an object that takes the messages of the protocol and notes, for the protocol and the
/// life of the process, the types of the reply blocks in them. A connection on which a request comes
/// whose method is not noted ends. Any thread.
- (id)replyTypesRecorder;

@end

/// An argument of whatever type a method declares: an empty block, or zero.
struct PlatformAnyArgument {
  template <typename... Arguments>
  static void (^make(void (^)(Arguments...)))(Arguments...) {
    return ^(Arguments...) {
    };
  }
  template <typename Type>
  static Type make(Type none) {
    return none;
  }
  template <typename Type>
  operator Type() const {
    return make(Type());
  }
};

#endif
