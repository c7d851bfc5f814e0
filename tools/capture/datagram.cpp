#include "tools/capture/datagram.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <optional>

namespace tool {
namespace {

constexpr uint16_t kIpv4 = 0x0800;
constexpr uint16_t kIpv6 = 0x86DD;
constexpr uint8_t kUdp = 17;

// Takes bytes off the front. What is not there reads as nothing, and all that follows too.
class Front {
 public:
  explicit Front(Bytes bytes) : rest_(bytes) {}

  bool failed() const { return failed_; }
  Bytes rest() const { return rest_; }

  Bytes bytes(size_t count) {
    failed_ = failed_ || count > rest_.size();
    if (failed_) return {};
    const Bytes taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return taken;
  }
  void skip(size_t count) { bytes(count); }
  uint8_t byte() {
    const Bytes b = bytes(1);
    return b.empty() ? uint8_t{0} : b[0];
  }
  uint16_t word() {
    const Bytes b = bytes(2);
    return b.empty() ? uint16_t{0} : static_cast<uint16_t>(b[0] << 8 | b[1]);
  }
  // Forgets what lies behind the next length bytes; false when fewer are there.
  bool end_after(size_t length) {
    const bool whole = length <= rest_.size();
    if (whole) rest_ = rest_.first(length);
    return whole;
  }

 private:
  Bytes rest_;
  bool failed_ = false;
};

bool is_vlan(uint16_t type) {
  return type == 0x8100 || type == 0x88A8 || type == 0x9100;
}

// The protocol behind the link's header and VLAN tags.
uint16_t link_protocol(Front* front, Link link) {
  uint16_t type = 0;
  switch (link) {
    case Link::ip:
      if (front->rest().empty()) return 0;
      return front->rest()[0] >> 4 == 6 ? kIpv6 : kIpv4;
    case Link::ethernet:
      front->skip(12);
      type = front->word();
      break;
    case Link::cooked:
      front->skip(14);
      type = front->word();
      break;
    case Link::cooked2:
      type = front->word();
      front->skip(18);
      break;
  }
  while (!front->failed() && is_vlan(type)) {
    front->skip(2);
    type = front->word();
  }
  return type;
}

void set_address(Bytes bytes, bool v6, Endpoint* endpoint) {
  std::copy(bytes.begin(), bytes.end(), endpoint->address.begin());
  endpoint->v6 = v6;
}

// What an IP header says of what is behind it. protocol is 0 when nothing can be made of it.
struct Inside {
  uint8_t protocol = 0;
  bool fragment = false;
  bool cut = false;
};

Inside read_ipv4(Front* front, Flow* flow) {
  const size_t captured = front->rest().size();
  const uint8_t first = front->byte();
  const size_t header = 4U * (first & 15);
  front->skip(1);
  const size_t length = front->word();
  front->skip(2);
  const uint16_t fragment = front->word();
  front->skip(1);
  const uint8_t protocol = front->byte();
  front->skip(2);
  set_address(front->bytes(4), false, &flow->from);
  set_address(front->bytes(4), false, &flow->to);
  if (first >> 4 != 4 || header < 20 || front->failed()) return {};
  front->skip(header - 20);
  // A sender that leaves segmentation to its network card writes no length.
  if (length != 0 && length < header) return {};
  const bool whole = length == 0 || front->end_after(length - header);
  return {protocol, (fragment & 0x3FFF) != 0, !whole || length > captured};
}

// Skips an extension header; the header behind it, or none when next is no extension.
std::optional<uint8_t> skip_extension(Front* front, uint8_t next, bool* fragment) {
  constexpr uint8_t kHopByHop = 0, kRouting = 43, kFragment = 44, kAuthentication = 51,
                    kOptions = 60;
  if (next == kFragment) {
    const uint8_t behind = front->byte();
    front->skip(1);
    *fragment = *fragment || (front->word() & 0xFFF9) != 0;
    front->skip(4);
    return behind;
  }
  const bool eights = next == kHopByHop || next == kRouting || next == kOptions;
  if (!eights && next != kAuthentication) return std::nullopt;
  const uint8_t behind = front->byte();
  const size_t length = front->byte();
  front->skip(eights ? 8 * length + 6 : 4 * length + 6);
  return behind;
}

Inside read_ipv6(Front* front, Flow* flow) {
  const uint8_t first = front->byte();
  front->skip(3);
  const size_t length = front->word();
  uint8_t next = front->byte();
  front->skip(1);
  set_address(front->bytes(16), true, &flow->from);
  set_address(front->bytes(16), true, &flow->to);
  if (first >> 4 != 6 || front->failed()) return {};
  const bool whole = length == 0 || front->end_after(length);
  Inside inside{0, false, !whole};
  while (const auto behind = skip_extension(front, next, &inside.fragment)) {
    if (front->failed()) return {};
    next = *behind;
    if (inside.fragment) break;
  }
  inside.protocol = next;
  return inside;
}

}  // namespace

std::string to_string(const Endpoint& endpoint) {
  char text[INET6_ADDRSTRLEN] = "";
  inet_ntop(endpoint.v6 ? AF_INET6 : AF_INET, endpoint.address.data(), text, sizeof text);
  std::string name = endpoint.v6 ? "[" : "";
  name += text;
  name += endpoint.v6 ? "]:" : ":";
  return name + std::to_string(endpoint.port);
}

Datagram find_datagram(Bytes packet, Link link) {
  Front front(packet);
  Datagram found;
  const uint16_t type = link_protocol(&front, link);
  Inside inside;
  if (type == kIpv4) inside = read_ipv4(&front, &found.flow);
  if (type == kIpv6) inside = read_ipv6(&front, &found.flow);
  if (inside.protocol != kUdp || front.failed()) return {};
  if (inside.fragment) return {Content::fragment, {}, {}};
  found.flow.from.port = front.word();
  found.flow.to.port = front.word();
  const size_t length = front.word();
  front.skip(2);
  if (front.failed() || length < 8) return {};
  const bool whole = front.end_after(length - 8);
  if (!whole && !inside.cut) return {};  // longer than the IP packet around it
  found.content = whole ? Content::datagram : Content::cut;
  found.payload = front.rest();
  return found;
}

}  // namespace tool
