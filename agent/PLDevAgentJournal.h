#ifndef PL_DEV_AGENT_JOURNAL_H
#define PL_DEV_AGENT_JOURNAL_H

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

/// Writes what happens to the agent to standard output, one JSON object a line. Any thread; a line
/// is written whole.
@interface PLDevAgentJournal : NSObject

- (void)recordListeningForService:(NSString *)service;

/// @param arguments strings, numbers, arrays, dictionaries and NSNull; anything else is written as
///   its description.
- (void)recordRequest:(SEL)selector arguments:(NSArray *)arguments;

@end

NS_ASSUME_NONNULL_END

#endif
