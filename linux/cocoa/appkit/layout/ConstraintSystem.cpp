// GNUstep 0.32 brings a solver of its own, 0.29 none; Clp serves both and takes inequalities.

#include "layout/ConstraintSystem.h"

#include <algorithm>
#include <cmath>
#include <coin/ClpSimplex.hpp>
#include <coin/CoinError.hpp>
#include <functional>
#include <map>
#include <utility>

namespace platform::layout {
namespace {

/// What counts as zero: Clp's own tolerance, far below what a frame can show.
constexpr double sTolerance = 1e-7;

/// A window's program has a few dozen rows; a pivot count beyond this is a cycle, and the best so
/// far is kept.
constexpr int sMaximumPivots = 20000;

using Constraint = ConstraintSystem::Constraint;

double Bound(double value) { return std::clamp(value, -COIN_DBL_MAX, COIN_DBL_MAX); }

void AddRow(ClpSimplex &model, const Constraint &constraint) {
  std::vector<int> columns;
  std::vector<double> elements;
  for (const auto &term : constraint.terms) {
    columns.push_back(term.variable);
    elements.push_back(term.coefficient);
  }
  const double constant = constraint.constant;
  model.addRow(static_cast<int>(columns.size()), columns.data(), elements.data(),
               constraint.relation == Relation::kLessOrEqual ? -COIN_DBL_MAX : constant,
               constraint.relation == Relation::kGreaterOrEqual ? COIN_DBL_MAX : constant);
}

/// Lets the last row be missed by what the new column takes. Returns the column.
int AddSlack(ClpSimplex &model, double coefficient) {
  const int row = model.numberRows() - 1;
  model.addColumn(1, &row, &coefficient, 0, COIN_DBL_MAX);
  return model.numberColumns() - 1;
}

/// Slack columns of one priority, with their costs.
using Level = std::vector<std::pair<int, double>>;

/// Restricts the program to the optimal face of the present objective: all that has a reduced cost
/// stays where it is.
void KeepOptimum(ClpSimplex &model) {
  for (int column = 0; column < model.numberColumns(); ++column) {
    if (std::fabs(model.dualColumnSolution()[column]) > sTolerance) {
      const double value = model.primalColumnSolution()[column];
      model.setColumnBounds(column, value, value);
    }
  }
  for (int row = 0; row < model.numberRows(); ++row) {
    if (std::fabs(model.dualRowSolution()[row]) > sTolerance) {
      const double value = model.primalRowSolution()[row];
      model.setRowBounds(row, value, value);
    }
  }
}

bool IsRequired(const Constraint &constraint) {
  return constraint.priority >= ConstraintSystem::sRequired;
}

}  // namespace

ConstraintSystem::Variable ConstraintSystem::addVariable(double lower, double upper) {
  variables_.push_back({lower, upper});
  return static_cast<Variable>(variables_.size()) - 1;
}

int ConstraintSystem::addConstraint(Constraint constraint) {
  // Clp takes every element of its matrix once.
  std::map<Variable, double> sums;
  for (const Term &term : constraint.terms) {
    sums[term.variable] += term.coefficient;
  }
  constraint.terms.clear();
  for (const auto &[variable, coefficient] : sums) {
    if (coefficient != 0) {
      constraint.terms.push_back({variable, coefficient});
    }
  }
  constraints_.push_back(std::move(constraint));
  return static_cast<int>(constraints_.size()) - 1;
}

ConstraintSystem::Solution ConstraintSystem::solve() const {
  Solution solution;
  solution.values.assign(variables_.size(), 0);
  for (size_t i = 0; i < variables_.size(); ++i) {
    const Bounds &bounds = variables_[i];
    solution.values[i] = std::isfinite(bounds.lower)   ? bounds.lower
                         : std::isfinite(bounds.upper) ? std::min(bounds.upper, 0.0)
                                                       : 0;
  }

  if (constraints_.empty()) {
    return solution;  // Clp has no matrix then, and does not look.
  }

  std::vector<int> required;
  for (size_t i = 0; i < constraints_.size(); ++i) {
    if (IsRequired(constraints_[i])) {
      required.push_back(static_cast<int>(i));
    }
  }

  const auto load = [&](ClpSimplex &model, const std::vector<int> &numbers) {
    model.setLogLevel(0);
    model.setPerturbation(100);  // Off: an optimum must not depend on random shifts.
    model.scaling(0);            // All coefficients are near 1.
    model.setMaximumIterations(sMaximumPivots);
    for (const Bounds &bounds : variables_) {
      model.addColumn(0, nullptr, nullptr, Bound(bounds.lower), Bound(bounds.upper));
    }
    for (int number : numbers) {
      AddRow(model, constraints_[number]);
    }
  };
  // Clp's dual takes some systems of free variables for infeasible.
  const auto feasible = [](ClpSimplex &model) {
    model.primal();
    return !model.isProvenPrimalInfeasible();
  };

  ClpSimplex model;
  std::map<double, Level, std::greater<double>> levels;
  // The other constraints are elastic (they have slack columns), so the program is feasible if and
  // only if the required ones are.
  const auto start = [&] {
    model = ClpSimplex();
    load(model, required);
    levels.clear();
    for (const Constraint &constraint : constraints_) {
      if (IsRequired(constraint)) {
        continue;
      }
      AddRow(model, constraint);
      Level &level = levels[constraint.priority];
      if (constraint.relation != Relation::kLessOrEqual) {
        level.emplace_back(AddSlack(model, 1), constraint.weight);
      }
      if (constraint.relation != Relation::kGreaterOrEqual) {
        level.emplace_back(AddSlack(model, -1), constraint.weight);
      }
    }
    return feasible(model);
  };

  try {
    while (!start()) {
      // A deletion filter finds an irreducible infeasible subset.
      std::vector<int> members = required;
      for (int number : required) {
        std::vector<int> rest = members;
        rest.erase(std::find(rest.begin(), rest.end(), number));
        ClpSimplex restricted;
        load(restricted, rest);
        if (!feasible(restricted)) {
          members = std::move(rest);
        }
      }
      if (members.empty()) {
        break;  // The bounds of a variable contradict each other: nothing to give up.
      }
      int broken = members.back();
      for (int number : members) {
        if (!constraints_[number].rigid) {
          broken = number;
        }
      }
      required.erase(std::find(required.begin(), required.end(), broken));
      solution.conflicts.push_back({broken, std::move(members)});
    }

    const auto take = [&] {
      const double *values = model.primalColumnSolution();
      std::copy(values, values + variables_.size(), solution.values.begin());
    };
    if (model.isProvenOptimal()) {
      take();
    }
    for (const auto &[priority, level] : levels) {
      for (const auto &[column, cost] : level) {
        model.setObjectiveCoefficient(column, cost);
      }
      model.primal();
      if (!model.isProvenOptimal()) {
        break;
      }
      take();
      KeepOptimum(model);
      for (const auto &[column, cost] : level) {
        model.setObjectiveCoefficient(column, 0);
      }
    }
  } catch (const CoinError &) {
    // Clp refuses some inputs (out of memory among them); what was found until then stands.
  }
  return solution;
}

}  // namespace platform::layout
