#import "ThreadEntry.h"

#import <Foundation/NSThread.h>

void PlatformEnterThread(void) { GSRegisterCurrentThread(); }
