#include <dispatch/dispatch.h>

@class OS_dispatch_queue;

/// One call that waits in a queue. Made with `malloc`; whoever runs it frees it.
struct DispatchWork {
  struct DispatchWork *next;
  OS_dispatch_queue *queue;  ///< Retained while the work is under way, unless `waiter` is set.
  dispatch_function_t function;
  void *context;
  BOOL barrier;  ///< Nothing else of the queue may run meanwhile.
  BOOL *waiter;  ///< Set where a thread in `dispatch_sync` runs it itself: what it waits for.
};

/// A list with its two ends.
struct DispatchWorkList {
  struct DispatchWork *first;
  struct DispatchWork *last;
  size_t count;
};

static inline void DispatchWorkAppend(struct DispatchWorkList *list, struct DispatchWork *work) {
  work->next = NULL;
  if (list->last) {
    list->last->next = work;
  } else {
    list->first = work;
  }
  list->last = work;
  ++list->count;
}

static inline struct DispatchWork *DispatchWorkTake(struct DispatchWorkList *list) {
  struct DispatchWork *work = list->first;
  if (work) {
    --list->count;
    list->first = work->next;
    if (!list->first) {
      list->last = NULL;
    }
  }
  return work;
}
