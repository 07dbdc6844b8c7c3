// What the development agent says on a Mac. No interface of that system is in it.

#include <gtest/gtest.h>

#include "agent/PLServiceRegistration.h"

TEST(MacServiceRegistration, TakesLaunchdsOwnChild) {
  EXPECT_EQ(PLServiceRegistrationProblem(1), std::nullopt);
}

TEST(MacServiceRegistration, TellsEveryoneElseHowItIsStarted) {
  const auto problem = PLServiceRegistrationProblem(4711);
  ASSERT_TRUE(problem);
  EXPECT_NE(problem->find("scripts/agent"), std::string::npos) << *problem;
  EXPECT_EQ(problem->find('\n'), std::string::npos);
}
