#import "DispatchQueue.h"

#include <Block.h>
#import <Foundation/NSMapTable.h>
#import <Foundation/NSString.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "../threads/FoundationReady.h"
#include "DispatchCallout.h"
#include "DispatchTrap.h"
#include "DispatchWorkers.h"

__thread struct DispatchFrame *DispatchCurrentFrame;

uintptr_t DispatchThread(void) {
  static __thread char thread;
  return (uintptr_t)&thread;
}

BOOL DispatchIsMainThread(void) {
  static __thread pid_t thread;
  if (!thread) {
    thread = (pid_t)syscall(SYS_gettid);
  }
  return thread == getpid();
}

void DispatchRunInFrame(OS_dispatch_queue *queue, dispatch_function_t function, void *context,
                        BOOL withPool) {
  struct DispatchFrame frame = {queue, DispatchCurrentFrame};
  DispatchCurrentFrame = &frame;
  DispatchCallout(function, context, withPool);
  DispatchCurrentFrame = frame.outer;
}

/// A value that a client keeps in a queue.
@interface DispatchSpecific : NSObject {
 @public
  void *_context;
  dispatch_function_t _destructor;
}
@end

@implementation DispatchSpecific

- (void)dealloc {
  if (_destructor) {
    dispatch_async_f(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), _context, _destructor);
  }
  [super dealloc];
}

@end

@implementation OS_dispatch_queue

- (id)initWithLabel:(const char *)label serial:(BOOL)serial {
  if ((self = [super init])) {
    _label = label ? strdup(label) : NULL;
    _serial = serial;
    pthread_mutex_init(&_lock, NULL);
    pthread_cond_init(&_turn, NULL);
    _specifics = NSCreateMapTable(NSNonOwnedPointerMapKeyCallBacks, NSObjectMapValueCallBacks, 0);
  }
  return self;
}

- (void)dealloc {
  NSFreeMapTable(_specifics);
  pthread_cond_destroy(&_turn);
  pthread_mutex_destroy(&_lock);
  free(_label);
  [super dealloc];
}

/// Called with the lock held. Takes the next work if it may run now, and notes that it does.
- (struct DispatchWork *)begin {
  struct DispatchWork *work = _list.first;
  if (!work || _exclusive || (work->barrier && _sharing)) {
    return NULL;
  }
  if (work->barrier) {
    _exclusive = YES;
  } else {
    ++_sharing;
  }
  return DispatchWorkTake(&_list);
}

/// Ends what ran and starts all that may run now, except the first that needs a worker: that is
/// returned.
- (struct DispatchWork *)end {
  struct DispatchWork *mine = NULL;
  BOOL wake = NO;
  pthread_mutex_lock(&_lock);
  if (_exclusive) {
    __atomic_store_n(&_owner, 0, __ATOMIC_RELAXED);
    _exclusive = NO;
  } else {
    --_sharing;
  }
  struct DispatchWork *work;
  while ((work = [self begin])) {
    if (work->waiter) {
      *work->waiter = YES;
      wake = YES;
    } else if (!mine) {
      mine = work;
    } else {
      DispatchToWorkers(work, !_serial);
    }
  }
  if (wake) {
    pthread_cond_broadcast(&_turn);
  }
  pthread_mutex_unlock(&_lock);
  return mine;
}

- (void)own:(BOOL)barrier {
  if (barrier) {
    __atomic_store_n(&_owner, DispatchThread(), __ATOMIC_RELAXED);
  }
}

- (void)add:(struct DispatchWork *)work {
  work->queue = [self retain];
  work->barrier |= _serial;
  pthread_mutex_lock(&_lock);
  DispatchWorkAppend(&_list, work);
  while ((work = [self begin])) {
    DispatchToWorkers(work, !_serial);
  }
  pthread_mutex_unlock(&_lock);
}

- (struct DispatchWork *)run:(struct DispatchWork *)work {
  [self own:work->barrier];
  DispatchRunInFrame(self, work->function, work->context, YES);
  free(work);
  struct DispatchWork *next = [self end];
  // What comes next has a reference of its own.
  [self release];
  return next;
}

- (void)runAndWait:(dispatch_function_t)function context:(void *)context barrier:(BOOL)barrier {
  if ([self isOwnedByThisThread]) {
    DispatchTrap("dispatch_sync called on queue already owned by current thread");
  }
  BOOL mayRun = NO;
  struct DispatchWork work = {.barrier = barrier || _serial, .waiter = &mayRun};
  pthread_mutex_lock(&_lock);
  if (_list.first || _exclusive || (work.barrier && _sharing)) {
    DispatchWorkAppend(&_list, &work);
    while (!mayRun) {
      pthread_cond_wait(&_turn, &_lock);
    }
  } else if (work.barrier) {
    _exclusive = YES;
  } else {
    ++_sharing;
  }
  pthread_mutex_unlock(&_lock);
  [self own:work.barrier];
  DispatchRunInFrame(self, function, context, NO);
  struct DispatchWork *next = [self end];
  if (next) {
    DispatchToWorkers(next, !_serial);
  }
}

- (BOOL)isOwnedByThisThread {
  return __atomic_load_n(&_owner, __ATOMIC_RELAXED) == DispatchThread();
}

