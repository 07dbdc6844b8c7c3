// GNUstep's own parser rejects bracketed gaps, reads no lists and leaves out relations between
// views.

#include "layout/VisualFormat.h"

#include <charconv>
#include <cmath>
#include <system_error>
#include <utility>

namespace platform::layout {
namespace {

bool IsNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

/// A predictive parser; the language has no nesting. Throws a VisualFormatError.
class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  VisualFormat run() {
    VisualFormat format;
    readOrientation(format);
    skipBlanks();
    if (peek() == '|') {
      format.leadingPosition = at_;
      ++at_;
      format.leading = readConnection();
    }
    readChain(format);
    if (at_ < text_.size()) {
      fail("Unexpected text after the end of the format");
    }
    return format;
  }

 private:
  char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }

  void skipBlanks() {
    while (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r') {
      ++at_;
    }
  }

  bool accept(char c) {
    skipBlanks();
    if (peek() != c) {
      return false;
    }
    ++at_;
    return true;
  }

  [[noreturn]] void fail(const char *message) const { throw VisualFormatError{message, at_}; }

  void readOrientation(VisualFormat &format) {
    skipBlanks();
    if (peek() != 'H' && peek() != 'V') {
      return;
    }
    format.vertical = peek() == 'V';
    ++at_;
    if (!accept(':')) {
      fail("Expected ':' after the orientation");
    }
  }

  void readChain(VisualFormat &format) {
    for (;;) {
      format.views.push_back(readView());
      skipBlanks();
      if (at_ >= text_.size()) {
        return;
      }
      VisualConnection connection = readConnection();
      skipBlanks();
      if (peek() == '|') {
        format.trailingPosition = at_;
        ++at_;
        format.trailing = std::move(connection);
        skipBlanks();
        return;
      }
      format.between.push_back(std::move(connection));
    }
  }

  VisualView readView() {
    VisualView view;
    if (!accept('[')) {
      fail("Expected a view");
    }
    skipBlanks();
    view.position = at_;
    view.name = readName();
    if (view.name.empty()) {
      fail("Expected the name of a view");
    }
    if (accept('(')) {
      view.predicates = readPredicates();
    }
    if (!accept(']')) {
      fail("Expected ']' at the end of the view");
    }
    return view;
  }

  VisualConnection readConnection() {
    VisualConnection connection;
    if (!accept('-')) {
      return connection;
    }
    skipBlanks();
    if (peek() == '[' || peek() == '|') {
      connection.kind = VisualConnection::Kind::kStandard;
      return connection;
    }
    connection.kind = VisualConnection::Kind::kMeasured;
    if (accept('(')) {
      connection.predicates = readPredicates();
    } else {
      VisualPredicate predicate;
      if (peek() == '-' || peek() == '+') {
        fail("Expected a positive number or the name of a metric; others stand in parentheses");
      }
      predicate.object = readOperand("Expected a view, a number, a metric or '('");
      connection.predicates.push_back(std::move(predicate));
    }
    if (!accept('-')) {
      fail("Expected '-' after the gap");
    }
    return connection;
  }

  std::vector<VisualPredicate> readPredicates() {
    std::vector<VisualPredicate> predicates;
    do {
      predicates.push_back(readPredicate());
    } while (accept(','));
    if (!accept(')')) {
      fail("Expected ',' or ')' in the list of predicates");
    }
    return predicates;
  }

  VisualPredicate readPredicate() {
    VisualPredicate predicate;
    skipBlanks();
    const char first = peek();
    if (first == '=' || first == '<' || first == '>') {
      predicate.relation = first == '='   ? Relation::kEqual
                           : first == '<' ? Relation::kLessOrEqual
                                          : Relation::kGreaterOrEqual;
      if (text_.substr(at_ + 1, 1) != "=") {
        fail("Expected one of ==, <= and >=");
      }
      at_ += 2;
    }
    predicate.object = readOperand("Expected a number, a metric or a view");
    if (accept('@')) {
      predicate.priority = readOperand("Expected a priority after '@'");
    }
    return predicate;
  }

  std::string readName() {
    std::string name;
    if (IsNameStart(peek())) {
      while (IsNameStart(peek()) || IsDigit(peek())) {
        name += text_[at_++];
      }
    }
    return name;
  }

  VisualOperand readOperand(const char *expectation) {
    VisualOperand operand;
    skipBlanks();
    operand.position = at_;
    operand.name = readName();
    if (!operand.name.empty()) {
      return operand;
    }
    // from_chars rather than strtod, which follows the process's locale and knows "inf" and "nan".
    size_t start = at_;
    if (peek() == '+') {
      ++start;
    }
    const size_t digits = start + (start == at_ && peek() == '-' ? 1 : 0);
    if (digits >= text_.size() || !(IsDigit(text_[digits]) || text_[digits] == '.')) {
      fail(expectation);
    }
    double value = 0;
    const auto result = std::from_chars(text_.data() + start, text_.data() + text_.size(), value);
    if (result.ec == std::errc::result_out_of_range || !std::isfinite(value)) {
      fail("The number is out of range");
    }
    if (result.ec != std::errc()) {
      fail(expectation);
    }
    at_ = static_cast<size_t>(result.ptr - text_.data());
    operand.number = value;
    return operand;
  }

  std::string_view text_;
  size_t at_ = 0;
};

}  // namespace

std::variant<VisualFormat, VisualFormatError> ParseVisualFormat(std::string_view format) {
  try {
    return Parser(format).run();
  } catch (VisualFormatError &error) {
    return std::move(error);
  }
}

std::string DescribeVisualFormatError(std::string_view format, const VisualFormatError &error) {
  std::string text = "Unable to parse constraint format: \n";
  text += error.message;
  text += " \n";
  text += format;
  text += " \n";
  for (size_t i = 0; i < error.position && i < format.size(); ++i) {
    // One blank for every character, not for every byte of it.
    if ((static_cast<unsigned char>(format[i]) & 0xC0) != 0x80) {
      text += ' ';
    }
  }
  text += '^';
  return text;
}

}  // namespace platform::layout
