// Packets as they lie in captures.
#ifndef KELG729F_TESTS_TOOLS_PACKETS_H
#define KELG729F_TESTS_TOOLS_PACKETS_H

#include <algorithm>
#include <cstdint>
#include <string>

namespace test {

using namespace std::string_literals;

inline std::string big(uint64_t value, int bytes) {
  std::string text;
  while (bytes-- > 0) text += static_cast<char>(bytes < 8 ? value >> 8 * bytes : 0);
  return text;
}

inline std::string little(uint64_t value, int bytes) {
  std::string text = big(value, bytes);
  std::reverse(text.begin(), text.end());
  return text;
}

inline std::string udp(const std::string& payload, bool back = false, uint64_t port = 4000) {
  return big(back ? 5000 : port, 2) + big(back ? port : 5000, 2) + big(8 + payload.size(), 2) +
         big(0, 2) + payload;
}

inline std::string ipv4(const std::string& inside, bool back = false,
                        const std::string& options = "", int fragment = 0) {
  return big(0x45 + options.size() / 4, 1) + "\0"s + big(20 + options.size() + inside.size(), 2) +
         big(0, 2) + big(static_cast<uint64_t>(fragment), 2) + "\x40\x11"s + big(0, 2) +
         big(back ? 0x0A000002 : 0x0A000001, 4) + big(back ? 0x0A000001 : 0x0A000002, 4) + options +
         inside;
}

// headers: extension headers, the number of the first one before them.
inline std::string ipv6(const std::string& inside, int next = 17, const std::string& headers = "") {
  return big(6 << 28, 4) + big(headers.size() + inside.size(), 2) +
         big(static_cast<uint64_t>(next), 1) + "\x40"s + big(1, 16) + big(2, 16) + headers + inside;
}

}  // namespace test

#endif
