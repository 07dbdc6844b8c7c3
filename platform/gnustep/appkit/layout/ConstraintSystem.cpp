// GNUstep 0.32 brings a solver of its own, 0.29 none; Clp serves both and takes inequalities.

#include "ConstraintSystem.h"

#include <algorithm>
#include <cmath>
#include <coin/ClpSimplex.hpp>
#include <coin/CoinError.hpp>
#include <coin/CoinPackedMatrix.hpp>
#include <functional>
#include <map>
#include <utility>

namespace platform::layout {
namespace {

/// What counts as nothing: Clp's own tolerance, far below what a frame can show.
constexpr double kTolerance = 1e-7;

/// Frames have a few dozen rows; a pivot count beyond this is a cycle, and the best so far is kept.
constexpr int kMaximumPivots = 20000;

using Constraint = ConstraintSystem::Constraint;

/// The variables whose value required equations decide one after the other, as most of a layout is.
struct Decided {
  std::vector<double> values;  ///< By variable; NaN: not decided.

  bool isDecided(ConstraintSystem::Variable variable) const {
    return !std::isnan(values[variable]);
  }

  /// A constraint's constant, less what the decided variables contribute.
  double remainder(const Constraint &constraint) const {
    double constant = constraint.constant;
    for (const auto &term : constraint.terms) {
      if (isDecided(term.variable)) {
        constant -= term.coefficient * values[term.variable];
      }
    }
    return constant;
  }

  /// Decides the variable of an equation in which it is the only one left.
  bool decideBy(const Constraint &constraint) {
    const ConstraintSystem::Term *open = nullptr;
    for (const auto &term : constraint.terms) {
      if (!isDecided(term.variable)) {
        if (open != nullptr) {
          return false;
        }
        open = &term;
      }
    }
    if (constraint.relation != Relation::Equal || open == nullptr) {
      return false;
    }
    values[open->variable] = remainder(constraint) / open->coefficient;
    return true;
  }

  /// False when a constraint is violated, all of whose variables are decided.
  bool allows(const Constraint &constraint) const {
    for (const auto &term : constraint.terms) {
      if (!isDecided(term.variable)) {
        return true;
      }
    }
    const double missing = remainder(constraint);
    return !(constraint.relation != Relation::LessOrEqual && missing > kTolerance) &&
           !(constraint.relation != Relation::GreaterOrEqual && missing < -kTolerance);
  }
};

struct Program {
  std::vector<int> columnOf;  ///< By variable; -1: decided.
  std::vector<int> rows, columns;
  std::vector<double> elements;
  std::vector<double> columnLower, columnUpper, rowLower, rowUpper;

  int addColumn(double lower, double upper) {
    columnLower.push_back(std::isfinite(lower) ? lower : -COIN_DBL_MAX);
    columnUpper.push_back(std::isfinite(upper) ? upper : COIN_DBL_MAX);
    return static_cast<int>(columnLower.size()) - 1;
  }

  /// Adds what the decided variables leave of a constraint; returns the row, or -1 for nothing.
  int addRow(const Constraint &constraint, const Decided &decided) {
    const int row = static_cast<int>(rowLower.size());
    const double constant = decided.remainder(constraint);
    bool isEmpty = true;
    for (const auto &term : constraint.terms) {
      if (!decided.isDecided(term.variable)) {
        addElement(row, columnOf[term.variable], term.coefficient);
        isEmpty = false;
      }
    }
    if (isEmpty) {
      return -1;
    }
    rowLower.push_back(constraint.relation == Relation::LessOrEqual ? -COIN_DBL_MAX : constant);
    rowUpper.push_back(constraint.relation == Relation::GreaterOrEqual ? COIN_DBL_MAX : constant);
    return row;
  }

  void addElement(int row, int column, double value) {
    rows.push_back(row);
    columns.push_back(column);
    elements.push_back(value);
  }

