// The three forms of a coded frame: parameter set, ITU serial frame (one 16-bit word a bit), and
// packed bytes (clause 4 and Annexes B, D, E for the bit allocation).
#pragma once

#include <cstdint>

#include "codec/dsp/constants.h"
#include "codec/dsp/parameter_set.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr uint16_t kSyncWord = 0x6B21;
inline constexpr uint16_t kBitZero = 0x007F;
inline constexpr uint16_t kBitOne = 0x0081;
inline constexpr uint16_t kBitErased = 0;

// Bits of a frame, by type.
inline constexpr int kFrameBits[] = {0, 16, 64, 80, 118};
inline constexpr int kMaxFrameBits = kFrameBits[kSpeech11k8];
inline constexpr int kMaxFrameBytes = (kMaxFrameBits + 7) / 8;

struct SerialFrame {
  uint16_t sync = kSyncWord;
  uint16_t size = 0;                       // bits that count: one of kFrameBits
  uint16_t bits[8 * kMaxFrameBytes] = {};  // the first transmitted bit first
};

// A type beyond 0..4 is fatal: "Unrecognized frame type\n".
void parameters_to_serial(const ParameterSet& set, SerialFrame* serial);

// The fields that the frame does not have stay as they are in the set. An 11.8 kbit/s frame whose
// two mode words disagree has its field words set to kBitErased. A size other than those of
// kFrameBits is fatal: "Unrecognized frame type: uncorrect value of serial_size\n".
void serial_to_parameters(SerialFrame* serial, ParameterSet* set);

// n bytes from 8 n bit words and back, the first bit in the highest place. A word is a 1 when it is
// kBitOne, anything else is a 0.
void pack_serial_bits(const uint16_t* bits, int n, uint8_t* bytes);
void unpack_serial_bits(const uint8_t* bytes, int n, uint16_t* bits);

// The same without a serial frame in between. A frame at 8 kbit/s, a silence descriptor or an
// untransmitted frame to bytes; returns their number, 10, 2 or 0.
int parameters_to_bytes(const ParameterSet& set, uint8_t* bytes);

// Bytes to parameters. A number of bits other than 0, 16, 64, 80 is fatal like that of a serial
// frame.
void bytes_to_parameters(const uint8_t* bytes, int bits, ParameterSet* set);

}  // namespace KELG729F_TARGET
}  // namespace g729
