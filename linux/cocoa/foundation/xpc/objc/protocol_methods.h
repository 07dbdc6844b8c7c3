// The methods that a protocol lets through, read once for each protocol.

#include <objc/runtime.h>

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#import <Foundation/Foundation.h>

#include "wire/signature.h"

namespace platform::xpc {

class BlockType;

struct Method {
  SEL selector;
  /// The types as this runtime reads them: it ends the process at the '?' of a block when a message
  /// is forwarded or a method signature made.
  std::string types;
  std::string name;
  std::unique_ptr<Signature> signature;
  /// Which argument is the reply block, or -1.
  int reply = -1;
  /// What that takes, once it is known.
  mutable std::atomic<const BlockType *> replyType{nullptr};
};

class ProtocolMethods {
 public:
  /// Returns the methods of `protocol`, which clang has compiled, and of all that it adopts,
  /// required and optional, without the protocol NSObject's,
  /// which are no business of a peer. Lives for ever. Raises NSInvalidArgumentException when one
  /// has types that cannot be sent.
  static const ProtocolMethods *of(Protocol *protocol);

  const Method *find(std::string_view selector) const;
  const Method *find(SEL selector) const { return find(sel_getName(selector)); }

  const std::unordered_map<std::string_view, std::unique_ptr<Method>> &all() const {
    return methods_;
  }

  Protocol *protocol() const { return protocol_; }

 private:
  explicit ProtocolMethods(Protocol *protocol) : protocol_(protocol) {}
  void addProtocol(Protocol *protocol);
  void addMethod(const char *name, const char *types);

  Protocol *const protocol_;
  std::unordered_map<std::string_view, std::unique_ptr<Method>> methods_;
};

}  // namespace platform::xpc
