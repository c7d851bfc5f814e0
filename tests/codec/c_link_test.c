/* A C program on the installed header and library: a tone goes through every frame operation. */
#include <kelg729f/g729.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

enum { FRAMES = 60, SAMPLES = FRAMES * G729_FRAME_SAMPLES, SKIP = 20 * G729_FRAME_SAMPLES };

static int16_t tone[SAMPLES];
static int16_t decoded[SAMPLES];

static double product(const int16_t* a, const int16_t* b, int count) {
  double sum = 0;
  for (int i = 0; i < count; ++i) sum += (double)a[i] * b[i];
  return sum;
}

/* Correlation of the settled part with the tone, at the best of the delays up to 10 ms. */
static double likeness(void) {
  const int count = SAMPLES - SKIP;
  const int16_t* out = decoded + SKIP;
  double best = 0;
  for (int delay = 0; delay <= 80; ++delay) {
    const int16_t* in = tone + SKIP - delay;
    const double energies = product(in, in, count) * product(out, out, count);
    const double found = product(in, out, count) / sqrt(energies + 1);
    if (found > best) best = found;
  }
  return best;
}

static void through_bytes(void) {
  G729EncoderState* encoder = g729_encoder_create(0);
  G729DecoderState* decoder = g729_decoder_create();
  for (int i = 0; i < SAMPLES; i += G729_FRAME_SAMPLES) {
    uint8_t bytes[G729_SPEECH_BYTES];
    uint32_t size = 0;
    g729_encoder_encode_frame(encoder, tone + i, bytes, &size);
    g729_decoder_decode_frame(decoder, bytes, size, decoded + i);
  }
  g729_encoder_destroy(encoder);
  g729_decoder_destroy(decoder);
}

static void through_words(int32_t rate) {
  G729EncoderState* encoder = g729_encoder_create(0);
  G729DecoderState* decoder = g729_decoder_create();
  for (int i = 0; i < SAMPLES; i += G729_FRAME_SAMPLES) {
    uint16_t serial[G729_SERIAL_WORDS];
    g729_encoder_encode_serial(encoder, tone + i, rate, serial);
    g729_decoder_decode_serial(decoder, serial, decoded + i);
  }
  g729_encoder_destroy(encoder);
  g729_decoder_destroy(decoder);
}

int main(void) {
  int failed = 0;
  for (int i = 0; i < SAMPLES; ++i)
    tone[i] = (int16_t)(6000 * sin(2 * 3.14159265 * 300 * i / 8000));
  for (int32_t rate = -1; rate <= G729_RATE_11K8; ++rate) {
    memset(decoded, 0, sizeof decoded);
    if (rate < 0)
      through_bytes();
    else
      through_words(rate);
    printf("rate code %d: correlation %.4f\n", (int)rate, likeness());
    if (likeness() < 0.95) failed = 1;
  }
  return failed;
}
