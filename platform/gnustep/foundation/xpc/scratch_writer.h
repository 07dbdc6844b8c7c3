// The calling thread's writer, so that a message costs no allocation.

#ifndef PLATFORM_XPC_SCRATCH_WRITER_H
#define PLATFORM_XPC_SCRATCH_WRITER_H

#include "wire.h"

namespace platform::xpc {

/// For the time of its life the thread's writer; a second one, for an argument that itself sends
/// something while it is encoded, has a writer of its own.
class ScratchWriter {
 public:
  ScratchWriter();
  ~ScratchWriter();
  ScratchWriter(const ScratchWriter &) = delete;
  ScratchWriter &operator=(const ScratchWriter &) = delete;

  Writer *operator->() const { return writer_; }
  Writer *get() const { return writer_; }

 private:
  Writer *writer_;
  bool isShared_;
};

}  // namespace platform::xpc

#endif
