#import <Foundation/NSObject.h>
#include <dispatch/dispatch.h>

#include "DispatchTrap.h"

void dispatch_retain(dispatch_object_t object) {
  if (!object) {
    DispatchTrap("dispatch_retain of NULL");
  }
  [object retain];
}

void dispatch_release(dispatch_object_t object) {
  if (!object) {
    DispatchTrap("dispatch_release of NULL");
  }
  [object release];
}
