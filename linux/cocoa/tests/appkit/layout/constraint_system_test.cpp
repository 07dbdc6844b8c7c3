#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "layout/ConstraintSystem.h"

namespace {

using platform::layout::ConstraintSystem;
using platform::layout::Relation;

constexpr double kNear = 1e-4;

TEST(ConstraintSystem, SolvesRequiredEquations) {
  ConstraintSystem system;
  const int left = system.addVariable(-HUGE_VAL, HUGE_VAL);
  const int width = system.addVariable(0, HUGE_VAL);
  system.addConstraint({{{width, 1}}, Relation::kEqual, 232});
  system.addConstraint({{{left, 1}, {width, 0.5}}, Relation::kEqual, 278});
  const auto solution = system.solve();
  EXPECT_TRUE(solution.conflicts.empty());
  EXPECT_NEAR(solution.values[left], 162, kNear);
  EXPECT_NEAR(solution.values[width], 232, kNear);
}

TEST(ConstraintSystem, AHigherPriorityBeatsAnyNumberOfLowerOnes) {
  ConstraintSystem system;
  const int x = system.addVariable(0, HUGE_VAL);
  system.addConstraint({{{x, 1}}, Relation::kEqual, 10, 251});
  for (int i = 0; i < 50; ++i) {
    system.addConstraint({{{x, 1}}, Relation::kEqual, 1000, 250});
  }
  EXPECT_NEAR(system.solve().values[x], 10, kNear);
}

TEST(ConstraintSystem, OnePriorityMakesTheSumOfItsViolationsSmallest) {
  ConstraintSystem system;
  const int x = system.addVariable(0, HUGE_VAL);
  system.addConstraint({{{x, 1}}, Relation::kEqual, 10, 500});
  system.addConstraint({{{x, 1}}, Relation::kEqual, 20, 500});
  system.addConstraint({{{x, 1}}, Relation::kEqual, 90, 500});
  EXPECT_NEAR(system.solve().values[x], 20, kNear);
}

TEST(ConstraintSystem, WeightsCountAmongEquals) {
  ConstraintSystem system;
  const int x = system.addVariable(0, HUGE_VAL);
  system.addConstraint({{{x, 1}}, Relation::kEqual, 10, 500, 3});
  system.addConstraint({{{x, 1}}, Relation::kEqual, 20, 500, 1});
  system.addConstraint({{{x, 1}}, Relation::kEqual, 90, 500, 1});
  EXPECT_NEAR(system.solve().values[x], 10, kNear);
}

TEST(ConstraintSystem, LowerPrioritiesDecideWhatHigherOnesLeaveOpen) {
  ConstraintSystem system;
  const int x = system.addVariable(0, HUGE_VAL);
  system.addConstraint({{{x, 1}}, Relation::kGreaterOrEqual, 110});
  system.addConstraint({{{x, 1}}, Relation::kGreaterOrEqual, 96, 750});
  system.addConstraint({{{x, 1}}, Relation::kLessOrEqual, 96, 250});
  EXPECT_NEAR(system.solve().values[x], 110, kNear);
}

TEST(ConstraintSystem, HoldsInequalitiesOfBothDirections) {
  ConstraintSystem system;
  const int x = system.addVariable(-HUGE_VAL, HUGE_VAL);
  const int y = system.addVariable(-HUGE_VAL, HUGE_VAL);
  system.addConstraint({{{y, 1}, {x, -1}}, Relation::kGreaterOrEqual, 8});
  system.addConstraint({{{y, 1}}, Relation::kLessOrEqual, -5});
  system.addConstraint({{{x, 1}}, Relation::kEqual, 0, 100});
  system.addConstraint({{{y, 1}}, Relation::kEqual, 0, 50});
  const auto values = system.solve().values;
  EXPECT_NEAR(values[y], -5, kNear);
  EXPECT_NEAR(values[x], -13, kNear);
}

TEST(ConstraintSystem, AddsUpTermsOfOneVariable) {
  ConstraintSystem system;
  const int x = system.addVariable(-HUGE_VAL, HUGE_VAL);
  system.addConstraint({{{x, 1}, {x, 1}, {x, -0.5}}, Relation::kEqual, 30});
  EXPECT_NEAR(system.solve().values[x], 20, kNear);
}

TEST(ConstraintSystem, RepeatedConstraintsDoNoHarm) {
  ConstraintSystem system;
  const int x = system.addVariable(0, HUGE_VAL);
  for (int i = 0; i < 5; ++i) {
    system.addConstraint({{{x, 1}}, Relation::kEqual, 8});
  }
  const auto solution = system.solve();
  EXPECT_TRUE(solution.conflicts.empty());
  EXPECT_NEAR(solution.values[x], 8, kNear);
}

TEST(ConstraintSystem, GivesUpTheLastOfContradictingRequiredOnesAndNamesThem) {
  ConstraintSystem system;
  const int x = system.addVariable(0, HUGE_VAL);
  const int y = system.addVariable(0, HUGE_VAL);
  const int first = system.addConstraint({{{x, 1}}, Relation::kEqual, 10});
  const int other = system.addConstraint({{{y, 1}}, Relation::kEqual, 3});
  const int second = system.addConstraint({{{x, 1}}, Relation::kGreaterOrEqual, 20});
  const auto solution = system.solve();
  ASSERT_EQ(solution.conflicts.size(), 1u);
  EXPECT_EQ(solution.conflicts[0].broken, second);
  EXPECT_EQ(solution.conflicts[0].members, (std::vector<int>{first, second}));
  EXPECT_NEAR(solution.values[x], 10, kNear);
  EXPECT_NEAR(solution.values[y], 3, kNear);
  EXPECT_EQ(other, 1);
}

TEST(ConstraintSystem, GivesUpSeveralWhereSeveralContradict) {
  ConstraintSystem system;
  const int x = system.addVariable(0, HUGE_VAL);
  for (double value : {1.0, 2.0, 3.0}) {
    system.addConstraint({{{x, 1}}, Relation::kEqual, value});
  }
  const auto solution = system.solve();
  EXPECT_EQ(solution.conflicts.size(), 2u);
  EXPECT_EQ(solution.conflicts[0].members.size(), 2u);
}

TEST(ConstraintSystem, KeepsRigidOnesInAConflict) {
  ConstraintSystem system;
  const int x = system.addVariable(0, HUGE_VAL);
  const int loose = system.addConstraint({{{x, 1}}, Relation::kEqual, 10});
  system.addConstraint({{{x, 1}}, Relation::kEqual, 20, ConstraintSystem::sRequired, 1, true});
  const auto solution = system.solve();
  ASSERT_EQ(solution.conflicts.size(), 1u);
  EXPECT_EQ(solution.conflicts[0].broken, loose);
  EXPECT_NEAR(solution.values[x], 20, kNear);
}

TEST(ConstraintSystem, BoundsAreNeverGivenUp) {
  ConstraintSystem system;
  const int x = system.addVariable(0, HUGE_VAL);
  const int broken = system.addConstraint({{{x, 1}}, Relation::kEqual, -4});
  const auto solution = system.solve();
  ASSERT_EQ(solution.conflicts.size(), 1u);
  EXPECT_EQ(solution.conflicts[0].broken, broken);
  EXPECT_GE(solution.values[x], -kNear);
}

TEST(ConstraintSystem, AContradictionWithoutVariablesIsAConflictToo) {
  ConstraintSystem system;
  const int x = system.addVariable(4, 4);
  const int broken = system.addConstraint({{{x, 1}, {x, -1}}, Relation::kEqual, 5});
  const auto solution = system.solve();
  ASSERT_EQ(solution.conflicts.size(), 1u);
  EXPECT_EQ(solution.conflicts[0].broken, broken);
  EXPECT_NEAR(solution.values[x], 4, kNear);
}

TEST(ConstraintSystem, SolvesNothing) {
  ConstraintSystem system;
  EXPECT_TRUE(system.solve().values.empty());
  const int x = system.addVariable(-HUGE_VAL, HUGE_VAL);
  EXPECT_EQ(system.solve().values[x], 0);
}

/// A row of boxes that share a fixed width at one priority: many equal optima.
ConstraintSystem SharedRow() {
  ConstraintSystem system;
  std::vector<ConstraintSystem::Term> all;
  for (int i = 0; i < 12; ++i) {
    const int width = system.addVariable(0, HUGE_VAL);
    all.push_back({width, 1});
    system.addConstraint({{{width, 1}}, Relation::kLessOrEqual, 20, 250});
    system.addConstraint({{{width, 1}}, Relation::kGreaterOrEqual, 20, 750});
  }
  system.addConstraint({all, Relation::kEqual, 500});
  return system;
}

TEST(ConstraintSystem, GivesTheSameValuesEveryTime) {
  const auto first = SharedRow().solve().values;
  double sum = 0;
  for (double value : first) {
    EXPECT_GE(value, 20 - kNear);
    sum += value;
  }
  EXPECT_NEAR(sum, 500, kNear);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(SharedRow().solve().values, first);
  }
}

