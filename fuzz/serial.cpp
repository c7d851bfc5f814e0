// The decoder fed with serial frames of every type: any bits, erased bits, words that are neither,
// mode bits that disagree, wrong sync words.
//
// Input: steps of one byte for type and damage, one for the count, then the bits, eight to a byte.
#include <cstdint>

#include "fuzz/decoders.h"

namespace {

enum Damage { kNone, kErased, kOtherWord, kModesDisagree, kSync, kDamages };

void damage(int kind, fuzz::Input* in, uint16_t* words) {
  const int bits = words[1];
  if (kind == kSync) words[0] = in->word();
  if (bits == 0) return;
  if (kind == kErased) words[2 + in->below(bits)] = G729_SERIAL_ERASED;
  if (kind == kOtherWord) words[2 + in->below(bits)] = in->word();
  if (kind == kModesDisagree) words[3] = words[2] ^ G729_SERIAL_ZERO ^ G729_SERIAL_ONE;
}

// Mode bits agree, unless damaged later; the parity is left to chance.
void fill(fuzz::Input* in, uint16_t* words) {
  int byte = 0;
  for (int i = 0; i < words[1]; ++i) {
    if (i % 8 == 0) byte = in->byte();
    words[2 + i] = byte >> (7 - i % 8) & 1 ? G729_SERIAL_ONE : G729_SERIAL_ZERO;
  }
  if (words[1] == g729::kMaxFrameBits) words[3] = words[2];
}

void vary(fuzz::Noise* noise, uint16_t* words) {
  for (int i = words[1] == g729::kMaxFrameBits ? 2 : 0; i < words[1]; ++i)
    if (noise->next() % 4 == 0) words[2 + i] ^= G729_SERIAL_ZERO ^ G729_SERIAL_ONE;
}

void step(fuzz::Input* in, fuzz::Decoders* decoders) {
  const int choice = in->byte();
  const int repeats = in->byte();
  uint16_t words[G729_SERIAL_WORDS] = {G729_SERIAL_SYNC,
                                       static_cast<uint16_t>(g729::kFrameBits[choice % 5])};
  fill(in, words);
  damage(choice / 5 % kDamages, in, words);
  fuzz::Noise noise(static_cast<uint32_t>(choice));
  for (int i = 0; i < 1 + repeats / 4; ++i) {
    decoders->serial(words);
    if (repeats % 2) vary(&noise, words);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input in(data, size);
  fuzz::Decoders decoders;
  while (!in.done() && !decoders.full()) step(&in, &decoders);
  return 0;
}
