//
// What native callers wait for, each beside its own floor. The agent and the floors' sockets belong
// to a `bench_peer`, whose folder is in PELLMAR_BENCH_FOLDER.
//

#import <Foundation/Foundation.h>
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "bench/ping_pong.h"
#import "client/Pellmar.h"

namespace {

std::string Folder() {
  const char *folder = getenv("PELLMAR_BENCH_FOLDER");
  if (!folder) {
    abort();
  }
  return folder;
}

/// Waits until the agent has taken all that this process has sent: replies come in order.
void Drain() {
  if (PLGetLastUserEmailSharingResponse() == PLEmailSharingAnswerUnknown) {
    fprintf(stderr, "connection_benchmark: the agent does not answer\n");
    abort();
  }
}

NSString *EventOfSize(size_t size) {
  return [@"" stringByPaddingToLength:size withString:@"event " startingAtIndex:0];
}

/// Bytes of the frame of an event of `size` ASCII characters.
size_t FrameSize(size_t size) {
  const size_t rest = 8 + 1 + 1 + strlen("reportUsageEvent:eventInfo:") + 1 + 1 + 1;
  return rest + (size < 128 ? 1 : size < 16384 ? 2 : 3) + size;
}

size_t BatchOfSize(size_t size) { return size > 4096 ? 200 : 10'000; }

void RoundTripOurs(benchmark::State &state) {
  Drain();
  for (auto _ : state) {
    PLGetLastUserEmailSharingResponse();
  }
}

void RoundTripFloor(benchmark::State &state) {
  PingClient client(Folder() + "/ping");
  for (auto _ : state) {
    client.RoundTrip();
  }
}

void EventsOurs(benchmark::State &state) {
  const size_t size = static_cast<size_t>(state.range(0));
  const size_t batch = BatchOfSize(size);
  NSString *event = EventOfSize(size);
  Drain();
  for (auto _ : state) {
    @autoreleasepool {
      for (size_t i = 0; i < batch; ++i) {
        PLReportUsageEvent(event, nil);
      }
    }
    Drain();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(batch));
}

void EventsFloor(benchmark::State &state) {
  const size_t size = static_cast<size_t>(state.range(0));
  const size_t batch = BatchOfSize(size);
  const std::vector<char> frame(FrameSize(size), 'x');
  const std::string path = Folder() + "/count";
  for (auto _ : state) {
    const int fd = ConnectTo(path);
    for (size_t i = 0; i < batch; ++i) {
      if (send(fd, frame.data(), frame.size(), MSG_NOSIGNAL) < 0) {
        abort();
      }
    }
    shutdown(fd, SHUT_WR);
    uint64_t count = 0;
    if (recv(fd, &count, sizeof count, MSG_WAITALL) != sizeof count ||
        count != batch * frame.size()) {
      abort();
    }
    close(fd);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(batch));
}

/// The cost to each caller of one event when several threads report at once.
void EventThreads(benchmark::State &state) {
  NSString *event = EventOfSize(20);
  if (state.thread_index() == 0) {
    Drain();
  }
  for (auto _ : state) {
    PLReportUsageEvent(event, nil);
  }
}

void Outstanding(benchmark::State &state) {
  const int64_t count = state.range(0);
  Drain();
  for (auto _ : state) {
    dispatch_group_t group = dispatch_group_create();
    for (int64_t i = 0; i < count; ++i) {
      dispatch_group_enter(group);
      PLRequestAuthorizationCode(@"client", @[ PLVendorAuthScopeApplicationAccess ],
                                 ^(NSString *, NSError *) {
                                   dispatch_group_leave(group);
                                 });
    }
    dispatch_group_wait(group, DISPATCH_TIME_FOREVER);
    dispatch_release(group);
  }
  state.SetItemsProcessed(state.iterations() * count);
}

}  // namespace

BENCHMARK(RoundTripOurs)->UseRealTime();
BENCHMARK(RoundTripFloor)->UseRealTime();
BENCHMARK(EventsOurs)->Arg(16)->Arg(20)->Arg(1024)->Arg(65536)->UseRealTime();
BENCHMARK(EventsFloor)->Arg(16)->Arg(20)->Arg(1024)->Arg(65536)->UseRealTime();
// As many as do not fill what may wait for the agent.
BENCHMARK(EventThreads)->ThreadRange(1, 8)->Iterations(20'000)->UseRealTime();
BENCHMARK(Outstanding)->Arg(1)->Arg(8)->Arg(64)->UseRealTime();

int main(int argc, char *argv[]) {
  @autoreleasepool {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
      return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
  }
  return 0;
}
