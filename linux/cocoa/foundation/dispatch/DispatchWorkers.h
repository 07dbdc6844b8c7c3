#ifndef PLATFORM_DISPATCH_WORKERS_H
#define PLATFORM_DISPATCH_WORKERS_H

#import "DispatchWork.h"

/// Has `work` run on a worker thread. Threads are started as needed and end when they have had
/// nothing to do for a while.
/// @param bounded  For work of concurrent queues, of which 64 run at a time. The others, one for
///   each busy serial queue, get a thread even when all those are blocked, up to 512 in all: a
///   serial queue that such work waits for must go on.
void DispatchToWorkers(struct DispatchWork *work, BOOL bounded);

#endif
