// For PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP.
#define _GNU_SOURCE

#import "FoundationReady.h"

#import <Foundation/Foundation.h>
#include <pthread.h>
#include <stdatomic.h>

static atomic_bool sIsReady;
// Recursive: what is set up here may itself ask for a queue.
static pthread_mutex_t sMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
static BOOL sIsAtWork;

static void MakeReady(void) {
  NSAutoreleasePool *pool = [NSAutoreleasePool new];
  // The defaults, with the files and locks below them.
  [NSUserDefaults standardUserDefaults];
  NSTemporaryDirectory();
  // What NSLog makes its line from.
  [[NSCalendarDate calendarDate] descriptionWithCalendarFormat:@"%Y-%m-%d %H:%M:%S.%F"];
  [[NSProcessInfo processInfo] processName];
  // What distributed notifications go through.
  [NSMessagePort class];
  [NSMessagePortNameServer sharedInstance];
  [NSConnection class];
  [NSPortCoder class];
  [NSArchiver class];
  [NSUnarchiver class];
  [NSRunLoop class];
  [pool release];
}

void PlatformMakeFoundationReady(void) {
  if (atomic_load_explicit(&sIsReady, memory_order_acquire)) {
    return;
  }
  pthread_mutex_lock(&sMutex);
  if (!sIsAtWork) {
    sIsAtWork = YES;
    MakeReady();
    atomic_store_explicit(&sIsReady, true, memory_order_release);
  }
  pthread_mutex_unlock(&sMutex);
}
