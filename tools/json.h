// What every command prints with --json.
#ifndef KELG729F_TOOLS_JSON_H
#define KELG729F_TOOLS_JSON_H

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace tool {

using Json = nlohmann::ordered_json;

// Two decimals are what is measured; more would only look so.
inline double rounded(double value) {
  return std::round(100 * value) / 100;
}

inline void print_json(const Json& json) {
  // A file's name may hold any bytes; what is no UTF-8 is replaced.
  std::puts(json.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

}  // namespace tool

#endif