TEST(ConstraintSystem, FindsASolutionWhereverThereIsOne) {
  std::mt19937 random(1);
  const auto pick = [&](int count) { return static_cast<int>(random() % count); };
  for (int round = 0; round < 300; ++round) {
    ConstraintSystem system;
    std::vector<double> point;
    for (int i = 0; i < 12; ++i) {
      const bool free = pick(2) == 0;
      point.push_back(free ? pick(1000) - 500 : pick(500));
      system.addVariable(free ? -HUGE_VAL : 0, HUGE_VAL);
    }
    std::vector<ConstraintSystem::Constraint> required;
    for (int i = 0; i < 30; ++i) {
      ConstraintSystem::Constraint constraint;
      double sum = 0;
      for (int k = 0; k < 4; ++k) {
        const int variable = pick(12);
        const double coefficient = pick(2) == 0 ? 1 : pick(2) == 0 ? -1 : 0.5;
        constraint.terms.push_back({variable, coefficient});
        sum += coefficient * point[variable];
      }
      constraint.relation = static_cast<Relation>(pick(3) - 1);
      constraint.constant = sum - static_cast<int>(constraint.relation) * pick(20);
      if (pick(3) == 0) {
        constraint.priority = 250 + pick(3);
        constraint.constant += pick(200) - 100;
      } else {
        required.push_back(constraint);
      }
      system.addConstraint(constraint);
    }
    const auto solution = system.solve();
    ASSERT_TRUE(solution.conflicts.empty()) << "round " << round;
    for (const auto &constraint : required) {
      double sum = 0;
      for (const auto &term : constraint.terms) {
        sum += term.coefficient * solution.values[term.variable];
      }
      if (constraint.relation != Relation::kLessOrEqual) {
        ASSERT_GE(sum, constraint.constant - kNear) << "round " << round;
      }
      if (constraint.relation != Relation::kGreaterOrEqual) {
        ASSERT_LE(sum, constraint.constant + kNear) << "round " << round;
      }
    }
  }
}

TEST(ConstraintSystem, PrintsNothing) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  SharedRow().solve();
  ConstraintSystem contradiction;
  const int x = contradiction.addVariable(0, 1);
  contradiction.addConstraint({{{x, 1}}, Relation::kEqual, 2});
  contradiction.solve();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
