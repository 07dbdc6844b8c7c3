#ifndef PLATFORM_VISUAL_FORMAT_H
#define PLATFORM_VISUAL_FORMAT_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "layout/Relation.h"

namespace platform::layout {

/// A number, or the name of a metric or a view, which the parser does not look up.
struct VisualOperand {
  std::optional<double> number;
  std::string name;     ///< Empty when `number` is set.
  size_t position = 0;  ///< Byte offset in the format, for messages.
};

/// One of `8.0`, `>=d`, `==cancel@751`.
struct VisualPredicate {
  Relation relation = Relation::kEqual;
  VisualOperand object;
  std::optional<VisualOperand> priority;
};

/// What stands between two neighbours.
struct VisualConnection {
  /// Flush: nothing between them. Standard: a lone `-`. Measured: `predicates` say it.
  enum class Kind { kFlush, kStandard, kMeasured };
  Kind kind = Kind::kFlush;
  std::vector<VisualPredicate> predicates;
};

/// `[name]` or `[name(predicates)]`.
struct VisualView {
  std::string name;
  size_t position = 0;  ///< Byte offset of the name.
  std::vector<VisualPredicate> predicates;
};

/// A parsed visual format. `between` has one entry less than `views`, which is never empty.
struct VisualFormat {
  bool vertical = false;
  std::vector<VisualView> views;
  std::vector<VisualConnection> between;
  std::optional<VisualConnection> leading;   ///< From the superview to the first view.
  std::optional<VisualConnection> trailing;  ///< From the last view to the superview.
  size_t leadingPosition = 0;                ///< Byte offset of the first `|`.
  size_t trailingPosition = 0;               ///< Byte offset of the last `|`.
};

/// What is wrong with a format, and where.
struct VisualFormatError {
  std::string message;
  size_t position = 0;  ///< Byte offset, at most the length of the format.
};

/// Parses a format of Apple's visual format language (UTF-8). Any input is safe. Blanks are
/// allowed between the parts. Numbers are what strtod takes in the C locale, infinities excepted.
std::variant<VisualFormat, VisualFormatError> ParseVisualFormat(std::string_view format);

/// The text of the exception for an error: what is wrong, the format, a caret under the place.
std::string DescribeVisualFormatError(std::string_view format, const VisualFormatError &error);

}  // namespace platform::layout

#endif