  void loadInto(ClpSimplex &model) const {
    CoinPackedMatrix matrix(false, rows.data(), columns.data(), elements.data(),
                            static_cast<CoinBigIndex>(elements.size()));
    matrix.setDimensions(static_cast<int>(rowLower.size()), static_cast<int>(columnLower.size()));
    model.setLogLevel(0);
    model.setPerturbation(100);  // Off: an optimum must not depend on random shifts.
    model.scaling(0);            // All coefficients are near 1.
    model.setMaximumIterations(kMaximumPivots);
    model.loadProblem(matrix, columnLower.data(), columnUpper.data(), nullptr, rowLower.data(),
                      rowUpper.data());
  }
};

/// Slack columns of one priority, with their costs.
using Level = std::vector<std::pair<int, double>>;

/// Finds an optimum from the last one, whose factorization still holds.
void optimize(ClpSimplex &model) {
  constexpr int kKeepFactorization = 1;
  constexpr int kUseFactorization = 2;
  model.primal(0, kKeepFactorization | kUseFactorization);
}

bool isMet(const ClpSimplex &model, const Level &level) {
  return std::all_of(level.begin(), level.end(), [&](const auto &slack) {
    return model.primalColumnSolution()[slack.first] <= kTolerance;
  });
}

/// Leaves only the optima of the present objective: exactly those in which everything that has a
/// reduced cost stays where it is. Adding a row with the objective's value instead would have Clp
/// start all over.
void keepOptimum(ClpSimplex &model) {
  for (int column = 0; column < model.numberColumns(); ++column) {
    if (std::fabs(model.dualColumnSolution()[column]) > kTolerance) {
      const double value = model.primalColumnSolution()[column];
      model.setColumnBounds(column, value, value);
    }
  }
  for (int row = 0; row < model.numberRows(); ++row) {
    if (std::fabs(model.dualRowSolution()[row]) > kTolerance) {
      const double value = model.primalRowSolution()[row];
      model.setRowBounds(row, value, value);
    }
  }
}

bool isRequired(const Constraint &constraint) {
  return constraint.priority >= ConstraintSystem::kRequired;
}

}  // namespace

ConstraintSystem::Variable ConstraintSystem::addVariable(double lower, double upper) {
  variables_.push_back({lower, upper});
  return static_cast<Variable>(variables_.size()) - 1;
}

int ConstraintSystem::addConstraint(Constraint constraint) {
  // Clp wants every element of its matrix once.
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

  std::vector<int> required;
  for (size_t i = 0; i < constraints_.size(); ++i) {
    if (isRequired(constraints_[i])) {
      required.push_back(static_cast<int>(i));
    }
  }

  Decided decided;
  // Returns whether the decided variables keep their bounds and the constraints.
  const auto decide = [&](const std::vector<int> &numbers) {
    decided.values.assign(variables_.size(), std::nan(""));
    for (size_t i = 0; i < variables_.size(); ++i) {
      if (variables_[i].lower == variables_[i].upper) {
        decided.values[i] = variables_[i].lower;
      }
    }
    for (bool goesOn = true; goesOn;) {
      goesOn = false;
      for (int number : numbers) {
        goesOn = decided.decideBy(constraints_[number]) || goesOn;
      }
    }
    for (size_t i = 0; i < variables_.size(); ++i) {
      if (decided.values[i] < variables_[i].lower - kTolerance ||
          decided.values[i] > variables_[i].upper + kTolerance) {
        return false;
      }
    }
    return std::all_of(numbers.begin(), numbers.end(),
                       [&](int number) { return decided.allows(constraints_[number]); });
  };
  const auto load = [&](Program &program, const std::vector<int> &numbers) {
    for (size_t i = 0; i < variables_.size(); ++i) {
      const Bounds &bounds = variables_[i];
      program.columnOf.push_back(decided.isDecided(static_cast<Variable>(i))
                                     ? -1
                                     : program.addColumn(bounds.lower, bounds.upper));
    }
    for (int number : numbers) {
      program.addRow(constraints_[number], decided);
    }
  };
  const auto feasible = [&](const std::vector<int> &numbers) {
    if (!decide(numbers)) {
      return false;
    }
    Program program;
    load(program, numbers);
    ClpSimplex model;
    program.loadInto(model);
    model.primal();  // Clp's dual takes some systems of free variables for infeasible.
    return !model.isProvenPrimalInfeasible();
  };

  ClpSimplex model;
  std::map<double, Level, std::greater<double>> levels;
  // With everything that may be violated in it, the program has a solution if and only if the
  // required constraints have one.
  Program program;
  const auto start = [&] {
    if (!decide(required)) {
      return false;
    }
    program = Program();
    load(program, required);
    levels.clear();
    for (const Constraint &constraint : constraints_) {
      if (isRequired(constraint)) {
        continue;
      }
      const int row = program.addRow(constraint, decided);
      if (row < 0) {
        continue;
      }
      Level &level = levels[constraint.priority];
      if (constraint.relation != Relation::LessOrEqual) {
        const int missing = program.addColumn(0, HUGE_VAL);
        program.addElement(row, missing, 1);
        level.emplace_back(missing, constraint.weight);
      }
      if (constraint.relation != Relation::GreaterOrEqual) {
        const int excess = program.addColumn(0, HUGE_VAL);
        program.addElement(row, excess, -1);
        level.emplace_back(excess, constraint.weight);
      }
    }
    model = ClpSimplex();
    program.loadInto(model);
    optimize(model);
    return !model.isProvenPrimalInfeasible();
  };

  try {
    while (!start()) {
      // What can go without making the rest feasible has no part in the conflict.
      std::vector<int> members = required;
      for (int number : required) {
        std::vector<int> rest = members;
        rest.erase(std::find(rest.begin(), rest.end(), number));
        if (!feasible(rest)) {
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
      if (constraints_[broken].rigid) {
        broken = members.back();
      }
      required.erase(std::find(required.begin(), required.end(), broken));
      solution.conflicts.push_back({broken, std::move(members)});
    }

    const auto take = [&] {
      const double *values = model.primalColumnSolution();
      for (size_t i = 0; i < variables_.size(); ++i) {
        const int column = program.columnOf[i];
        solution.values[i] = column < 0 ? decided.values[i] : values[column];
      }
    };
    if (model.isProvenOptimal()) {
      take();
    }
    for (const auto &[priority, level] : levels) {
      if (isMet(model, level)) {
        for (const auto &[column, cost] : level) {
          model.setColumnBounds(column, 0, 0);
        }
        continue;
      }
      for (const auto &[column, cost] : level) {
        model.setObjectiveCoefficient(column, cost);
      }
      optimize(model);
      if (!model.isProvenOptimal()) {
        break;
      }
      take();
      keepOptimum(model);
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
