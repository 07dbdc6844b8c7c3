#import "ProtocolHolder.h"

@implementation __ObjC_Protocol_Holder_Ugly_Hack
@end
