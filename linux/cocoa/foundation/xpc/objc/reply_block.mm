#import "reply_block.h"

#include <atomic>
#include <mutex>
#include <string>
#include <unordered_map>

#include "BlockLayout.h"
#import "wire/object_coding.h"

namespace platform::xpc {

namespace {

struct ReplyState {
  std::shared_ptr<Channel> channel;
  uint64_t request;
  std::string selector;
  std::atomic<bool> called{false};
};

/// A block as the compiler lays it out, with one captured value.
struct ReplyBlock {
  Block_layout layout;
  ReplyState *state;
};

struct ReplyDescriptor {
  Block_descriptor descriptor;
  Block_descriptor_helpers helpers;
  Block_descriptor_signature signature;
};

void CopyReplyBlock(void *, const void *) {}

/// A reply that cannot be sent must not leave the peer waiting: the connection ends then.
/// @param problem  What is wrong with the frame already, or nothing.
void Send(const ReplyState &state, Writer *writer, std::string problem) {
  if (problem.empty() && !writer->finish()) {
    problem = "it is too large";
  }
  if (problem.empty() &&
      state.channel->send(writer->data(), writer->size()) == Channel::Sent::kFull) {
    problem = "too much waits to be sent already";
  }
  if (!problem.empty()) {
    state.channel->breakOff("the reply to " + state.selector + " cannot be sent: " + problem);
  }
}

void DisposeReplyBlock(const void *block) {
  const std::unique_ptr<ReplyState> state(static_cast<const ReplyBlock *>(block)->state);
  if (!state->called) {
    Writer writer;
    writer.begin(FrameKind::kNoReply);
    writer.putNumber(state->request);
    writer.putNumber(0);
    Send(*state, &writer, {});
  }
}

}  // namespace

class BlockType {
 public:
  static const BlockType *make(std::string_view encoding) {
    auto signature = Signature::parse(Signature::Form::kBlock, encoding);
    if (!signature) {
      return nullptr;
    }
    for (const Type &type : signature->arguments()) {
      if (type.kind == TypeKind::kBlock) {
        return nullptr;
      }
    }
    std::unique_ptr<BlockType> type(new BlockType(std::move(signature)));
    return type->code_ ? type.release() : nullptr;
  }

  const Signature &signature() const { return *signature_; }

  /// The code of this type's reply blocks. All share it: it finds the request in the block.
  void *code() const { return code_; }

  Block_descriptor *descriptor() const { return &descriptor_.descriptor; }

 private:
  explicit BlockType(std::unique_ptr<Signature> signature) : signature_(std::move(signature)) {
    descriptor_ = {{0, sizeof(ReplyBlock)},
                   {&CopyReplyBlock, &DisposeReplyBlock},
                   {signature_->text().c_str(), nullptr}};
    auto *closure = static_cast<ffi_closure *>(ffi_closure_alloc(sizeof(ffi_closure), &code_));
    if (!closure || ffi_prep_closure_loc(closure, signature_->cif(), &BlockType::called, this,
                                         code_) != FFI_OK) {
      code_ = nullptr;
    }
  }

  static void called(ffi_cif *, void *, void **arguments, void *type);

  const std::unique_ptr<Signature> signature_;
  mutable ReplyDescriptor descriptor_;
  void *code_ = nullptr;
};

void BlockType::called(ffi_cif *, void *, void **arguments, void *data) {
  const auto *type = static_cast<const BlockType *>(data);
  ReplyState *state = (*static_cast<ReplyBlock **>(arguments[0]))->state;
  if (state->called.exchange(true)) {
    NSLog(@"XPC: the reply to %s was given already; another one is ignored",
          state->selector.c_str());
    return;
  }
  Writer writer;
  std::string problem;
  @try {
    writer.begin(FrameKind::kReply);
    writer.putNumber(state->request);
    const auto &types = type->signature().arguments();
    writer.putNumber(types.size());
    for (size_t i = 0; i < types.size(); ++i) {
      EncodeArgument(&writer, types[i], arguments[1 + i]);
    }
  } @catch (NSException *exception) {
    problem = [[exception reason] UTF8String];
  }
  Send(*state, &writer, std::move(problem));
}

const BlockType *FindTypeOfBlock(id block) {
  static std::mutex mutex;
  static auto *types = new std::unordered_map<std::string, const BlockType *>;
  const char *encoding = _Block_signature(block);
  if (!encoding) {
    return nullptr;
  }
  std::lock_guard<std::mutex> lock(mutex);
  const BlockType *&type = (*types)[encoding];
  if (!type) {
    type = BlockType::make(encoding);
  }
  return type;
}

const Signature &SignatureOf(const BlockType *type) { return type->signature(); }

void CallBlock(id block, const BlockType *type, Slot *slots) {
  void *arguments[1 + kMaximumArguments];
  arguments[0] = &block;
  for (size_t i = 0; i < type->signature().arguments().size(); ++i) {
    arguments[1 + i] = &slots[i];
  }
  ffi_call(type->signature().cif(), reinterpret_cast<Block_layout *>(block)->invoke, nullptr,
           arguments);
}

id MakeReplyBlock(const BlockType *type, std::shared_ptr<Channel> channel, uint64_t request,
                  std::string_view selector) {
  auto *block = static_cast<ReplyBlock *>(malloc(sizeof(ReplyBlock)));
  if (!block) {
    return nil;
  }
  block->layout.isa = _NSConcreteMallocBlock;
  block->layout.flags = BLOCK_NEEDS_FREE | BLOCK_HAS_COPY_DISPOSE | BLOCK_HAS_SIGNATURE | 2;
  block->layout.reserved = 0;
  block->layout.invoke = reinterpret_cast<void (*)(void)>(type->code());
  block->layout.descriptor = type->descriptor();
  block->state = new ReplyState{std::move(channel), request, std::string(selector), {false}};
  return reinterpret_cast<id>(block);
}

}  // namespace platform::xpc
