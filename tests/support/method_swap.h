#ifndef TESTS_METHOD_SWAP_H
#define TESTS_METHOD_SWAP_H

#import <Foundation/Foundation.h>
#import <objc/runtime.h>

/// Swizzles a method: another function replaces it while this lives. One swap of a method at a
/// time; not while another thread may call it. The method must be the own one of the class that is
/// asked: gcc's runtime does not tell a class below that has been used before.
class MethodSwap {
 public:
  template <typename Function>
  MethodSwap(Method method, Function *replacement)
      : method_(method),
        original_(method_setImplementation(
            method, reinterpret_cast<IMP>(reinterpret_cast<void *>(replacement)))) {}
  MethodSwap(const MethodSwap &) = delete;
  MethodSwap &operator=(const MethodSwap &) = delete;
  ~MethodSwap() { method_setImplementation(method_, original_); }

  /// The method as it was, as a function of the replacement's type.
  template <typename Function>
  Function *original() const {
    return reinterpret_cast<Function *>(reinterpret_cast<void *>(original_));
  }

 private:
  const Method method_;
  const IMP original_;
};

#endif
