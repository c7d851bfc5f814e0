#include "tools/capture/rtp.h"

#include <span>

#include "codec/g729.h"

namespace tool {
namespace {

constexpr size_t kHeader = 12;

uint32_t number(Bytes bytes) {
  uint32_t value = 0;
  for (const uint8_t b : bytes) value = value << 8 | b;
  return value;
}

// The payload behind contributing sources and header extension; none when they are not all there.
std::optional<Bytes> behind_header(Bytes bytes) {
  const size_t sources = bytes[0] & 15;
  size_t header = kHeader + 4 * sources;
  if (bytes[0] & 0x10) {
    if (header + 4 > bytes.size()) return std::nullopt;
    header += 4 + 4 * size_t{number(bytes.subspan(header + 2, 2))};
  }
  if (header > bytes.size()) return std::nullopt;
  return bytes.subspan(header);
}

}  // namespace

std::optional<RtpPacket> parse_rtp(Bytes bytes, bool whole) {
  if (bytes.size() < kHeader || bytes[0] >> 6 != 2) return std::nullopt;
  const std::optional<Bytes> payload = behind_header(bytes);
  if (!payload) return std::nullopt;
  size_t padding = 0;
  if (whole && bytes[0] & 0x20) {
    padding = payload->empty() ? 0 : payload->back();
    if (padding == 0 || padding > payload->size()) return std::nullopt;
  }
  return RtpPacket{static_cast<uint8_t>(bytes[1] & 0x7F),
                   static_cast<uint16_t>(number(bytes.subspan(2, 2))), number(bytes.subspan(4, 4)),
                   number(bytes.subspan(8, 4)), payload->first(payload->size() - padding)};
}

// RFC 2198 clause 3: headers of four bytes for earlier payloads and one byte for the packet's own,
// then the payloads in the same order.
std::optional<RedundantPacket> parse_redundant(Bytes payload, int payload_type) {
  constexpr size_t kHeaderSize = 4, kMost = 16;
  RedundantPacket packet;
  std::vector<size_t> sizes;
  while (payload.size() >= kHeaderSize && payload[0] & 0x80 && sizes.size() < kMost) {
    if ((payload[0] & 0x7F) != payload_type) return std::nullopt;
    const uint32_t header = number(payload.first(kHeaderSize));
    packet.earlier.push_back({header >> 10 & 0x3FFF, {}});
    sizes.push_back(header & 0x3FF);
    payload = payload.subspan(kHeaderSize);
  }
  if (payload.empty() || payload[0] != payload_type) return std::nullopt;
  payload = payload.subspan(1);
  for (size_t i = 0; i < sizes.size(); ++i) {
    if (sizes[i] > payload.size() || !is_g729_size(sizes[i])) return std::nullopt;
    packet.earlier[i].payload = payload.first(sizes[i]);
    payload = payload.subspan(sizes[i]);
  }
  if (!is_g729_size(payload.size())) return std::nullopt;
  packet.own = payload;
  return packet;
}

bool is_g729_size(size_t payload) {
  const size_t rest = payload % G729_SPEECH_BYTES;
  return payload <= 100 * G729_SPEECH_BYTES && (rest == 0 || rest == G729_SID_BYTES);
}

size_t frames_in(size_t payload) {
  return payload / G729_SPEECH_BYTES + payload % G729_SPEECH_BYTES / G729_SID_BYTES;
}

}  // namespace tool
