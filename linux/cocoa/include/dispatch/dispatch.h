// The part of libdispatch that this system uses, under its own names.
//
// Every dispatch object is an Objective-C object and is retained by blocks that capture it. In C
// and C++ files the types are opaque pointers. All functions may be called from any thread unless
// their line says otherwise. Where libdispatch ends the process because of a misuse, so does this;
// so does an exception that leaves a block or function given to it.

#ifndef PLATFORM_DISPATCH_H
#define PLATFORM_DISPATCH_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __OBJC__
#import <Foundation/NSObject.h>

@protocol OS_dispatch_object <NSObject>
@end
typedef NSObject<OS_dispatch_object> *dispatch_object_t;
#define DISPATCH_DECL(name)       \
  @protocol OS_                   \
  ##name<OS_dispatch_object> @end \
  typedef NSObject<OS_##name> *name##_t
#elif defined(__cplusplus)
typedef struct dispatch_object_s {
} *dispatch_object_t;
#define DISPATCH_DECL(name) typedef struct name##_s : public dispatch_object_s{} * name##_t
#else
typedef void *dispatch_object_t;
#define DISPATCH_DECL(name) typedef struct name##_s *name##_t
#endif

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wnullability-extension"
#pragma clang assume_nonnull begin
#endif

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/// As in libdispatch: a caller needs no way out by an exception, and the compiler leaves it none.
#define DISPATCH_NOTHROW __attribute__((__nothrow__))

DISPATCH_DECL(dispatch_queue);
DISPATCH_DECL(dispatch_queue_attr);
DISPATCH_DECL(dispatch_group);
DISPATCH_DECL(dispatch_semaphore);

typedef void (^dispatch_block_t)(void);
typedef void (*dispatch_function_t)(void *_Nullable context);

// Objects

/// One reference more, or less. The same as `retain` and `release`. The main queue and the global
/// queues live for ever and ignore both.
DISPATCH_NOTHROW void dispatch_retain(dispatch_object_t object);
DISPATCH_NOTHROW void dispatch_release(dispatch_object_t object);

// Time

/// A moment of the monotonic clock, in nanoseconds, or one of the two constants.
typedef uint64_t dispatch_time_t;
#define DISPATCH_TIME_NOW (0ull)
#define DISPATCH_TIME_FOREVER (~0ull)

#ifndef NSEC_PER_SEC
#define NSEC_PER_SEC 1000000000ull
#endif
#define NSEC_PER_MSEC 1000000ull
#define USEC_PER_SEC 1000000ull
#define NSEC_PER_USEC 1000ull

/// Returns the moment `delta` nanoseconds after `when`; one that lies too far ahead is
/// DISPATCH_TIME_FOREVER, one before the clock's start is its start.
DISPATCH_NOTHROW dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta);

// Queues

/// Attributes for `dispatch_queue_create`.
#define DISPATCH_QUEUE_SERIAL ((dispatch_queue_attr_t _Nullable)0)
#define DISPATCH_QUEUE_CONCURRENT (_dispatch_queue_attr_concurrent())
DISPATCH_NOTHROW dispatch_queue_attr_t _dispatch_queue_attr_concurrent(void);

/// What `dispatch_get_global_queue` takes. The workers behind these queues all run at the same
/// priority.
enum {
  QOS_CLASS_UNSPECIFIED = 0x00,
  QOS_CLASS_BACKGROUND = 0x09,
  QOS_CLASS_UTILITY = 0x11,
  QOS_CLASS_DEFAULT = 0x15,
  QOS_CLASS_USER_INITIATED = 0x19,
  QOS_CLASS_USER_INTERACTIVE = 0x21,
};
#define DISPATCH_QUEUE_PRIORITY_HIGH 2
#define DISPATCH_QUEUE_PRIORITY_DEFAULT 0
#define DISPATCH_QUEUE_PRIORITY_LOW (-2)
#define DISPATCH_QUEUE_PRIORITY_BACKGROUND INT16_MIN

#define DISPATCH_CURRENT_QUEUE_LABEL ((dispatch_queue_t _Nullable)0)

/// Returns the serial queue whose blocks run on the main thread, from its run loop in the common
/// modes (default, modal panel, event tracking). A run loop inside one of its blocks runs none of
/// the following ones.
DISPATCH_NOTHROW dispatch_queue_t dispatch_get_main_queue(void);

/// Returns the concurrent queue of a QOS_CLASS_… or DISPATCH_QUEUE_PRIORITY_… value, or nil for any
/// other. `flags` must be 0.
DISPATCH_NOTHROW dispatch_queue_t _Nullable dispatch_get_global_queue(intptr_t identifier,
                                                                      uintptr_t flags);

/// Returns a new queue that the caller owns. It stays alive while blocks wait in it.
/// @param label  A name for debugging, copied; may be NULL.
/// @param attribute  DISPATCH_QUEUE_SERIAL or DISPATCH_QUEUE_CONCURRENT.
DISPATCH_NOTHROW dispatch_queue_t dispatch_queue_create(const char *_Nullable label,
                                                        dispatch_queue_attr_t _Nullable attribute);

/// Returns the label of `queue`, or that of the queue whose block is running here for
/// DISPATCH_CURRENT_QUEUE_LABEL; "" where there is none.
DISPATCH_NOTHROW const char *dispatch_queue_get_label(dispatch_queue_t _Nullable queue);

