// The codec's messages on standard output.
#pragma once

namespace g729 {

// printf to standard output.
[[gnu::format(printf, 1, 2)]] void print_warning(const char* format, ...);

// Prints the text and ends the process with exit status -1: a caller broke the frame interface.
[[noreturn]] void fatal(const char* text);

}  // namespace g729
