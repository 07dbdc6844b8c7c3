#ifndef AFX_AGENT_CONNECTION_H
#define AFX_AGENT_CONNECTION_H

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

/// Opens a connection to the agent's Mach service and resumes it. Any thread; the caller owns the
/// connection. It says at once whether nobody serves the name: `gone` runs on a queue of the
/// connection when the agent is missing, and when it goes away. Whoever has opened it forgets it
/// then, and opens another one for what comes next: after an interruption it could be used again,
/// but then what was sent to the agent would not be told from what goes to its successor.
///
/// @param gone may run more than once. It is kept as long as the connection: it must not hold it.
NSXPCConnection *__AFXOpenConnection(void (^gone)(void)) NS_RETURNS_RETAINED;

NS_ASSUME_NONNULL_END

#endif
