#ifndef AFX_CUSTOMER_PERSONALS_H
#define AFX_CUSTOMER_PERSONALS_H

#import <Foundation/Foundation.h>
#include <pthread.h>

#include <atomic>

#include "client/AFXConsentStatus.h"

/// What the process knows of the customer: the last consent status and the e-mail address.
///
/// A reply that comes after its two seconds writes while other threads read. The atomic and the
/// lock order nothing and cannot be observed; they are there because this is somebody else's
/// process, whose memory must stay whole. An address that was read lives until the reader's pool is
/// drained. Constant-initialised and never destroyed.
class AFXCustomerPersonals {
 public:
  AFXConsentChoice status() const { return status_.load(); }
  void setStatus(AFXConsentChoice status) { status_.store(status); }

  /// The address that the agent reported, or what the customer's answer made of it.
  NSString *email() const {
    pthread_mutex_lock(&mutex_);
    NSString *email = [email_ retain];
    pthread_mutex_unlock(&mutex_);
    return [email autorelease];
  }
  void setEmail(NSString *email) {
    pthread_mutex_lock(&mutex_);
    [email_ release];
    email_ = [email copy];
    pthread_mutex_unlock(&mutex_);
  }

 private:
  std::atomic<AFXConsentChoice> status_{AFXConsentStatusUnknown};
  // std::mutex has a destructor in some libraries, and with it a static initialiser.
  mutable pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
  NSString *email_ = nil;
};

#endif
