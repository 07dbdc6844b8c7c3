//
// Calls the client as native code does, as it is told on standard input, one command a line:
//
//   status              asks for the last response
//   codes COUNT THREADS requests that many authorization codes from that many threads together
//   persist             requests a code, and once more inside the completion of one that failed
//   unsendable          reports an event and requests a code with objects that cannot be sent
//   fork                forks a child that ends normally 300 ms later, without another program in it
//   reap                waits for its end
//   outcome LIMIT       waits for their completions, LIMIT milliseconds at the most
//
// and says what came of each, one JSON object a line. Ends with its input.
//

#import <Foundation/Foundation.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#import "client/Pellmar.h"

namespace {

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/// What has come of all requests. Never destroyed: completions may still come when the process
/// ends.
class Tally {
 public:
  explicit Tally(unsigned count) : calls_(count) {}

  /// Records the completion of request `number`.
  void add(unsigned number, NSString *code, NSError *error) {
    std::string kind;
    if (code && error) {
      kind = "both";
    } else if (!code && !error) {
      kind = "neither";
    } else if (code) {
      kind = [code isKindOfClass:[NSString class]] ? "code" : "wrong class";
    } else {
      // As an application would present it.
      kind = [error isKindOfClass:[NSError class]] && error.localizedDescription.length > 0
                 ? "error " + std::to_string(error.code)
                 : "wrong class";
    }
    std::lock_guard<std::mutex> lock(mutex_);
    last_ = Clock::now();
    if (++calls_[number] == 1) {
      ++ended_;
    }
    ++kinds_[kind];
  }

  unsigned ended() {
    std::lock_guard<std::mutex> lock(mutex_);
    return ended_;
  }

  unsigned count() const { return static_cast<unsigned>(calls_.size()); }

  void print() {
    std::lock_guard<std::mutex> lock(mutex_);
    unsigned surplus = 0;
    for (unsigned calls : calls_) {
      surplus += calls > 1 ? calls - 1 : 0;
    }
    std::string text;
    for (const auto &[kind, number] : kinds_) {
      text += (text.empty() ? "" : ", ") + std::to_string(number) + " × " + kind;
    }
    if (ended_ < count()) {
      text += (text.empty() ? "" : ", ") + std::to_string(count() - ended_) + " unanswered";
    }
    if (surplus) {
      text += ", " + std::to_string(surplus) + " answered again";
    }
    std::printf("{\"value\":\"%s\",\"ms\":%.1f}\n", text.c_str(),
                std::chrono::duration<double, std::milli>(last_ - start_).count());
  }

 private:
  const Clock::time_point start_ = Clock::now();
  std::mutex mutex_;
  Clock::time_point last_ = start_;
  std::vector<unsigned> calls_;
  std::map<std::string, unsigned> kinds_;
  unsigned ended_ = 0;
};

void Request(Tally *tally, unsigned threads) {
  std::atomic<unsigned> ready{0};
  std::vector<std::thread> running;
  for (unsigned thread = 0; thread < threads; ++thread) {
    running.emplace_back([tally, thread, threads, &ready] {
      ++ready;
      while (ready < threads) {
        std::this_thread::yield();
      }
      for (unsigned number = thread; number < tally->count(); number += threads) {
        @autoreleasepool {
          PLRequestAuthorizationCode(@"fault-caller", @[ PLVendorAuthScopeApplicationAccess ],
                                     ^(NSString *code, NSError *error) {
                                       tally->add(number, code, error);
                                     });
        }
      }
    });
  }
  for (std::thread &thread : running) {
    thread.join();
  }
}

/// Requests a code as request 0 of two and, where that fails, at once as request 1.
void RequestAgain(Tally *tally) {
  auto request = ^(PLAuthorizationCodeCompletion completion) {
    PLRequestAuthorizationCode(@"fault-caller", @[], completion);
  };
  request(^(NSString *code, NSError *error) {
    tally->add(0, code, error);
    if (error) {
      request(^(NSString *nextCode, NSError *nextError) {
        tally->add(1, nextCode, nextError);
      });
    }
  });
}

void SendUnsendable(Tally *tally) {
  id object = [[[NSObject alloc] init] autorelease];
  PLReportUsageEvent(@"event", [NSDictionary dictionaryWithObject:object forKey:@"key"]);
  PLRequestAuthorizationCode(@"fault-caller", @[ object ], ^(NSString *code, NSError *error) {
    tally->add(0, code, error);
  });
}

}  // namespace

int main() {
  // Before other threads: Foundation becomes multi-threaded here.
  @autoreleasepool {
    PLGetLastUserEmailSharingResponse();
  }
  setvbuf(stdout, nullptr, _IOLBF, 0);
  Tally *tally = nullptr;
  pid_t child = -1;
  std::string line;
  while (std::getline(std::cin, line)) {
    std::istringstream words(line);
    std::string command;
    words >> command;
    const auto start = Clock::now();
    if (command == "status") {
      @autoreleasepool {
        const auto answer = PLGetLastUserEmailSharingResponse();
        std::printf("{\"value\":\"%ld\",\"ms\":%.1f}\n", static_cast<long>(answer),
                    MillisecondsSince(start));
      }
    } else if (command == "codes") {
      unsigned count = 0, threads = 0;
      words >> count >> threads;
      tally = new Tally(count);
      Request(tally, threads);
      std::printf("{\"value\":\"%u requested\",\"ms\":%.1f}\n", count, MillisecondsSince(start));
    } else if (command == "persist" || command == "unsendable") {
      tally = new Tally(command == "persist" ? 2 : 1);
      @autoreleasepool {
        command == "persist" ? RequestAgain(tally) : SendUnsendable(tally);
      }
      std::printf("{\"value\":\"requested\",\"ms\":%.1f}\n", MillisecondsSince(start));
    } else if (command == "fork") {
      child = fork();
      if (child == 0) {
        usleep(300'000);
        exit(0);
      }
      std::printf("{\"value\":\"forked\",\"ms\":%.1f}\n", MillisecondsSince(start));
    } else if (command == "reap") {
      int status = -1;
      waitpid(child, &status, 0);
      std::printf("{\"value\":\"the child ends with %d\",\"ms\":%.1f}\n", status,
                  MillisecondsSince(start));
    } else if (command == "outcome" && tally) {
      double limit = 0;
      words >> limit;
      while (tally->ended() < tally->count() && MillisecondsSince(start) < limit) {
        usleep(1000);
      }
      // Long enough for one that comes again.
      usleep(100'000);
      tally->print();
    } else {
      std::fprintf(stderr, "fault_caller: unknown command: %s\n", line.c_str());
      return 2;
    }
  }
  return 0;
}
