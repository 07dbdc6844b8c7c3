// Arbitrary bytes as visual formats: either a format that is whole or an error that can be shown.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "layout/VisualFormat.h"

using namespace platform::layout;

namespace {

void Expect(bool condition, const char *what) {
  if (condition) {
    return;
  }
  std::fprintf(stderr, "visual_format_fuzzer: %s\n", what);
  std::abort();
}

void CheckOperand(const VisualOperand &operand, std::string_view text) {
  Expect(operand.number.has_value() == operand.name.empty(), "an operand is not one thing");
  Expect(!operand.number || std::isfinite(*operand.number), "a number is not finite");
  Expect(operand.position < text.size(), "an operand lies outside the format");
  Expect(text.substr(operand.position, operand.name.size()) == operand.name,
         "an operand's name is elsewhere");
}

void CheckPredicates(const std::vector<VisualPredicate> &predicates, std::string_view text) {
  for (const VisualPredicate &predicate : predicates) {
    CheckOperand(predicate.object, text);
    if (predicate.priority) {
      CheckOperand(*predicate.priority, text);
    }
  }
}

void CheckConnection(const VisualConnection &connection, std::string_view text) {
  Expect((connection.kind == VisualConnection::Kind::kMeasured) == !connection.predicates.empty(),
         "a gap has no size, or one too many");
  CheckPredicates(connection.predicates, text);
}

void CheckFormat(const VisualFormat &format, std::string_view text) {
  Expect(!format.views.empty(), "a format has no view");
  Expect(format.between.size() + 1 == format.views.size(), "views and gaps do not fit");
  for (const VisualView &view : format.views) {
    Expect(!view.name.empty(), "a view has no name");
    Expect(text.substr(view.position, view.name.size()) == view.name, "a view's name is elsewhere");
    CheckPredicates(view.predicates, text);
  }
  for (const VisualConnection &connection : format.between) {
    CheckConnection(connection, text);
  }
  if (format.leading) {
    CheckConnection(*format.leading, text);
    Expect(text.at(format.leadingPosition) == '|', "the leading edge is elsewhere");
  }
  if (format.trailing) {
    CheckConnection(*format.trailing, text);
    Expect(text.at(format.trailingPosition) == '|', "the trailing edge is elsewhere");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
  const std::string_view text(reinterpret_cast<const char *>(bytes), size);
  const auto result = ParseVisualFormat(text);
  if (const auto *error = std::get_if<VisualFormatError>(&result)) {
    Expect(!error->message.empty(), "an error says nothing");
    Expect(error->position <= size, "an error lies outside the format");
    const std::string description = DescribeVisualFormatError(text, *error);
    Expect(description.find(text) != std::string::npos, "an error does not show the format");
  } else {
    CheckFormat(std::get<VisualFormat>(result), text);
  }
  return 0;
}
