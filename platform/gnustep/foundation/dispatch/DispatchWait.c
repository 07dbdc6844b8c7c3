#include "DispatchWait.h"

#include <stdatomic.h>
#include <stddef.h>

static void (*_Atomic sBeforeWait)(void);

void DispatchSetBeforeWait(void (*function)(void)) { sBeforeWait = function; }

void DispatchBeforeWait(void) {
  void (*function)(void) = sBeforeWait;
  if (function) function();
}
