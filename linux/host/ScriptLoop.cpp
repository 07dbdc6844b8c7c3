#include "ScriptLoop.h"

#include <vector>

namespace {

/// Leaves every context that is entered, and enters them again at its end.
class NoContext {
 public:
  explicit NoContext(v8::Isolate *isolate) : isolate_(isolate) {
    v8::HandleScope scope(isolate_);
    while (isolate_->InContext()) {
      v8::Local<v8::Context> context = isolate_->GetEnteredOrMicrotaskContext();
      left_.emplace_back(isolate_, context);
      context->Exit();
    }
  }

  ~NoContext() {
    v8::HandleScope scope(isolate_);
    for (auto context = left_.rbegin(); context != left_.rend(); ++context) {
      context->Get(isolate_)->Enter();
    }
  }

  NoContext(const NoContext &) = delete;
  NoContext &operator=(const NoContext &) = delete;

 private:
  v8::Isolate *const isolate_;
  std::vector<v8::Global<v8::Context>> left_;
};

/// Whether libuv has descriptors that it has not handed to the kernel yet: it does so only when it
/// polls itself, and a wait before that would miss what happens to them. From 1.44 on (Node 18)
/// `uv_backend_timeout` sees to it; before, nothing tells but libuv's list of them, which is empty
/// when its first link leads back to it.
bool HasNewDescriptors(const uv_loop_t *loop) {
  return *reinterpret_cast<const void *const *>(&loop->watcher_queue) != &loop->watcher_queue;
}

}  // namespace

ScriptLoop::ScriptLoop(v8::Isolate *isolate, uv_loop_t *loop, Turn turn)
    : isolate_(isolate), loop_(loop), turn_(turn) {
  uv_prepare_init(loop_, &beforePoll_);
  beforePoll_.data = this;
  uv_idle_init(loop_, &noWait_);
}

void ScriptLoop::start() {
  uv_idle_start(&noWait_, [](uv_idle_t *) {});
  uv_prepare_start(&beforePoll_,
                   [](uv_prepare_t *handle) { static_cast<ScriptLoop *>(handle->data)->run(); });
}

void ScriptLoop::run() {
  // The idle handle makes libuv's own poll return at once. It must not count when the turn asks how
  // long the scripts have nothing to do.
  if (!HasNewDescriptors(loop_)) {
    uv_idle_stop(&noWait_);
  }
  {
    NoContext noContext(isolate_);
    v8::SealHandleScope noHandles(isolate_);
    turn_(loop_);
  }
  uv_idle_start(&noWait_, [](uv_idle_t *) {});
}
