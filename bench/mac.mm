//
// What calls cost on a Mac, toolkit included, as the system counts it for the process: prints a table
// in Markdown. Needs an agent that does not want the customer asked:
//
//   scripts/agent --should-ask no & build/Release/bench/bench_mac
//

#import <Foundation/Foundation.h>
#include <libproc.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>

#import "client/Pellmar.h"

namespace {

using Clock = std::chrono::steady_clock;

rusage_info_v4 Usage() {
  rusage_info_v4 usage{};
  if (proc_pid_rusage(getpid(), RUSAGE_INFO_V4, reinterpret_cast<rusage_info_t *>(&usage)) != 0) {
    perror("bench: proc_pid_rusage");
    exit(1);
  }
  return usage;
}

double Microseconds(const std::function<void()> &work) {
  const Clock::time_point start = Clock::now();
  @autoreleasepool {
    work();
  }
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

/// What one call costs: that of twice `count` calls less that of `count`, so that what comes once goes.
void Count(const char *name, int count, const std::function<void()> &call) {
  rusage_info_v4 usage[3];
  double time[2] = {};
  Microseconds(call);
  for (int run = 0; run < 2; ++run) {
    usage[run] = Usage();
    for (int i = 0; i < (run + 1) * count; ++i) {
      time[run] += Microseconds(call);
    }
  }
  usage[2] = Usage();
  const auto each = [&](uint64_t rusage_info_v4::*field) {
    const auto amount = [&](int run) {
      return static_cast<double>(static_cast<int64_t>(usage[run + 1].*field - usage[run].*field));
    };
    return (amount(1) - amount(0)) / count;
  };
  printf("| %s | %.1f | %.0f | %.3f | %.0f | %.0f |\n", name, (time[1] - time[0]) / count,
         each(&rusage_info_v4::ri_instructions), each(&rusage_info_v4::ri_pkg_idle_wkups),
         each(&rusage_info_v4::ri_phys_footprint), each(&rusage_info_v4::ri_billed_energy));
}

void Ask() {
  if (PLGetLastUserEmailSharingResponse() != PLEmailSharingAnswerGiven) {
    fprintf(stderr, "bench: the agent does not answer\n");
    exit(1);
  }
}

void Event() { PLReportUsageEvent(@"20 characters, or so", nil); }

void Code() {
  dispatch_semaphore_t given = dispatch_semaphore_create(0);
  PLRequestAuthorizationCode(@"client", @[ PLVendorAuthScopeApplicationAccess ],
                             ^(NSString *, NSError *) {
                               dispatch_semaphore_signal(given);
                             });
  dispatch_semaphore_wait(given, DISPATCH_TIME_FOREVER);
  dispatch_release(given);
}

}  // namespace

int main() {
  const double firstQuestion = Microseconds(Ask);
  const double firstEvent = Microseconds(Event);
  puts("| a call | µs of its caller | instructions | idle wake-ups | bytes | nJ |");
  puts("|---|---|---|---|---|---|");
  Count("an event", 500, Event);
  Count("an event every 20 ms", 250, [] {
    usleep(20'000);
    Event();
  });
  Count("the same pause without one", 250, [] { usleep(20'000); });
  Count("a question", 200, Ask);
  Count("a code", 200, Code);
  Count("release notes", 200, PLShowReleaseNotesWindow);
  Count("the relay on and off", 200, [] {
    PLEnableDebugLogging(YES);
    PLEnableDebugLogging(NO);
  });
  puts("\n| what is felt | µs |\n|---|---|");
  const double alone = Microseconds(Ask);
  for (int i = 0; i < 100'000; ++i) {
    Microseconds(Event);
  }
  printf("| the first question | %.0f |\n| the first event | %.0f |\n", firstQuestion, firstEvent);
  printf("| a question | %.0f |\n| a question behind 100,000 events | %.0f |\n", alone,
         Microseconds(Ask));
  return 0;
}
