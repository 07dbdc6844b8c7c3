// Lets another event loop turn inside libuv's, in the same thread.

#ifndef PELLMAR_HOST_SCRIPT_LOOP_H
#define PELLMAR_HOST_SCRIPT_LOOP_H

#include <uv.h>
#include <v8.h>

/// From `Start` on, every round of the script's libuv loop gives the other loop one turn. While
/// neither has anything to do, the thread waits in the other loop.
///
/// Script thread only. One for each isolate.
class ScriptLoop {
 public:
  /// One turn of the other loop: does what is due there, then waits for more, but no longer than
  /// `uv_backend_timeout(loop)` says at that moment and not once `uv_backend_fd(loop)` is readable,
  /// and returns after what the wait brought.
  ///
  /// It is called as a desktop application's event loop is: with no handle scope open and no
  /// context entered. Nothing may be thrown out of it.
  using Turn = void (*)(uv_loop_t *loop);

  /// `isolate` and `loop` must outlive the object.
  ScriptLoop(v8::Isolate *isolate, uv_loop_t *loop, Turn turn);
  ~ScriptLoop() = delete;  // libuv keeps pointers into it until the process ends
  ScriptLoop(const ScriptLoop &) = delete;
  ScriptLoop &operator=(const ScriptLoop &) = delete;

  /// Takes effect with the loop's next round and keeps the loop alive from now on.
  void start();

 private:
  void run();

  v8::Isolate *const isolate_;
  uv_loop_t *const loop_;
  const Turn turn_;
  uv_prepare_t beforePoll_;
  uv_idle_t noWait_;
};

#endif
