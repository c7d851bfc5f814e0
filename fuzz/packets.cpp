// The decoder fed with packets of every length it takes, and losses between them.
//
// Input: steps. A step's first byte is what comes (modulo 6) and how often (1 to 43 times); then
// the packet's bytes. A packet that is repeated is varied each time when its last byte is odd.
#include <cstdint>
#include <vector>

#include "fuzz/decoders.h"

namespace {

constexpr int kSizes[] = {0, 2, 8, 10, 10};
constexpr int kLoss = 5;

void lose(fuzz::Decoders* decoders) {
  uint16_t words[G729_SERIAL_WORDS] = {G729_SERIAL_SYNC, 8 * G729_SPEECH_BYTES};
  decoders->serial(words);
}

void step(fuzz::Input* in, fuzz::Decoders* decoders) {
  const int choice = in->byte();
  const int kind = choice % 6;
  const int times = 1 + choice / 6;
  std::vector<uint8_t> packet = in->bytes(kind == kLoss ? 0 : static_cast<size_t>(kSizes[kind]));
  const bool varied = !packet.empty() && packet.back() % 2;
  fuzz::Noise noise(static_cast<uint32_t>(choice));
  for (int i = 0; i < times; ++i) {
    if (kind == kLoss) {
      lose(decoders);
    } else {
      decoders->packed(packet.data(), static_cast<uint32_t>(packet.size()));
    }
    if (!varied) continue;
    for (uint8_t& b : packet) b ^= static_cast<uint8_t>(noise.next());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input in(data, size);
  fuzz::Decoders decoders;
  while (!in.done() && !decoders.full()) step(&in, &decoders);
  return 0;
}
