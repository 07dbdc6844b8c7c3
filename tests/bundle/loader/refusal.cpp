#include "refusal.h"

#include <cstdarg>
#include <cstdio>

namespace macho {

void Refuse(const char *format, ...) {
  char text[500];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  throw Refusal(text);
}

}  // namespace macho
