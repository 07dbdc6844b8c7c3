// QuartzCore as far as layer-backed views need it.

#ifndef PLATFORM_QUARTZCORE_H
#define PLATFORM_QUARTZCORE_H

#include <QuartzCore/CALayer.h>

#endif
