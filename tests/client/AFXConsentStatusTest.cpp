#include "client/AFXConsentStatus.h"

#include <gtest/gtest.h>

#include <cstdint>

TEST(PublicAnswer, PassesOneAndTwo) {
  EXPECT_EQ(__AFXPublicAnswer(1), 1);
  EXPECT_EQ(__AFXPublicAnswer(2), 2);
}

TEST(PublicAnswer, IsZeroForEverythingElse) {
  for (const AFXConsentChoice status :
       {AFXConsentChoice{0}, AFXConsentChoice{3}, AFXConsentStatusUnknown,
        AFXConsentStatusUnknown - 1, static_cast<AFXConsentChoice>(INT64_MAX) + 1,
        static_cast<AFXConsentChoice>(UINT64_MAX), (AFXConsentChoice{1} << 32) + 1}) {
    EXPECT_EQ(__AFXPublicAnswer(status), 0) << status;
  }
}

TEST(ConsentStatusUnknown, IsTheLargestSignedNumber) {
  EXPECT_EQ(AFXConsentStatusUnknown, 0x7FFFFFFFFFFFFFFFu);
}

TEST(ConsentStatusForReply, IsAnsweredWhenTheAgentDoesNotWantTheCustomerAsked) {
  static bool sLookedUp;
  sLookedUp = false;
  EXPECT_EQ(__AFXConsentStatusForReply(false, [] { return sLookedUp = true; }),
            AFXConsentStatusAnswered);
  EXPECT_FALSE(sLookedUp);
}

TEST(ConsentStatusForReply, TellsAPostponedQuestionFromANewOne) {
  EXPECT_EQ(__AFXConsentStatusForReply(true, [] { return false; }), AFXConsentStatusToBeAsked);
  EXPECT_EQ(__AFXConsentStatusForReply(true, [] { return true; }), AFXConsentStatusPostponed);
}

TEST(ConsentStatusForWindowAnswer, DoesNotTellAnAllowFromADecline) {
  EXPECT_EQ(__AFXConsentStatusForWindowAnswer(AFXConsentChoiceAllowed), AFXConsentStatusAnswered);
  EXPECT_EQ(__AFXConsentStatusForWindowAnswer(AFXConsentChoiceDeclined), AFXConsentStatusAnswered);
  EXPECT_EQ(__AFXConsentStatusForWindowAnswer(AFXConsentChoiceAskLater), AFXConsentStatusPostponed);
}
