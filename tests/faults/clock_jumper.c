// For LD_PRELOAD: the wall clock jumps by CLOCK_JUMP seconds every tenth of a second. The monotonic
// clock goes on as ever.

#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

static int ReadClock(clockid_t clock, struct timespec *now) {
  return (int)syscall(SYS_clock_gettime, clock, now);
}

int clock_gettime(clockid_t clock, struct timespec *now) {
  const int result = ReadClock(clock, now);
  if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) {
    struct timespec passed;
    ReadClock(CLOCK_MONOTONIC, &passed);
    const char *jump = getenv("CLOCK_JUMP");
    // Over a day and back: a date must stay one.
    const long jumps = (passed.tv_sec * 10 + passed.tv_nsec / 100000000) % 8;
    now->tv_sec += jumps * (jump ? atol(jump) : 0);
  }
  return result;
}

int gettimeofday(struct timeval *now, void *zone) {
  (void)zone;
  struct timespec time;
  clock_gettime(CLOCK_REALTIME, &time);
  now->tv_sec = time.tv_sec;
  now->tv_usec = time.tv_nsec / 1000;
  return 0;
}

time_t time(time_t *where) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  if (where) {
    *where = now.tv_sec;
  }
  return now.tv_sec;
}
