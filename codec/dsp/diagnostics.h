// The codec's messages on standard output.
#pragma once

namespace g729 {

// What is odd in a frame but allowed, a bit each, in the order in which it is told.
enum Remark : unsigned { kLspLow = 1, kLspHigh = 2, kWrongPitch = 4 };
using Remarks = unsigned;  // any of them

inline constexpr const char* kRemarkText[] = {"warning LSP Low \n", "warning LSP High \n",
                                              " ! Wrong Pitch 1st subfr. !   "};

// printf to standard output.
[[gnu::format(printf, 1, 2)]] void print_warning(const char* format, ...);

// Prints the text and ends the process with exit status -1: a caller broke the frame interface.
[[noreturn]] void fatal(const char* text);

}  // namespace g729
