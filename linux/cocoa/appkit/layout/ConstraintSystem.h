#ifndef PLATFORM_CONSTRAINT_SYSTEM_H
#define PLATFORM_CONSTRAINT_SYSTEM_H

#include <vector>

#include "layout/Relation.h"

namespace platform::layout {

/// Linear constraints with priorities, solved one priority after the other (lexicographic linear
/// programming).
///
/// The required ones hold, whatever the others say. Each lower priority then makes the sum of its
/// own violations as small as the higher ones allow. The same calls in the same order give the same
/// values. Not for use by two threads at once.
class ConstraintSystem {
 public:
  using Variable = int;

  struct Term {
    Variable variable;
    double coefficient;
  };

  /// `terms` stand in `relation` to `constant`.
  struct Constraint {
    std::vector<Term> terms;
    Relation relation = Relation::kEqual;
    double constant = 0;
    double priority = sRequired;  ///< Any number; sRequired and above must hold.
    double weight = 1;            ///< Cost of a violation of 1, among those of the same priority.
    bool rigid = false;           ///< In a conflict of required ones another is broken.
  };

  /// An irreducible infeasible subset of the required constraints, and which of them was broken.
  /// Numbers as addConstraint() returned them, ascending.
  struct Conflict {
    int broken;
    std::vector<int> members;
  };

  struct Solution {
    std::vector<double> values;  ///< By variable.
    std::vector<Conflict> conflicts;
  };

  static constexpr double sRequired = 1000;

  /// Adds a variable that stays between two bounds (HUGE_VAL and its negative: none).
  Variable addVariable(double lower, double upper);

  /// Adds a constraint; returns its number, counted from 0.
  int addConstraint(Constraint constraint);

  Solution solve() const;

 private:
  struct Bounds {
    double lower;
    double upper;
  };

  std::vector<Bounds> variables_;
  std::vector<Constraint> constraints_;
};

}  // namespace platform::layout

#endif
