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

/// A predictive parser; the language has no nesting. The first error sticks, and every step after
/// it does nothing.
class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  std::variant<VisualFormat, VisualFormatError> run() {
    VisualFormat format;
    readOrientation(format);
    skipBlanks();
    if (peek() == '|') {
      format.leadingPosition = at_;
      ++at_;
      format.leading = readConnection();
    }
    readChain(format);
    if (!error_ && at_ < text_.size()) {
      fail("Unexpected text after the end of the format");
    }
    if (error_) {
      return std::move(*error_);
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
    if (error_ || peek() != c || at_ >= text_.size()) {
      return false;
    }
    ++at_;
    return true;
  }

  void fail(std::string message) { failAt(at_, std::move(message)); }

  void failAt(size_t position, std::string message) {
    if (!error_) {
      error_ = VisualFormatError{std::move(message), position};
    }
  }

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
    while (!error_) {
      format.views.push_back(readView());
      skipBlanks();
      if (error_ || at_ >= text_.size()) {
        return;
      }
      VisualConnection connection = readConnection();
      skipBlanks();
      if (error_) {
        return;
      }
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
      return view;
    }
    skipBlanks();
    view.position = at_;
    view.name = readName();
    if (view.name.empty()) {
      fail("Expected the name of a view");
      return view;
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
      connection.kind = VisualConnection::Kind::Standard;
      return connection;
    }
    connection.kind = VisualConnection::Kind::Measured;
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
      predicate.relation = first == '='   ? Relation::Equal
                           : first == '<' ? Relation::LessOrEqual
                                          : Relation::GreaterOrEqual;
      const size_t start = at_;
      ++at_;
      if (peek() != '=') {
        failAt(start, "Expected one of ==, <= and >=");
        return predicate;
      }
      ++at_;
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
    if (error_) {
      return operand;
    }
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
      return operand;
    }
    double value = 0;
    const auto result = std::from_chars(text_.data() + start, text_.data() + text_.size(), value);
    if (result.ec == std::errc::result_out_of_range || !std::isfinite(value)) {
      fail("The number is out of range");
    } else if (result.ec != std::errc()) {
      fail(expectation);
    } else {
      at_ = static_cast<size_t>(result.ptr - text_.data());
      operand.number = value;
    }
    return operand;
  }

  std::string_view text_;
  size_t at_ = 0;
  std::optional<VisualFormatError> error_;
};

}  // namespace

std::variant<VisualFormat, VisualFormatError> ParseVisualFormat(std::string_view format) {
  return Parser(format).run();
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
