#include "src/audio/g729f/plc.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

#include "src/audio/g729f/frame.h"

namespace {

constexpr GstClockTime kSampleTime = kFrameTime / G729_FRAME_SAMPLES;
static_assert(kSampleTime * G729_FRAME_SAMPLES == kFrameTime);

// In samples of loss: where the fade begins, and where nothing is left.
constexpr gsize kFadeBegin = 60 * GST_MSECOND / kSampleTime;
constexpr gsize kFadeEnd = 100 * GST_MSECOND / kSampleTime;

double energy(const gint16* frame) {
  double sum = 0;
  for (gsize n = 0; n < G729_FRAME_SAMPLES; n++) sum += static_cast<double>(frame[n]) * frame[n];
  return sum;
}

// An erased speech frame at 8 kbit/s: every bit is 0.
void decode_erased(G729DecoderState* decoder, gint16* frame) {
  guint16 serial[G729_SERIAL_WORDS] = {G729_SERIAL_SYNC, G729_SPEECH_BYTES * 8};
  g729_decoder_decode_serial(decoder, serial, frame);
}

double fade(gsize position) {
  if (position < kFadeBegin) return 1;
  if (position >= kFadeEnd) return 0;
  return static_cast<double>(kFadeEnd - position) / double{kFadeEnd - kFadeBegin};
}

// Brings the frame down to the louder one of the last two good ones, and fades it.
void attenuate(Concealment& plc) {
  const double most = std::max(energy(plc.recent), energy(plc.recent + G729_FRAME_SAMPLES));
  const double now = energy(plc.frame);
  const double gain = now > most ? std::sqrt(most / now) : 1;
  for (gsize n = 0; n < G729_FRAME_SAMPLES; n++) {
    plc.frame[n] = static_cast<gint16>(plc.frame[n] * gain * fade(plc.lost + n));
  }
}

// What is silent already does not ask the codec.
void conceal_frame(Concealment& plc, G729DecoderState* decoder) {
  if (plc.lost < kFadeEnd) {
    decode_erased(decoder, plc.frame);
    attenuate(plc);
  } else {
    std::fill(std::begin(plc.frame), std::end(plc.frame), gint16{0});
  }
  plc.lost += G729_FRAME_SAMPLES;
}

void make_frame(Concealment& plc, G729DecoderState* decoder) {
  if (plc.silent) {
    g729_decoder_decode_frame(decoder, nullptr, 0, plc.frame);
  } else {
    conceal_frame(plc, decoder);
  }
  plc.left = G729_FRAME_SAMPLES;
}

}  // namespace

void plc_reset(Concealment& plc) {
  plc = {};
}

void plc_note_good(Concealment& plc, const guint8* pcm, gsize frames, bool sid) {
  plc.left = plc.lost = 0;
  plc.silent = sid;
  if (frames == 0) return;
  if (frames == 1) std::memcpy(plc.recent, plc.recent + G729_FRAME_SAMPLES, kPcmBytes);
  const gsize kept = std::min<gsize>(frames, 2) * kPcmBytes;
  std::memcpy(reinterpret_cast<guint8*>(plc.recent) + sizeof(plc.recent) - kept,
              pcm + frames * kPcmBytes - kept, kept);
}

gsize plc_fill(Concealment& plc, G729DecoderState* decoder, guint8* pcm, gsize samples) {
  gsize frames = 0;
  while (samples > 0) {
    if (plc.left == 0) {
      make_frame(plc, decoder);
      frames++;
    }
    const gsize count = std::min(plc.left, samples);
    std::memcpy(pcm, plc.frame + G729_FRAME_SAMPLES - plc.left, count * sizeof(gint16));
    pcm += count * sizeof(gint16);
    plc.left -= count;
    samples -= count;
  }
  return frames;
}
