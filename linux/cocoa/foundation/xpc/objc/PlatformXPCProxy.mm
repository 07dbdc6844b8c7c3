#import "PlatformXPCProxy.h"

#include <mutex>
#include <string>
#include <unordered_map>

#import "PlatformXPCInterface.h"
#import "protocol_methods.h"

using platform::xpc::ConnectionCore;
using platform::xpc::ProtocolMethods;

@implementation PlatformXPCProxy

/// The code of the methods.
static void Send(ffi_cif *, void *, void **arguments, void *data) {
  PlatformXPCProxy *proxy = *static_cast<PlatformXPCProxy **>(arguments[0]);
  const auto &method = *static_cast<const platform::xpc::Method *>(data);
  if (proxy->_core) {
    proxy->_core->sendMessage(method, proxy->_interface, arguments + 2, proxy->_errorHandler);
  } else if (method.reply >= 0) {
    method.replyType =
        platform::xpc::FindTypeOfBlock(*static_cast<id *>(arguments[2 + method.reply]));
  }
}

/// A message that was forwarded would be described by the types that the compiler left in its
/// selector, and this runtime ends the process at the '?' of a block in them. So each protocol has
/// a class whose methods are closures.
static Class MakeClass(const ProtocolMethods *methods, size_t number) {
  const char *protocol = protocol_getName(methods->protocol());
  const std::string name =
      "PlatformXPCProxy_" + std::string(protocol) + "_" + std::to_string(number);
  Class made = objc_allocateClassPair([PlatformXPCProxy class], name.c_str(), 0);
  for (auto &entry : methods->all()) {
    auto &method = *entry.second;
    void *code = nullptr;
    auto *closure = static_cast<ffi_closure *>(ffi_closure_alloc(sizeof(ffi_closure), &code));
    if (!closure || ffi_prep_closure_loc(closure, method.signature->cif(), Send, &method, code)) {
      [NSException raise:NSMallocException format:@"No memory for a proxy's methods"];
    }
    class_addMethod(made, method.selector, reinterpret_cast<IMP>(code), method.types.c_str());
  }
  objc_registerClassPair(made);
  class_addProtocol(made, methods->protocol());
  return made;
}

static Class ClassFor(const ProtocolMethods *methods) {
  static std::mutex mutex;
  static auto *known = new std::unordered_map<const ProtocolMethods *, Class>;
  std::lock_guard<std::mutex> lock(mutex);
  Class &proxyClass = (*known)[methods];
  if (!proxyClass) {
    proxyClass = MakeClass(methods, known->size());
  }
  return proxyClass;
}

+ (instancetype)proxyForConnection:(NSXPCConnection *)connection
                              core:(ConnectionCore *)core
                         interface:(PlatformXPCInterface *)interface
                      errorHandler:(id)errorHandler {
  PlatformXPCProxy *proxy = [[ClassFor([interface methods]) alloc] init];
  proxy->_connection = [connection retain];
  proxy->_core = core;
  proxy->_interface = [interface retain];
  proxy->_errorHandler = [errorHandler copy];
  return [proxy autorelease];
}

- (id)remoteObjectProxy {
  return [_connection remoteObjectProxy];
}

- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError *error))handler {
  return [_connection remoteObjectProxyWithErrorHandler:handler];
}

- (void)dealloc {
  [_errorHandler release];
  [_interface release];
  [_connection release];
  [super dealloc];
}

@end
