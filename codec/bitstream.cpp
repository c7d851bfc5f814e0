#include "codec/bitstream.h"

#include <algorithm>
#include <cstddef>

#include "codec/dsp/diagnostics.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// A field of the set and its width in bits.
struct FrameField {
  int width;
  size_t offset;
};
constexpr FrameField entry(size_t array, int index, int width) {
  return {width, array + static_cast<size_t>(index) * sizeof(int)};
}
constexpr FrameField sid(int index, int width) {
  return entry(offsetof(ParameterSet, sid), index, width);
}
constexpr FrameField lsp(int index, int width) {
  return entry(offsetof(ParameterSet, lsp), index, width);
}
constexpr size_t subframe(int k) {
  return offsetof(ParameterSet, subframe) + static_cast<size_t>(k) * sizeof(SubframeParameters);
}
constexpr FrameField lag(int k, int width) {
  return {width, subframe(k) + offsetof(SubframeParameters, lag)};
}
constexpr FrameField code(int k, int index, int width) {
  return entry(subframe(k) + offsetof(SubframeParameters, code), index, width);
}
constexpr FrameField gain(int k, int width) {
  return {width, subframe(k) + offsetof(SubframeParameters, gain)};
}
constexpr FrameField kParity = {1, subframe(0) + offsetof(SubframeParameters, parity)};
constexpr FrameField kMode = {1, offsetof(ParameterSet, lp_mode)};

// The fields of every type of frame in the order of transmission: those of the frame, then a line
// for each subframe.
// clang-format off
constexpr FrameField kFieldsSid[] = {sid(0, 1), sid(1, 5), sid(2, 4), sid(3, 5)};
constexpr FrameField kFields6k4[] = {
    lsp(0, 8), lsp(1, 10),
    lag(0, 8), code(0, 0, 9), code(0, 1, 2), gain(0, 6),
    lag(1, 4), code(1, 0, 9), code(1, 1, 2), gain(1, 6)};
constexpr FrameField kFields8k[] = {
    lsp(0, 8), lsp(1, 10),
    lag(0, 8), kParity, code(0, 0, 13), code(0, 1, 4), gain(0, 7),
    lag(1, 5), code(1, 0, 13), code(1, 1, 4), gain(1, 7)};
constexpr FrameField kFieldsForward[] = {
    kMode, kMode, lsp(0, 8), lsp(1, 10),
    lag(0, 8), kParity, code(0, 0, 7), code(0, 1, 7), code(0, 2, 7), code(0, 3, 7), code(0, 4, 7), gain(0, 7),
    lag(1, 5), code(1, 0, 7), code(1, 1, 7), code(1, 2, 7), code(1, 3, 7), code(1, 4, 7), gain(1, 7)};
constexpr FrameField kFieldsBackward[] = {
    kMode, kMode,
    lag(0, 8), kParity, code(0, 0, 13), code(0, 1, 10), code(0, 2, 7), code(0, 3, 7), code(0, 4, 7), gain(0, 7),
    lag(1, 5), code(1, 0, 13), code(1, 1, 10), code(1, 2, 7), code(1, 3, 7), code(1, 4, 7), gain(1, 7)};
// clang-format on

consteval int total(const auto& fields) {
  int bits = 0;
  for (const FrameField& f : fields) bits += f.width;
  return bits;
}
static_assert(total(kFieldsSid) + 1 == kFrameBits[kSid], "a bit is left over");
static_assert(total(kFields6k4) == kFrameBits[kSpeech6k4]);
static_assert(total(kFields8k) == kFrameBits[kSpeech8k]);
static_assert(total(kFieldsForward) == kFrameBits[kSpeech11k8]);
static_assert(total(kFieldsBackward) == kFrameBits[kSpeech11k8]);

constexpr char kWrongSize[] = "Unrecognized frame type: uncorrect value of serial_size\n";

// The fields as packed bytes, bits behind the last field 0. The table is known to the compiler:
// every field is a few shifts at fixed places.
template <const auto& kFields>
void pack_fields(const ParameterSet& set, uint8_t* bytes) {
  uint32_t bits = 0;
  int waiting = 0;
#pragma GCC unroll 20
  for (const FrameField& f : kFields) {
    uint32_t value;
    __builtin_memcpy(&value, reinterpret_cast<const char*>(&set) + f.offset, sizeof value);
    bits = bits << f.width | (value & ((1U << f.width) - 1));
    for (waiting += f.width; waiting >= 8; waiting -= 8)
      *bytes++ = static_cast<uint8_t>(bits >> (waiting - 8));
  }
  if (waiting > 0) *bytes = static_cast<uint8_t>(bits << (8 - waiting));
}

