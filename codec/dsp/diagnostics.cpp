#include "codec/dsp/diagnostics.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace g729 {

void print_warning(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vprintf(format, arguments);
  va_end(arguments);
}

void fatal(const char* text) {
  print_warning("%s", text);
  std::exit(-1);
}

}  // namespace g729
