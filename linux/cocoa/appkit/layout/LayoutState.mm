#import "layout/LayoutState.h"

#import "layout/PlatformLayoutConstraint.h"
#import "runtime/AssociatedObjects.h"

using platform::layout::LayoutState;

@interface PlatformLayoutStateHolder : NSObject {
 @public
  LayoutState *_state;
}
@end

@implementation PlatformLayoutStateHolder

- (void)dealloc {
  delete _state;
  [super dealloc];
}

@end

namespace platform::layout {

static const char sStateKey = 0;

LayoutState::LayoutState(NSView *of) : view(of), constraints([[NSMutableArray alloc] init]) {}

LayoutState::~LayoutState() {
  for (PlatformLayoutConstraint *constraint : mentions) {
    [constraint forgetItem:view];
  }
  for (PlatformLayoutConstraint *constraint in constraints) {
    [constraint setHolder:nil];
  }
  [constraints release];
}

LayoutState *ExistingState(NSView *view) {
  PlatformLayoutStateHolder *holder = objc_getAssociatedObject(view, &sStateKey);
  return holder == nil ? nullptr : holder->_state;
}

LayoutState &StateOf(NSView *view) {
  if (LayoutState *state = ExistingState(view)) {
    return *state;
  }
  PlatformLayoutStateHolder *holder = [[PlatformLayoutStateHolder alloc] init];
  holder->_state = new LayoutState(view);
  objc_setAssociatedObject(view, &sStateKey, holder, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
  [holder release];
  return *holder->_state;
}

void ForgetState(NSView *view) {
  objc_setAssociatedObject(view, &sStateKey, nil, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
}

}  // namespace platform::layout
