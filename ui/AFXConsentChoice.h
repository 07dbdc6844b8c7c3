//
// The consent choice. Plain C++: no platform object.
//

#ifndef AFX_CONSENT_CHOICE_H
#define AFX_CONSENT_CHOICE_H

#include <cstdint>

/// The customer's answer as the consent window hands it back.
using AFXConsentChoice = std::uint64_t;

inline constexpr AFXConsentChoice AFXConsentChoiceDeclined = 0;
inline constexpr AFXConsentChoice AFXConsentChoiceAllowed = 1;
inline constexpr AFXConsentChoice AFXConsentChoiceAskLater = 2;

#endif
