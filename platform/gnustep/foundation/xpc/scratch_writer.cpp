#include "scratch_writer.h"

namespace platform::xpc {

namespace {

thread_local Writer sharedWriter;
thread_local bool sharedWriterIsTaken = false;

}  // namespace

ScratchWriter::ScratchWriter() : isShared_(!sharedWriterIsTaken) {
  writer_ = isShared_ ? &sharedWriter : new Writer;
  if (isShared_) sharedWriterIsTaken = true;
}

ScratchWriter::~ScratchWriter() {
  if (isShared_) {
    writer_->Trim();
    sharedWriterIsTaken = false;
  } else {
    delete writer_;
  }
}

}  // namespace platform::xpc
