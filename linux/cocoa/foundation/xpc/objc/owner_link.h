// A reference to an object that does not keep it, in place of the weak ones this runtime lacks. The
// object counts its references itself, so that nobody can take one from it once the last is gone.

#include <mutex>

#import <Foundation/Foundation.h>

namespace platform::xpc {

class OwnerLink {
 public:
  /// @param references  How many references beyond the first `owner` has; see the functions below.
  OwnerLink(id owner, long *references) : owner_(owner), references_(references) {}

  /// Returns the owner with one reference more, or nil when it is going or gone.
  id retain() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!owner_) {
      return nil;
    }
    long old = __atomic_load_n(references_, __ATOMIC_RELAXED);
    do {
      if (old < 0) {
        return nil;
      }
    } while (!__atomic_compare_exchange_n(references_, &old, old + 1, true, __ATOMIC_RELAXED,
                                          __ATOMIC_RELAXED));
    return owner_;
  }

  /// The first thing that the owner's dealloc does.
  void clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    owner_ = nil;
  }

  /// The owner's `retain`.
  static void increment(long *references) { __atomic_fetch_add(references, 1, __ATOMIC_RELAXED); }

  /// The owner's `release`. Returns whether it was the last.
  static bool decrement(long *references) {
    return __atomic_fetch_sub(references, 1, __ATOMIC_ACQ_REL) == 0;
  }

 private:
  std::mutex mutex_;
  id owner_;
  long *references_;
};

}  // namespace platform::xpc