/// Puts a copy of `block` at the end of `queue` and returns at once.
DISPATCH_NOTHROW void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);
DISPATCH_NOTHROW void dispatch_async_f(dispatch_queue_t queue, void *_Nullable context,
                                       dispatch_function_t work);

/// Runs `block` in its turn and returns after it has ended: on the calling thread, except that a
/// block for the main queue runs on the main thread. Ends the process when the calling thread is
/// inside that (serial) queue already.
DISPATCH_NOTHROW void dispatch_sync(dispatch_queue_t queue,
                                    __attribute__((noescape)) dispatch_block_t block);
DISPATCH_NOTHROW void dispatch_sync_f(dispatch_queue_t queue, void *_Nullable context,
                                      dispatch_function_t work);

/// As the two above, but nothing else of a concurrent queue runs beside `block`. On any other queue
/// they are the same.
DISPATCH_NOTHROW void dispatch_barrier_async(dispatch_queue_t queue, dispatch_block_t block);
DISPATCH_NOTHROW void dispatch_barrier_sync(dispatch_queue_t queue,
                                            __attribute__((noescape)) dispatch_block_t block);

/// Puts a copy of `block` into `queue` once `when` is reached, never for DISPATCH_TIME_FOREVER.
DISPATCH_NOTHROW void dispatch_after(dispatch_time_t when, dispatch_queue_t queue,
                                     dispatch_block_t block);
DISPATCH_NOTHROW void dispatch_after_f(dispatch_time_t when, dispatch_queue_t queue,
                                       void *_Nullable context, dispatch_function_t work);

/// Stores `context` under `key` (compared by address) in `queue`; NULL takes it away. `destructor`
/// runs, on a worker thread, when the value is replaced or the queue goes.
DISPATCH_NOTHROW void dispatch_queue_set_specific(dispatch_queue_t queue, const void *key,
                                                  void *_Nullable context,
                                                  dispatch_function_t _Nullable destructor);
DISPATCH_NOTHROW void *_Nullable dispatch_queue_get_specific(dispatch_queue_t queue,
                                                             const void *key);
/// The value of the queue whose block is running here.
DISPATCH_NOTHROW void *_Nullable dispatch_get_specific(const void *key);

/// Ends the process unless the caller runs in a block of `queue` (or: if it does).
void dispatch_assert_queue(dispatch_queue_t queue);
void dispatch_assert_queue_not(dispatch_queue_t queue);

// Once

/// Zero at first; must be static or global.
typedef intptr_t dispatch_once_t;

/// Runs `block` if no call with the same predicate has done so, and returns after that one run has
/// ended. A call from inside the block ends the process.
DISPATCH_NOTHROW void dispatch_once(dispatch_once_t *predicate,
                                    __attribute__((noescape)) dispatch_block_t block);
DISPATCH_NOTHROW void dispatch_once_f(dispatch_once_t *predicate, void *_Nullable context,
                                      dispatch_function_t function);

/// After the run a call costs no more than a look, as it does on a Mac.
DISPATCH_NOTHROW static inline __attribute__((always_inline)) void _dispatch_once(
    dispatch_once_t *predicate, __attribute__((noescape)) dispatch_block_t block) {
  if (__atomic_load_n(predicate, __ATOMIC_ACQUIRE) != ~(dispatch_once_t)0) {
    dispatch_once(predicate, block);
  }
}
#define dispatch_once _dispatch_once

// Groups

/// Returns a new, empty group that the caller owns. Ends the process if the last reference goes
/// while the group is entered.
DISPATCH_NOTHROW dispatch_group_t dispatch_group_create(void);
DISPATCH_NOTHROW void dispatch_group_enter(dispatch_group_t group);
/// Ends the process when there was no matching enter.
DISPATCH_NOTHROW void dispatch_group_leave(dispatch_group_t group);
/// Returns 0 once every enter was left, non-zero when `timeout` was reached before.
DISPATCH_NOTHROW intptr_t dispatch_group_wait(dispatch_group_t group, dispatch_time_t timeout);
/// Puts a copy of `block` into `queue` once the group is empty, at once if it is.
DISPATCH_NOTHROW void dispatch_group_notify(dispatch_group_t group, dispatch_queue_t queue,
                                            dispatch_block_t block);
/// `dispatch_async` between an enter and a leave.
DISPATCH_NOTHROW void dispatch_group_async(dispatch_group_t group, dispatch_queue_t queue,
                                           dispatch_block_t block);

// Semaphores

/// Returns a semaphore that the caller owns, or nil for a negative value. Ends the process if the
/// last reference goes while the value is below `value`.
DISPATCH_NOTHROW dispatch_semaphore_t _Nullable dispatch_semaphore_create(intptr_t value);
/// Returns 0 once the value could be taken down, non-zero when `timeout` was reached before.
DISPATCH_NOTHROW intptr_t dispatch_semaphore_wait(dispatch_semaphore_t semaphore,
                                                  dispatch_time_t timeout);
/// Returns non-zero if a thread was woken.
DISPATCH_NOTHROW intptr_t dispatch_semaphore_signal(dispatch_semaphore_t semaphore);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#if defined(__clang__)
#pragma clang assume_nonnull end
#pragma clang diagnostic pop
#endif

#endif
