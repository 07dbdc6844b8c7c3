#import "ThreadEntry.h"

#import <Foundation/NSThread.h>

void PlatformEnterThread(void) { GSRegisterCurrentThread(); }

void PlatformLeaveThread(void) { GSUnregisterCurrentThread(); }
