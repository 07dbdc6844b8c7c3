#import "LayoutState.h"

#include <memory>
#include <mutex>
#include <unordered_map>

#import "LayoutHooks.h"
#import "PlatformLayoutConstraint.h"

namespace platform::layout {
namespace {

struct Store {
  std::mutex lock;  // Views may be deallocated on any thread.
  std::unordered_map<const void *, std::unique_ptr<LayoutState>> states;
};

Store &store() {
  static Store *const instance = new Store;  // Views outlive the static destructors.
  return *instance;
}

}  // namespace

LayoutState::LayoutState(NSView *of) : view(of), constraints([[NSMutableArray alloc] init]) {}

LayoutState::~LayoutState() {
  for (PlatformLayoutConstraint *constraint in constraints) {
    [constraint setHolder:nil];
  }
  [constraints release];
}

bool anyState() {
  std::lock_guard<std::mutex> guard(store().lock);
  return !store().states.empty();
}

LayoutState *existingState(NSView *view) {
  std::lock_guard<std::mutex> guard(store().lock);
  const auto found = store().states.find(view);
  return found == store().states.end() ? nullptr : found->second.get();
}

LayoutState &stateOf(NSView *view) {
  if (LayoutState *state = existingState(view)) {
    return *state;
  }
  installHooks();
  auto made = std::make_unique<LayoutState>(view);
  LayoutState &state = *made;
  std::lock_guard<std::mutex> guard(store().lock);
  store().states.emplace(view, std::move(made));
  return state;
}

void forgetState(NSView *view) {
  std::unique_ptr<LayoutState> state;
  {
    std::lock_guard<std::mutex> guard(store().lock);
    const auto found = store().states.find(view);
    if (found == store().states.end()) {
      return;
    }
    state = std::move(found->second);
    store().states.erase(found);
  }
  // Outside the lock: letting constraints go comes back here for the views that they mention.
  for (PlatformLayoutConstraint *constraint : state->mentions) {
    [constraint forgetItem:view];
  }
}

}  // namespace platform::layout
