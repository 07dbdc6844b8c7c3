#include "DispatchTrap.h"

#include <stdio.h>
#include <stdlib.h>

void DispatchTrap(const char *misuse) {
  fprintf(stderr, "BUG IN CLIENT OF LIBDISPATCH: %s\n", misuse);
  abort();
}
