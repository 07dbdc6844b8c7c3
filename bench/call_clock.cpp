#include "bench/call_clock.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

int64_t Nanoseconds(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

}  // namespace

CallClock::CallClock() : statistics_(open("/proc/thread-self/schedstat", O_RDONLY | O_CLOEXEC)) {
  if (statistics_ < 0) {
    perror("bench: /proc/thread-self/schedstat");
    exit(1);
  }
}

CallClock::~CallClock() { close(statistics_); }

CallClock::Moment CallClock::Now() const {
  Moment now{};
  now.wall = Nanoseconds(CLOCK_MONOTONIC);
  now.processor = Nanoseconds(CLOCK_THREAD_CPUTIME_ID);
  char text[64] = {};
  long long queued = 0;
  if (pread(statistics_, text, sizeof text - 1, 0) > 0) {
    sscanf(text, "%*s %lld", &queued);
  }
  now.queued = queued;
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  now.sleeps = usage.ru_nvcsw;
  return now;
}

void CallClock::Start() {
  start_ = Now();
  start_.wall = Nanoseconds(CLOCK_MONOTONIC);
}

double CallClock::Stop() {
  const Moment now = Now();
  const int64_t passed = now.wall - start_.wall;
  const int64_t own = now.processor - start_.processor + now.queued - start_.queued;
  const int64_t charged = now.sleeps != start_.sleeps ? passed : std::min(passed, own);
  longestStandstill_ = std::max(longestStandstill_, static_cast<double>(passed - charged) / 1e6);
  return static_cast<double>(charged) / 1e6;
}
