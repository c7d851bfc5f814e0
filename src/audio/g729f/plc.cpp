#include "src/audio/g729f/plc.h"

#include <algorithm>
#include <cmath>
#include <cstring>

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

double fade(gsize position) {
  if (position < kFadeBegin) return 1;
  if (position >= kFadeEnd) return 0;
  return static_cast<double>(kFadeEnd - position) / double{kFadeEnd - kFadeBegin};
}

// Brings the frame down to the louder one of the last two good ones, and fades it.
void attenuate(const Concealment& plc, gint16* frame) {
  const double most = std::max(energy(plc.recent), energy(plc.recent + G729_FRAME_SAMPLES));
  const double now = energy(frame);
  const double gain = now > most ? std::sqrt(most / now) : 1;
  for (gsize n = 0; n < G729_FRAME_SAMPLES; n++) {
    frame[n] = static_cast<gint16>(frame[n] * gain * fade(plc.lost + n));
  }
}

// What is silent already does not ask the codec.
void conceal_frame(Concealment& plc, G729DecoderState* decoder, gint16* frame) {
  if (plc.lost < kFadeEnd) {
    g729_decoder_conceal(decoder, frame);
    attenuate(plc, frame);
  } else {
    std::fill_n(frame, G729_FRAME_SAMPLES, gint16{0});
  }
  plc.lost += G729_FRAME_SAMPLES;
}

}  // namespace

void plc_reset(Concealment& plc) {
  plc = {};
}

void plc_note_good(Concealment& plc, const guint8* pcm, gsize frames, bool sid) {
  plc.lost = 0;
  plc.silent = sid;
  if (frames == 0) return;
  if (frames == 1) std::memcpy(plc.recent, plc.recent + G729_FRAME_SAMPLES, kPcmBytes);
  const gsize kept = std::min<gsize>(frames, 2) * kPcmBytes;
  std::memcpy(reinterpret_cast<guint8*>(plc.recent) + sizeof(plc.recent) - kept,
              pcm + frames * kPcmBytes - kept, kept);
}

void plc_fill(Concealment& plc, G729DecoderState* decoder, guint8* pcm, gsize frames) {
  for (; frames > 0; frames--, pcm += kPcmBytes) {
    gint16 frame[G729_FRAME_SAMPLES];
    if (plc.silent) {
      g729_decoder_decode_frame(decoder, nullptr, 0, frame);
    } else {
      conceal_frame(plc, decoder, frame);
    }
    std::memcpy(pcm, frame, kPcmBytes);
  }
}
