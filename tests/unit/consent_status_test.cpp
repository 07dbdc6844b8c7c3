#include "client/AFXConsentStatus.h"

#include <gtest/gtest.h>

#include <cstdint>

TEST(PublicAnswer, PassesOneAndTwo) {
  EXPECT_EQ(AFXPublicAnswer(1), 1);
  EXPECT_EQ(AFXPublicAnswer(2), 2);
}

TEST(PublicAnswer, IsZeroForEverythingElse) {
  for (const AFXConsentChoice status :
       {AFXConsentChoice{0}, AFXConsentChoice{3}, AFXConsentStatusUnknown,
        AFXConsentStatusUnknown - 1, static_cast<AFXConsentChoice>(INT64_MAX) + 1,
        static_cast<AFXConsentChoice>(UINT64_MAX), (AFXConsentChoice{1} << 32) + 1}) {
    EXPECT_EQ(AFXPublicAnswer(status), 0) << status;
  }
}

TEST(ConsentStatusUnknown, IsTheLargestSignedNumber) {
  EXPECT_EQ(AFXConsentStatusUnknown, 0x7FFFFFFFFFFFFFFFu);
}

TEST(ConsentStatusForReply, IsAnsweredWhenTheAgentDoesNotWantTheCustomerAsked) {
  bool lookedUp = false;
  EXPECT_EQ(AFXConsentStatusForReply(false,
                                     [&lookedUp] {
                                       lookedUp = true;
                                       return true;
                                     }),
            AFXConsentStatusAnswered);
  EXPECT_FALSE(lookedUp);
}

TEST(ConsentStatusForReply, TellsAPostponedQuestionFromANewOne) {
  EXPECT_EQ(AFXConsentStatusForReply(true, [] { return false; }), AFXConsentStatusToBeAsked);
  EXPECT_EQ(AFXConsentStatusForReply(true, [] { return true; }), AFXConsentStatusPostponed);
}

TEST(ConsentStatusForWindowAnswer, DoesNotTellAnAllowFromADecline) {
  EXPECT_EQ(AFXConsentStatusForWindowAnswer(AFXConsentChoiceAllowed), AFXConsentStatusAnswered);
  EXPECT_EQ(AFXConsentStatusForWindowAnswer(AFXConsentChoiceDeclined), AFXConsentStatusAnswered);
  EXPECT_EQ(AFXConsentStatusForWindowAnswer(AFXConsentChoiceAskLater), AFXConsentStatusPostponed);
}
