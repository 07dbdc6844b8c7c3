//
// Turns debug logging on and off with values that scripts cannot pass: relay_bits VALUE…
//

#include <cstdlib>

#import "client/Pellmar.h"

int main(int argc, char *argv[]) {
  @autoreleasepool {
    for (int i = 1; i < argc; ++i) {
      PLEnableDebugLogging(static_cast<BOOL>(atoi(argv[i])));
    }
  }
  return 0;
}