template <const auto& kFields>
void unpack_fields(const uint8_t* bytes, ParameterSet* set) {
  uint32_t bits = 0;
  int waiting = 0;
#pragma GCC unroll 20
  for (const FrameField& f : kFields) {
    for (; waiting < f.width; waiting += 8) bits = bits << 8 | *bytes++;
    waiting -= f.width;
    const uint32_t value = (bits >> waiting) & ((1U << f.width) - 1);
    __builtin_memcpy(reinterpret_cast<char*>(set) + f.offset, &value, sizeof value);
  }
}

void pack_set(const ParameterSet& set, uint8_t* bytes) {
  switch (set.type) {
    case kNoTransmission:
      return;
    case kSid:
      return pack_fields<kFieldsSid>(set, bytes);
    case kSpeech6k4:
      return pack_fields<kFields6k4>(set, bytes);
    case kSpeech8k:
      return pack_fields<kFields8k>(set, bytes);
    case kSpeech11k8:
      return set.lp_mode == kForward ? pack_fields<kFieldsForward>(set, bytes)
                                     : pack_fields<kFieldsBackward>(set, bytes);
  }
}

void unpack_set(const uint8_t* bytes, ParameterSet* set) {
  switch (set->type) {
    case kNoTransmission:
      return;
    case kSid:
      return unpack_fields<kFieldsSid>(bytes, set);
    case kSpeech6k4:
      return unpack_fields<kFields6k4>(bytes, set);
    case kSpeech8k:
      return unpack_fields<kFields8k>(bytes, set);
    case kSpeech11k8:
      return set->lp_mode == kForward ? unpack_fields<kFieldsForward>(bytes, set)
                                      : unpack_fields<kFieldsBackward>(bytes, set);
  }
}

FrameType type_of_bits(int bits) {
  for (int type = kNoTransmission; type <= kSpeech11k8; ++type)
    if (bits == kFrameBits[type]) return static_cast<FrameType>(type);
  fatal(kWrongSize);
}

// A mode word counts as 1 unless it is exactly kBitZero. Two that disagree erase the frame.
LpMode read_mode(SerialFrame* serial) {
  const bool backward = serial->bits[0] != kBitZero;
  if (backward != (serial->bits[1] != kBitZero))
    for (int i = 2; i < kMaxFrameBits; ++i) serial->bits[i] = kBitErased;
  return backward ? kBackward : kForward;
}

// The serial words of half a byte.
struct HalfWords {
  uint16_t word[16][4];
};
consteval HalfWords half_words() {
  HalfWords half = {};
  for (int value = 0; value < 16; ++value)
    for (int k = 0; k < 4; ++k) half.word[value][k] = value >> (3 - k) & 1 ? kBitOne : kBitZero;
  return half;
}
constexpr HalfWords kWordsOf = half_words();

int first_field(const ParameterSet& set) {
  if (set.type == kSpeech11k8) return set.lp_mode;
  return set.type == kSid ? set.sid.mode : set.lsp[0];
}

}  // namespace

void parameters_to_serial(const ParameterSet& set, SerialFrame* serial) {
  if (set.type < kNoTransmission || set.type > kSpeech11k8) fatal("Unrecognized frame type\n");
  uint8_t bytes[kMaxFrameBytes] = {};
  pack_set(set, bytes);
  serial->sync = kSyncWord;
  serial->size = static_cast<uint16_t>(kFrameBits[set.type]);
  unpack_serial_bits(bytes, (serial->size + 7) / 8, serial->bits);
}

void serial_to_parameters(SerialFrame* serial, ParameterSet* set) {
  set->type = type_of_bits(static_cast<int16_t>(serial->size));
  if (set->type == kNoTransmission) return;
  const LpMode mode = set->type == kSpeech11k8 ? read_mode(serial) : kForward;
  uint8_t bytes[kMaxFrameBytes] = {};
  pack_serial_bits(serial->bits, (serial->size + 7) / 8, bytes);
  set->lp_mode = mode;
  unpack_set(bytes, set);
  set->lp_mode = mode;
  set->first_field = first_field(*set);
}

void pack_serial_bits(const uint16_t* bits, int n, uint8_t* bytes) {
  for (int i = 0; i < n; ++i) {
    unsigned byte = 0;
    for (int k = 0; k < 8; ++k)
      byte |= static_cast<unsigned>(bits[8 * i + k] == kBitOne) << (7 - k);
    bytes[i] = static_cast<uint8_t>(byte);
  }
}

void unpack_serial_bits(const uint8_t* bytes, int n, uint16_t* bits) {
  for (int i = 0; i < n; ++i, bits += 8) {
    std::copy_n(kWordsOf.word[bytes[i] >> 4], 4, bits);
    std::copy_n(kWordsOf.word[bytes[i] & 15], 4, bits + 4);
  }
}

int parameters_to_bytes(const ParameterSet& set, uint8_t* bytes) {
  pack_set(set, bytes);
  return kFrameBits[set.type] / 8;
}

void bytes_to_parameters(const uint8_t* bytes, int bits, ParameterSet* set) {
  set->type = type_of_bits(bits);
  unpack_set(bytes, set);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
