// What the test's peers say to each other.

#ifndef XPC_TEST_PROTOCOL_H
#define XPC_TEST_PROTOCOL_H

#import <Foundation/Foundation.h>

@protocol XPCTestEvents <NSObject>
- (void)reportEvent:(nullable NSString *)name info:(nullable NSDictionary *)info;
@end

@protocol XPCTestService <XPCTestEvents>
/// Answers with what it was given.
- (void)echo:(nullable id)object reply:(void (^_Nonnull)(id _Nullable object))reply;
/// Answers with the names of all events so far, of this connection and others.
- (void)eventsWithReply:(void (^_Nonnull)(NSArray *_Nonnull names))reply;
- (void)character:(char)character
             flag:(BOOL)flag
            truth:(bool)truth
            small:(short)small
         unsigned:(unsigned)number
             wide:(int64_t)wide
         positive:(uint64_t)positive
           single:(float)single
          twofold:(double)twofold
            reply:(void (^_Nonnull)(char, BOOL, bool, short, unsigned, int64_t, uint64_t, float,
                                    double))reply;
- (void)addresses:(nullable NSString *)text
            reply:(void (^_Nonnull)(BOOL flag, NSString *_Nullable text,
                                    NSError *_Nullable error))reply;
/// Answers with a string of `length` letters.
- (void)textOfLength:(NSUInteger)length reply:(void (^_Nonnull)(NSString *_Nonnull text))reply;
- (void)failWithReply:(void (^_Nonnull)(NSError *_Nullable error))reply;
/// Keeps the reply for ever.
- (void)hangWithReply:(void (^_Nonnull)(BOOL flag))reply;
/// Lets the reply go without calling it.
- (void)dropWithReply:(void (^_Nonnull)(BOOL flag))reply;
/// Calls the reply twice, with YES and with NO.
- (void)twiceWithReply:(void (^_Nonnull)(BOOL flag))reply;
/// Calls the reply after `milliseconds`, on another thread.
- (void)after:(NSUInteger)milliseconds reply:(void (^_Nonnull)(BOOL flag))reply;
- (void)dieWithReply:(void (^_Nonnull)(BOOL flag))reply;
- (void)answerAndDieWithReply:(void (^_Nonnull)(BOOL flag))reply;
- (void)raiseWithReply:(void (^_Nonnull)(BOOL flag))reply;
/// Answers with an object that cannot be sent.
- (void)strangeWithReply:(void (^_Nonnull)(id _Nonnull object))reply;
/// Whether the method runs in a connection of the process `process`.
- (void)isFromProcess:(int)process reply:(void (^_Nonnull)(BOOL flag))reply;
/// Sends an echo over the connection that it came from, and answers with what that gives.
- (void)callBack:(nonnull NSString *)text reply:(void (^_Nonnull)(NSString *_Nullable text))reply;
@end

/// What a newer client may know and the service does not.
@protocol XPCTestFutureService <XPCTestService>
- (void)unheardOfWithReply:(void (^_Nonnull)(BOOL flag))reply;
@end

#endif
