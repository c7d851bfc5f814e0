// The UDP datagram in a captured packet: a pure function over bytes, whatever they hold.
#ifndef KELG729F_TOOLS_CAPTURE_DATAGRAM_H
#define KELG729F_TOOLS_CAPTURE_DATAGRAM_H

#include <netinet/in.h>

#include <array>
#include <compare>
#include <cstdint>
#include <span>
#include <string>

namespace tool {

using Bytes = std::span<const uint8_t>;

// What a packet begins with: an Ethernet header, that of Linux's "any" device in its two versions,
// or IP itself.
enum class Link { ethernet, cooked, cooked2, ip };

struct Endpoint {
  std::array<uint8_t, sizeof(in6_addr)> address{};  // of IPv4 the first four bytes
  bool v6 = false;
  uint16_t port;

  auto operator<=>(const Endpoint&) const = default;
};

// As in URLs: 192.0.2.1:5004, [2001:db8::1]:5004.
std::string to_string(const Endpoint& endpoint);

struct Flow {
  Endpoint from;
  Endpoint to;

  Flow reversed() const { return {to, from}; }
  auto operator<=>(const Flow&) const = default;
};

enum class Content {
  datagram,  // whole
  cut,       // a datagram whose end was not captured; its payload is what there is
  fragment,  // a part of one, without the rest
  other      // anything else, damaged packets too
};

struct Datagram {
  Content content = Content::other;
  Flow flow;
  Bytes payload;  // within the packet's bytes
};

// Takes VLAN tags (802.1Q, QinQ), IPv4 and IPv6 with options and extension headers. Checksums are
// not looked at: captures on the sending machine hold packets before theirs are made.
Datagram find_datagram(Bytes packet, Link link);

}  // namespace tool

#endif
