// GNUstep makes every application a provider of services under its name: the second one of that
// name is told that the first is there, and every start and end locks the table of names that all
// of a user's programs share. This application has no services to provide.

#import <Foundation/Foundation.h>

@interface GSServicesManager : NSObject
@end

@interface GSServicesManager (PDMNoServices)
@end

@implementation GSServicesManager (PDMNoServices)

- (void)registerAsServiceProvider {
}

@end
