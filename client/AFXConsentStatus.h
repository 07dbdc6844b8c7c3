//
// The consent status, and how it crosses the library's boundary. Plain C++: no platform object.
//

#ifndef AFX_CONSENT_STATUS_H
#define AFX_CONSENT_STATUS_H

#include <cstdint>

#include "ui/AFXConsentChoice.h"

/// The customer is to be asked.
inline constexpr AFXConsentChoice AFXConsentStatusToBeAsked = 0;
/// An answer is on record.
inline constexpr AFXConsentChoice AFXConsentStatusAnswered = 1;
/// The customer is to be asked, and has postponed the answer before.
inline constexpr AFXConsentChoice AFXConsentStatusPostponed = 2;
/// The agent gave no answer in time. The platform's not-found marker.
inline constexpr AFXConsentChoice AFXConsentStatusUnknown = INT64_MAX;

/// What a caller outside the library sees of `status`: 1 and 2 as they are, 0 for everything else.
constexpr std::int64_t __AFXPublicAnswer(AFXConsentChoice status) {
  return status == AFXConsentStatusAnswered || status == AFXConsentStatusPostponed
             ? static_cast<std::int64_t>(status)
             : 0;
}

/// The status that an agent's reply means. Whether the customer has postponed the answer before is
/// only looked up when the agent wants the customer asked.
inline AFXConsentChoice __AFXConsentStatusForReply(bool shouldAsk, bool (*hasPostponed)()) {
  if (!shouldAsk) {
    return AFXConsentStatusAnswered;
  }
  return hasPostponed() ? AFXConsentStatusPostponed : AFXConsentStatusToBeAsked;
}

/// What the caller is told of the window's answer: only whether the customer answered or postponed,
/// never whether the customer allowed or declined.
constexpr AFXConsentChoice __AFXConsentStatusForWindowAnswer(AFXConsentChoice answer) {
  return answer == AFXConsentChoiceAskLater ? AFXConsentStatusPostponed : AFXConsentStatusAnswered;
}

#endif
