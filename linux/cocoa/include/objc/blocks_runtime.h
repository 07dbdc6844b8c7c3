// GNUstep's headers ask for this name wherever the compiler has blocks; no package carries it.
#include <Block.h>
