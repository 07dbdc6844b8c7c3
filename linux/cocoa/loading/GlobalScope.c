// Puts the library that this is part of into the process's global symbol scope as soon as it is
// loaded.
//
// GNUstep loads its display backend with RTLD_GLOBAL, and with it its own libraries. These carry
// some symbols that the layer replaces (half a blocks runtime, NSAppKitVersionNumber), and a module
// that is loaded afterwards would find theirs. Whoever is in the scope first is found first.

#define _GNU_SOURCE
#include <dlfcn.h>

__attribute__((constructor)) static void JoinGlobalScope(void) {
  Dl_info self;
  if (dladdr((void *)&JoinGlobalScope, &self) != 0) {
    dlopen(self.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_GLOBAL);
  }
}
