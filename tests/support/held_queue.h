#ifndef TESTS_HELD_QUEUE_H
#define TESTS_HELD_QUEUE_H

#include <dispatch/dispatch.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

/// Holds a thread in the middle of what it does until the test lets it go on.
class Gate {
 public:
  /// On the thread that is to be held.
  void pass() {
    std::unique_lock<std::mutex> lock(mutex_);
    isReached_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] { return isOpen_; });
  }

  /// Waits until a thread is held. False if none comes.
  bool isReached() {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(60), [this] { return isReached_; });
  }

  void open() {
    const std::lock_guard<std::mutex> lock(mutex_);
    isOpen_ = true;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isReached_ = false;
  bool isOpen_ = false;
};

/// A serial queue as a connection has one, held from its beginning: what is added comes in behind
/// one another, and happens once the test lets the queue go on.
class HeldQueue {
 public:
  HeldQueue() : queue_(dispatch_queue_create("held", DISPATCH_QUEUE_SERIAL)) {
    add([this] { gate_.pass(); });
  }
  HeldQueue(const HeldQueue &) = delete;
  HeldQueue &operator=(const HeldQueue &) = delete;
  ~HeldQueue() {
    finish();
    dispatch_release(queue_);
  }

  template <typename Work>
  void add(Work work) {
    dispatch_async(queue_, ^{
      work();
    });
  }

  void go() { gate_.open(); }

  /// Lets it go on, and returns when all that was added has happened.
  void finish() {
    go();
    dispatch_sync(queue_, ^{
                  });
  }

 private:
  Gate gate_;
  const dispatch_queue_t queue_;
};

/// Ends the process with 3 while the queue is held at the gate. Where it `goesOn`, it does so while
/// the process is about to end; else it never does.
[[noreturn]] inline void ExitWhileHeld(HeldQueue *queue, Gate *gate, bool goesOn) {
  static HeldQueue *sQueue;
  static Gate *sGate;
  sQueue = queue;
  sGate = gate;
  queue->go();
  if (!gate->isReached()) {
    std::exit(4);
  }
  if (goesOn) {
    std::atexit([] {
      sGate->open();
      sQueue->finish();
    });
  }
  std::exit(3);
}

#endif
