#import <Foundation/NSObject.h>
#include <dispatch/dispatch.h>
#include <pthread.h>

#import "DispatchWork.h"

@class NSMapTable;

/// A queue of `dispatch_queue_create`, and what all queues have in common.
@interface OS_dispatch_queue : NSObject <OS_dispatch_queue> {
 @package
  char *_label;
  BOOL _serial;
  pthread_mutex_t _lock;
  pthread_cond_t _turn;  // A waiter of the list may run.
  struct DispatchWorkList _list;
  NSUInteger _sharing;  // How many that are no barrier run now.
  BOOL _exclusive;      // A barrier runs, or was given to the workers to run.
  uintptr_t _owner;     // The thread that runs it (see DispatchThread), or 0.
  NSMapTable *_specifics;
}

/// @param label  Copied; may be NULL.
- (id)initWithLabel:(const char *)label serial:(BOOL)serial;

/// Takes over `work`, which has its function, context and barrier.
- (void)add:(struct DispatchWork *)work;

/// Runs a call on this thread in its turn, and returns after it.
- (void)runAndWait:(dispatch_function_t)function context:(void *)context barrier:(BOOL)barrier;

/// Runs `work`, whose turn has come, on this thread, frees it, and returns what is to be run here
/// after it.
- (struct DispatchWork *)run:(struct DispatchWork *)work;

/// Whether this thread runs alone in the queue, so that it would wait for itself.
- (BOOL)isOwnedByThisThread;

@end

/// What is running on this thread, innermost first.
struct DispatchFrame {
  OS_dispatch_queue *queue;
  struct DispatchFrame *outer;
};
extern __thread struct DispatchFrame *DispatchCurrentFrame;

/// Calls `function` as a block of `queue`.
void DispatchRunInFrame(OS_dispatch_queue *queue, dispatch_function_t function, void *context,
                        BOOL withPool);

/// A number for this thread, not 0.
uintptr_t DispatchThread(void);

BOOL DispatchIsMainThread(void);