- (NSString *)description {
  return [NSString stringWithFormat:@"<%@: %p %s>", [self class], self, _label ? _label : ""];
}

@end

@interface OS_dispatch_queue_attr : NSObject <OS_dispatch_queue_attr>
@end

@implementation OS_dispatch_queue_attr
@end

dispatch_queue_attr_t _dispatch_queue_attr_concurrent(void) {
  static dispatch_once_t once;
  static OS_dispatch_queue_attr *concurrent;
  dispatch_once(&once, ^{
    concurrent = [OS_dispatch_queue_attr new];
  });
  return concurrent;
}

dispatch_queue_t dispatch_queue_create(const char *label, dispatch_queue_attr_t attribute) {
  PlatformMakeFoundationReady();
  return [[OS_dispatch_queue alloc] initWithLabel:label serial:attribute == nil];
}

/// The queue whose block is running here, or NULL.
static OS_dispatch_queue *CurrentQueue(void) {
  if (DispatchCurrentFrame) {
    return DispatchCurrentFrame->queue;
  }
  return DispatchIsMainThread() ? (OS_dispatch_queue *)dispatch_get_main_queue() : nil;
}

const char *dispatch_queue_get_label(dispatch_queue_t object) {
  OS_dispatch_queue *queue = object ? (OS_dispatch_queue *)object : CurrentQueue();
  return queue && queue->_label ? queue->_label : "";
}

static void Add(dispatch_queue_t queue, void *context, dispatch_function_t function, BOOL barrier) {
  if (!queue) {
    DispatchTrap("NULL queue");
  }
  struct DispatchWork *work = calloc(1, sizeof(*work));
  if (!work) {
    abort();
  }
  work->function = function;
  work->context = context;
  work->barrier = barrier;
  [(OS_dispatch_queue *)queue add:work];
}

void dispatch_async_f(dispatch_queue_t queue, void *context, dispatch_function_t work) {
  Add(queue, context, work, NO);
}

void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) {
  Add(queue, (void *)Block_copy(block), DispatchCallAndReleaseBlock, NO);
}

void dispatch_barrier_async(dispatch_queue_t queue, dispatch_block_t block) {
  Add(queue, (void *)Block_copy(block), DispatchCallAndReleaseBlock, YES);
}

static void RunAndWait(dispatch_queue_t queue, void *context, dispatch_function_t function,
                       BOOL barrier) {
  if (!queue) {
    DispatchTrap("NULL queue");
  }
  [(OS_dispatch_queue *)queue runAndWait:function context:context barrier:barrier];
}

void dispatch_sync_f(dispatch_queue_t queue, void *context, dispatch_function_t work) {
  RunAndWait(queue, context, work, NO);
}

void dispatch_sync(dispatch_queue_t queue, dispatch_block_t block) {
  RunAndWait(queue, (void *)block, DispatchCallBlock, NO);
}

void dispatch_barrier_sync(dispatch_queue_t queue, dispatch_block_t block) {
  RunAndWait(queue, (void *)block, DispatchCallBlock, YES);
}

void dispatch_queue_set_specific(dispatch_queue_t object, const void *key, void *context,
                                 dispatch_function_t destructor) {
  OS_dispatch_queue *queue = (OS_dispatch_queue *)object;
  DispatchSpecific *added = context ? [DispatchSpecific new] : nil;
  pthread_mutex_lock(&queue->_lock);
  DispatchSpecific *old = [(id)NSMapGet(queue->_specifics, key) retain];
  if (added) {
    added->_context = context;
    added->_destructor = destructor;
    NSMapInsert(queue->_specifics, key, added);
  } else {
    NSMapRemove(queue->_specifics, key);
  }
  pthread_mutex_unlock(&queue->_lock);
  // Outside the lock: their destructors are for another queue, and this may be it.
  [added release];
  [old release];
}

void *dispatch_queue_get_specific(dispatch_queue_t object, const void *key) {
  OS_dispatch_queue *queue = (OS_dispatch_queue *)object;
  pthread_mutex_lock(&queue->_lock);
  DispatchSpecific *found = NSMapGet(queue->_specifics, key);
  void *context = found ? found->_context : NULL;
  pthread_mutex_unlock(&queue->_lock);
  return context;
}

void *dispatch_get_specific(const void *key) {
  OS_dispatch_queue *queue = CurrentQueue();
  return queue ? dispatch_queue_get_specific(queue, key) : NULL;
}

static BOOL RunsHere(dispatch_queue_t queue) {
  for (struct DispatchFrame *frame = DispatchCurrentFrame; frame; frame = frame->outer) {
    if (frame->queue == (OS_dispatch_queue *)queue) {
      return YES;
    }
  }
  return DispatchIsMainThread() && queue == dispatch_get_main_queue();
}

void dispatch_assert_queue(dispatch_queue_t queue) {
  if (!RunsHere(queue)) {
    DispatchTrap("Block was expected to execute on the asserted queue");
  }
}

void dispatch_assert_queue_not(dispatch_queue_t queue) {
  if (RunsHere(queue)) {
    DispatchTrap("Block was not expected to execute on the asserted queue");
  }
}
