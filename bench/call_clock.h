//
// How long single calls take, on a machine that its host suspends now and then.
//

#ifndef BENCH_CALL_CLOCK_H
#define BENCH_CALL_CLOCK_H

#include <cstdint>

/// Times calls of one thread, one after the other.
///
/// A virtual machine is stopped for milliseconds when its host has other work, whatever runs there.
/// Linux does not count that as time of the processor (see steal in proc_stat(5)). So a thread that
/// has not slept during a call is charged with its time on the processor and the time that it has
/// waited there for other threads, and one that has slept with all the time that passed.
class CallClock {
 public:
  CallClock();
  ~CallClock();

  void Start();
  /// Returns the milliseconds that the call since `Start` is charged with.
  double Stop();

  /// The milliseconds for which the machine was suspended during one call, at the longest.
  double longestStandstill() const { return longestStandstill_; }

 private:
  struct Moment {
    int64_t wall;
    int64_t processor;
    int64_t queued;
    long sleeps;
  };
  Moment Now() const;

  int statistics_;
  Moment start_{};
  double longestStandstill_ = 0;
};

#endif
