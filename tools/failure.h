// What ends a command early, and the process's exit status for it.
#ifndef KELG729F_TOOLS_FAILURE_H
#define KELG729F_TOOLS_FAILURE_H

#include <stdexcept>
#include <string>

namespace tool {

enum class Exit {
  ok,         // 0, and so on
  other,      // what the tool cannot know of, such as too little memory
  usage,      // options or arguments that make no sense
  input,      // an input that cannot be read or is not what it should be
  output,     // an output that cannot be written
  truncated,  // done, but an input was cut short
};

// The message is one line: what is wrong and what to do.
struct Failure : std::runtime_error {
  Failure(Exit status, const std::string& message) : std::runtime_error(message), exit(status) {}
  Exit exit;
};

}  // namespace tool

#endif
