#import "reply_block.h"

#include <atomic>
#include <mutex>
#include <string>
#include <unordered_map>

#include "BlockLayout.h"
#import "wire/object_coding.h"

namespace platform::xpc {

namespace {

/// More than any set of protocols has; a peer that makes up types all the time is not let further.
constexpr size_t kForeignTypes = 1024;

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

void DisposeReplyBlock(const void *block) { delete static_cast<const ReplyBlock *>(block)->state; }

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
    if (!writer.finish()) {
      problem = "it is too large";
    }
  } @catch (NSException *exception) {
    problem = [[exception reason] UTF8String];
  }
  // A reply that cannot be sent must not leave the peer waiting.
  if (problem.empty() &&
      state->channel->send(writer.data(), writer.size()) == Channel::Sent::kFull) {
    problem = "too much waits to be sent already";
  }
  if (!problem.empty()) {
    state->channel->breakOff("the reply to " + state->selector + " cannot be sent: " + problem);
  }
}

const BlockType *FindBlockType(std::string_view encoding, bool foreign) {
  static std::mutex mutex;
  static auto *types = new std::unordered_map<std::string, const BlockType *>;
  static size_t foreignTypes = 0;
  std::string key(encoding);
  std::lock_guard<std::mutex> lock(mutex);
  auto found = types->find(key);
  if (found != types->end()) {
    return found->second;
  }
  if (foreign && foreignTypes >= kForeignTypes) {
    return nullptr;
  }
  const BlockType *type = BlockType::make(encoding);
  if (!type) {
    return nullptr;
  }
  if (foreign) {
    ++foreignTypes;
  }
  types->emplace(std::move(key), type);
  return type;
}

const BlockType *FindTypeOfBlock(id block) {
  const char *encoding = _Block_signature(block);
  return encoding ? FindBlockType(encoding, false) : nullptr;
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
