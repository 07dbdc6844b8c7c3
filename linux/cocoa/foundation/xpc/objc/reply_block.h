// Reply blocks: reading and calling those of others, and making those that answer a peer.

#include <memory>
#include <string_view>

#import <Foundation/Foundation.h>

#include "transport/channel.h"
#include "wire/signature.h"

namespace platform::xpc {

class BlockType;

/// Returns the type of `block`, which lives for ever, or nullptr where it cannot be a reply block's
/// (not returning void, taking a block) or the compiler left no encoding.
const BlockType *FindTypeOfBlock(id block);

const Signature &SignatureOf(const BlockType *type);

/// Calls `block`. What it raises comes through.
/// @param slots  As many as its signature has arguments.
void CallBlock(id block, const BlockType *type, Slot *slots);

/// Returns a new block, owned by the caller, that sends its arguments over `channel` as the reply
/// to `request` when it is called. Only the first call does so. It may be called on any thread. One
/// that goes without having been called sends that there is no reply.
id MakeReplyBlock(const BlockType *type, std::shared_ptr<Channel> channel, uint64_t request,
                  std::string_view selector);

}  // namespace platform::xpc
