//
// Whether a translated text can be filled like its English original. Plain C++: no platform object.
//

#ifndef AFX_PLACEHOLDERS_H
#define AFX_PLACEHOLDERS_H

#include <string_view>

/// Whether `format` takes nothing but objects, and none beyond the first `count` (at most 9): %@
/// for the next one or %1$@ for a certain one, not both kinds in one text, and %% for a per cent
/// sign. Everything else would read or write memory that is no argument.
constexpr bool __AFXPlaceholdersFit(std::string_view format, unsigned count) {
  unsigned next = 0;
  bool hasPositions = false;
  while (!format.empty()) {
    const bool isPlain = format.front() != '%';
    if (isPlain || format.substr(0, 2) == "%%") {
      format.remove_prefix(isPlain ? 1 : 2);
    } else if (format.substr(0, 2) == "%@") {
      ++next;
      format.remove_prefix(2);
    } else if (format.size() >= 4 && format[1] >= '1' && format[1] <= '9' &&
               static_cast<unsigned>(format[1] - '0') <= count && format.substr(2, 2) == "$@") {
      hasPositions = true;
      format.remove_prefix(4);
    } else {
      return false;
    }
  }
  return next <= count && !(hasPositions && next > 0);
}

#endif
