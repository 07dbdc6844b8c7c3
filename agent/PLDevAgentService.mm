#import "agent/PLDevAgentService.h"

#include <unistd.h>

#import "agent/PLDevAgentJournal.h"

/// What a reply of the wrong class carries in place of every object.
static id PLWrongObject(void) { return @[ @"not", @"what", @"was", @"agreed" ]; }

static id PLJournalArgument(id argument) { return argument ?: NSNull.null; }

@implementation PLDevAgentService

- (instancetype)initWithOptions:(const PLDevAgentOptions &)options
                         memory:(PLDevAgentMemory &)memory
                        journal:(PLDevAgentJournal *)journal {
  self = [super init];
  if (self) {
    _options = new PLDevAgentOptions(options);
    _memory = &memory;
    _journal = [journal retain];
  }
  return self;
}

- (void)dealloc {
  delete _options;
  [_journal release];
  [super dealloc];
}

- (BOOL)listener:(NSXPCListener *)listener shouldAcceptNewConnection:(NSXPCConnection *)connection {
  connection.exportedInterface =
      [NSXPCInterface interfaceWithProtocol:@protocol(AFXProvisioningService)];
  connection.exportedObject = self;
  [connection resume];
  return YES;
}

/// Records the request and sends the reply in the way that the options want it for `selector`.
- (void)serve:(SEL)selector
    arguments:(NSArray *)arguments
        reply:(void (^)(const PLDevAgentFault &fault))reply {
  [self send:reply fault:[self receive:selector arguments:arguments]];
}

/// Records the request, and does not return if the options want that for `selector`.
- (PLDevAgentFault)receive:(SEL)selector arguments:(NSArray *)arguments {
  [_journal recordRequest:selector arguments:arguments];

  const auto found = _options->faults.find(NSStringFromSelector(selector).UTF8String);
  const PLDevAgentFault fault = found == _options->faults.end() ? PLDevAgentFault() : found->second;
  if (fault.dies) {
    _exit(EXIT_FAILURE);
  }
  while (fault.hangs) {
    pause();
  }
  return fault;
}

/// Sends the reply, or does with it what `fault` wants.
- (void)send:(void (^)(const PLDevAgentFault &fault))reply fault:(const PLDevAgentFault &)wanted {
  const PLDevAgentFault fault = wanted;
  if (fault.dropsReply) {
    return;
  }
  void (^send)(void) = ^{
    reply(fault);
    if (fault.repliesTwice) {
      reply(fault);
    }
  };
  if (_options->replyDelayMilliseconds > 0) {
    dispatch_after(
        dispatch_time(DISPATCH_TIME_NOW, _options->replyDelayMilliseconds * (int64_t)NSEC_PER_MSEC),
        dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0), send);
  } else {
    send();
  }
}

- (BOOL)shouldAsk {
  switch (_options->asking) {
    case PLDevAgentAsking::kNever:
      return NO;
    case PLDevAgentAsking::kAlways:
      return YES;
    case PLDevAgentAsking::kUntilAnswered:
      return !_memory->hasAnswer();
  }
}

/// The error that `fault` wants in a reply, or nil.
- (NSError *)errorOfFault:(const PLDevAgentFault &)fault {
  if (!fault.error) {
    return nil;
  }
  return [NSError errorWithDomain:@(fault.error->domain.c_str())
                             code:fault.error->code
                         userInfo:@{NSLocalizedDescriptionKey : @(fault.error->text.c_str())}];
}

#pragma mark - AFXProvisioningService

- (void)checkConnectionWithCallback:(void (^)(BOOL))callback {
  [self serve:_cmd
      arguments:@[]
          reply:^(const PLDevAgentFault &) {
            callback(YES);
          }];
}

- (void)reportUsageEvent:(NSString *)event eventInfo:(NSDictionary *)eventInfo {
  [self serve:_cmd
      arguments:@[ PLJournalArgument(event), PLJournalArgument(eventInfo) ]
          reply:^(const PLDevAgentFault &){
          }];
}

- (void)fetchAskingPermissionStatus:(void (^)(BOOL, NSString *))callback {
  [self serve:_cmd
      arguments:@[]
          reply:^(const PLDevAgentFault &fault) {
            NSString *email = self->_options->email ? @(self->_options->email->c_str()) : nil;
            callback([self shouldAsk], fault.repliesWrongType ? PLWrongObject() : email);
          }];
}

- (void)updateAllowedCustomerEmail:(NSString *)email callback:(void (^)(BOOL))callback {
  const PLDevAgentFault fault = [self receive:_cmd arguments:@[ PLJournalArgument(email) ]];
  // Before the reply: whoever has that is not asked again.
  if (const auto problem = _memory->recordAnswer()) {
    fprintf(stderr, "pellmar-dev-agent: %s\n", problem->c_str());
  }
  [self
       send:^(const PLDevAgentFault &) {
         callback(YES);
       }
      fault:fault];
}

- (void)showReleaseNotesForAppWithCallback:(void (^)(NSError *))callback {
  [self serve:_cmd
      arguments:@[]
          reply:^(const PLDevAgentFault &fault) {
            callback(fault.repliesWrongType ? PLWrongObject() : [self errorOfFault:fault]);
          }];
}

- (void)xpcAPIVersionWithCallback:(void (^)(NSString *, NSError *))callback {
  [self serve:_cmd
      arguments:@[]
          reply:^(const PLDevAgentFault &fault) {
            [self reply:self->_options->apiVersion fault:fault to:callback];
          }];
}

- (void)provideAuthCodeWithClientID:(NSString *)clientID
                              scope:(NSArray<NSString *> *)scope
                           callback:(void (^)(NSString *, NSError *))callback {
  [self serve:_cmd
      arguments:@[ PLJournalArgument(clientID), PLJournalArgument(scope) ]
          reply:^(const PLDevAgentFault &fault) {
            [self reply:self->_options->authorizationCode fault:fault to:callback];
          }];
}

/// Replies with `text`, or with what `fault` puts in its place.
- (void)reply:(const std::string &)text
        fault:(const PLDevAgentFault &)fault
           to:(void (^)(NSString *, NSError *))callback {
  NSError *error = [self errorOfFault:fault];
  if (fault.repliesWrongType) {
    callback(PLWrongObject(), nil);
  } else {
    callback(error ? nil : @(text.c_str()), error);
  }
}

@end
