// The three forms of a coded frame: parameter words, ITU serial words (one 16-bit word a bit), and
// packed bytes (clause 4 and Annexes B, D, E for the bit allocation).
#pragma once

#include <cstdint>

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr uint16_t kSyncWord = 0x6B21;
inline constexpr uint16_t kBitZero = 0x007F;
inline constexpr uint16_t kBitOne = 0x0081;
inline constexpr uint16_t kBitErased = 0;

// Number of bit words of each frame type.
inline constexpr int kSidBits = 16;
inline constexpr int kBits6k4 = 64;
inline constexpr int kBits8k = 80;
inline constexpr int kBits11k8 = 118;

inline constexpr int kEncoderWords = 19;                // encoder parameters: type, then fields
inline constexpr int kDecoderWords = 21;                // decoder: erasure flag, type, fields
inline constexpr int kSerialWords = 2 + kBits11k8 + 2;  // sync, size, bits and room to spare

// Encoder parameters (word[0] the frame type, the fields from word[1]) to a serial frame. A type
// beyond 0..4 is fatal: "Unrecognized frame type\n".
void parameters_to_serial(const int32_t* word, uint16_t* serial);

// Serial frame, starting at its size word, to decoder parameters word[1] (frame type) and on;
// word[0] is left alone. An 11.8 kbit/s frame whose two mode words disagree has its field words
// set to kBitErased. A size other than 0, 16, 64, 80, 118 is fatal:
// "Unrecognized frame type: uncorrect value of serial_size\n".
void serial_to_parameters(uint16_t* size_and_bits, int32_t* word);

// The same without a serial frame in between. Encoder parameters of a frame at 8 kbit/s, a silence
// descriptor or an untransmitted frame to packed bytes; returns their number, 10, 2 or 0.
int parameters_to_bytes(const int32_t* word, uint8_t* bytes);

// Packed bytes to decoder parameters word[1] and on. A number of bits other than 0, 16, 64, 80 is
// fatal like that of a serial frame.
void bytes_to_parameters(const uint8_t* bytes, int bits, int32_t* word);

}  // namespace KELG729F_TARGET
}  // namespace g729
