#include "codec/bitstream.h"

#include <cstddef>

#include "codec/dsp/diagnostics.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// Widths of the fields in bits, in the order of transmission.
constexpr int kSidFields[] = {1, 5, 4, 5};
constexpr int kFields6k4[] = {8, 10, 8, 9, 2, 6, 4, 9, 2, 6};
constexpr int kFields8k[] = {8, 10, 8, 1, 13, 4, 7, 5, 13, 4, 7};
constexpr int kFieldsForward[] = {8, 10, 8, 1, 7, 7, 7, 7, 7, 7, 5, 7, 7, 7, 7, 7, 7};
constexpr int kFieldsBackward[] = {8, 1, 13, 10, 7, 7, 7, 7, 5, 13, 10, 7, 7, 7, 7};
constexpr int kModeBits = 2;  // the LP mode, sent twice

constexpr char kWrongSize[] = "Unrecognized frame type: uncorrect value of serial_size\n";

struct FieldList {
  const int* width;
  int count;
};

template <size_t N>
constexpr FieldList list(const int (&width)[N]) {
  return {width, static_cast<int>(N)};
}

template <size_t N>
consteval int total(const int (&width)[N]) {
  int bits = 0;
  for (int w : width) bits += w;
  return bits;
}
static_assert(total(kSidFields) + 1 == kSidBits);
static_assert(total(kFields6k4) == kBits6k4);
static_assert(total(kFields8k) == kBits8k);
static_assert(total(kFieldsForward) + kModeBits == kBits11k8);
static_assert(total(kFieldsBackward) + kModeBits == kBits11k8);

uint16_t* write_fields(FieldList fields, const int32_t* value, uint16_t* bits) {
  for (int f = 0; f < fields.count; ++f)
    for (int b = fields.width[f] - 1; b >= 0; --b)
      *bits++ = (value[f] >> b) & 1 ? kBitOne : kBitZero;
  return bits;
}

void read_fields(FieldList fields, const uint16_t* bits, int32_t* value) {
  for (int f = 0; f < fields.count; ++f) {
    value[f] = 0;
    for (int b = 0; b < fields.width[f]; ++b) value[f] = 2 * value[f] + (*bits++ == kBitOne);
  }
}

// The same fields as packed bytes, the first bit in the highest place; bits behind the last field
// are 0. kWidths are known to the compiler: every field is a few shifts at fixed places.
template <const auto& kWidths>
void pack_fields(const int32_t* value, uint8_t* bytes) {
  uint32_t bits = 0;
  int waiting = 0;
#pragma GCC unroll 16
  for (const int width : kWidths) {
    bits = bits << width | (static_cast<uint32_t>(*value++) & ((1U << width) - 1));
    for (waiting += width; waiting >= 8; waiting -= 8)
      *bytes++ = static_cast<uint8_t>(bits >> (waiting - 8));
  }
  if (waiting > 0) *bytes = static_cast<uint8_t>(bits << (8 - waiting));
}

template <const auto& kWidths>
void unpack_fields(const uint8_t* bytes, int32_t* value) {
  uint32_t bits = 0;
  int waiting = 0;
#pragma GCC unroll 16
  for (const int width : kWidths) {
    for (; waiting < width; waiting += 8) bits = bits << 8 | *bytes++;
    waiting -= width;
    *value++ = static_cast<int32_t>((bits >> waiting) & ((1U << width) - 1));
  }
}

// word[0] is the LP mode, the fields follow it.
void write_11k8(const int32_t* word, uint16_t* bits) {
  const bool backward = word[0] != kForward;
  bits[0] = bits[1] = backward ? kBitOne : kBitZero;
  write_fields(backward ? list(kFieldsBackward) : list(kFieldsForward), word + 1, bits + kModeBits);
}

// A mode word counts as 1 unless it is exactly kBitZero; a field word only if exactly kBitOne.
void read_11k8(uint16_t* bits, int32_t* word) {
  const bool backward = bits[0] != kBitZero;
  if (backward != (bits[1] != kBitZero))
    for (int i = kModeBits; i < kBits11k8; ++i) bits[i] = kBitErased;
  word[0] = backward;
  read_fields(backward ? list(kFieldsBackward) : list(kFieldsForward), bits + kModeBits, word + 1);
}

}  // namespace

void parameters_to_serial(const int32_t* word, uint16_t* serial) {
  uint16_t* size = serial + 1;
  uint16_t* bits = serial + 2;
  serial[0] = kSyncWord;
  switch (word[0]) {
    case kNoTransmission:
      *size = 0;
      return;
    case kSid:
      *size = kSidBits;
      *write_fields(list(kSidFields), word + 1, bits) = kBitZero;
      return;
    case kSpeech6k4:
      *size = kBits6k4;
      write_fields(list(kFields6k4), word + 1, bits);
      return;
    case kSpeech8k:
      *size = kBits8k;
      write_fields(list(kFields8k), word + 1, bits);
      return;
    case kSpeech11k8:
      *size = kBits11k8;
      write_11k8(word + 1, bits);
      return;
    default:
      fatal("Unrecognized frame type\n");
  }
}

void serial_to_parameters(uint16_t* size_and_bits, int32_t* word) {
  uint16_t* bits = size_and_bits + 1;
  switch (static_cast<int16_t>(size_and_bits[0])) {
    case 0:
      word[1] = kNoTransmission;
      return;
    case kSidBits:
      word[1] = kSid;
      read_fields(list(kSidFields), bits, word + 2);
      return;
    case kBits6k4:
      word[1] = kSpeech6k4;
      read_fields(list(kFields6k4), bits, word + 2);
      return;
    case kBits8k:
      word[1] = kSpeech8k;
      read_fields(list(kFields8k), bits, word + 2);
      return;
    case kBits11k8:
      word[1] = kSpeech11k8;
      read_11k8(bits, word + 2);
      return;
    default:
      fatal(kWrongSize);
  }
}

int parameters_to_bytes(const int32_t* word, uint8_t* bytes) {
  switch (word[0]) {
    case kNoTransmission:
      return 0;
    case kSid:
      pack_fields<kSidFields>(word + 1, bytes);
      return kSidBits / 8;
    default:
      pack_fields<kFields8k>(word + 1, bytes);
      return kBits8k / 8;
  }
}

void bytes_to_parameters(const uint8_t* bytes, int bits, int32_t* word) {
  switch (bits) {
    case 0:
      word[1] = kNoTransmission;
      return;
    case kSidBits:
      word[1] = kSid;
      unpack_fields<kSidFields>(bytes, word + 2);
      return;
    case kBits6k4:
      word[1] = kSpeech6k4;
      unpack_fields<kFields6k4>(bytes, word + 2);
      return;
    case kBits8k:
      word[1] = kSpeech8k;
      unpack_fields<kFields8k>(bytes, word + 2);
      return;
    default:
      fatal(kWrongSize);
  }
}

}  // namespace KELG729F_TARGET
}  // namespace g729
