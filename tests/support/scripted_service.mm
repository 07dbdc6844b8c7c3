#include "scripted_service.h"

#include <gtest/gtest.h>

std::vector<std::string> sCalls;

static ScriptedAccess::Access sAccess;

std::vector<std::string> TakenCalls() {
  std::vector<std::string> calls;
  calls.swap(sCalls);
  return calls;
}

std::string TextOf(NSString *string) { return string ? string.UTF8String : "(nil)"; }

@implementation ScriptedService

- (void)dealloc {
  [_statusReply release];
  [_updateReply release];
  [_codeReply release];
  [_notesReply release];
  [_onFetch release];
  [super dealloc];
}

- (void)fetchAskingPermissionStatus:(void (^)(BOOL, NSString *))callback {
  sCalls.push_back("fetch");
  [_statusReply release];
  _statusReply = [callback copy];
  if (_onFetch) {
    _onFetch(_statusReply);
  }
}

- (void)updateAllowedCustomerEmail:(NSString *)email callback:(void (^)(BOOL))callback {
  sCalls.push_back("update " + TextOf(email));
  [_updateReply release];
  _updateReply = [callback copy];
}

- (void)provideAuthCodeWithClientID:(NSString *)clientID
                              scope:(NSArray *)scope
                           callback:(void (^)(NSString *, NSError *))callback {
  sCalls.push_back("code for " + TextOf([clientID description]) + " " +
                   TextOf([scope description]));
  [_codeReply release];
  _codeReply = [callback copy];
}

- (void)checkConnectionWithCallback:(void (^)(BOOL))callback {
  FAIL() << "this is the accessor's affair";
}

- (void)reportUsageEvent:(NSString *)event eventInfo:(NSDictionary *)eventInfo {
  FAIL() << "events have a way of their own";
}

- (void)showReleaseNotesForAppWithCallback:(void (^)(NSError *))callback {
  sCalls.push_back("release notes");
  [_notesReply release];
  _notesReply = [callback copy];
}

- (void)xpcAPIVersionWithCallback:(void (^)(NSString *, NSError *))callback {
  FAIL() << "nobody asks for the version";
}

@end

static void AccessScripted(id, SEL, ServiceHandler handler, ServiceErrorHandler errorHandler) {
  sCalls.push_back("access");
  sAccess(handler, errorHandler);
}

ScriptedAccess::ScriptedAccess()
    : swap_(class_getInstanceMethod(AFXServiceAccessor.class, @selector(accessService:
                                                                         errorHandler:)),
            AccessScripted) {}

ScriptedAccess::~ScriptedAccess() { sAccess = nullptr; }

void ScriptedAccess::operator=(Access access) { sAccess = std::move(access); }
