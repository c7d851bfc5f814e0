/* A C program on the installed header and library: a tone goes through every frame operation, and
 * what is wrong is refused. */
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
    const int32_t size = g729_encoder_encode_bytes(encoder, tone + i, bytes, sizeof bytes);
    if (i == SAMPLES / 2)
      g729_decoder_conceal(decoder, decoded + i);
    else
      g729_decoder_decode_bytes(decoder, bytes, (size_t)size, decoded + i);
  }
  g729_encoder_destroy(encoder);
  g729_decoder_destroy(decoder);
}

static void through_words(int32_t rate) {
  G729EncoderState* encoder = g729_encoder_create(0);
  G729DecoderState* decoder = g729_decoder_create();
  for (int i = 0; i < SAMPLES; i += G729_FRAME_SAMPLES) {
    uint16_t serial[G729_SERIAL_WORDS];
    const int32_t words = g729_encoder_encode_words(encoder, tone + i, rate, serial, 120);
    g729_decoder_decode_words(decoder, serial, (size_t)words, decoded + i);
  }
  g729_encoder_destroy(encoder);
  g729_decoder_destroy(decoder);
}

static void count(void* calls, const char* text) {
  if (strstr(text, "Wrong Pitch")) ++*(int*)calls;
}

/* Number of calls that did not do what the header says. */
static int wrong_calls(void) {
  G729EncoderState* encoder = g729_encoder_create(0);
  G729DecoderState* decoder = g729_decoder_create();
  const uint16_t words[G729_SERIAL_WORDS] = {G729_SERIAL_SYNC, 80}, odd[] = {G729_SERIAL_SYNC, 81};
  uint8_t bytes[16] = {0};
  uint16_t out[G729_SERIAL_WORDS];
  int16_t samples[G729_FRAME_SAMPLES];
  int remarks = 0, wrong = 0;
  g729_decoder_set_remark_function(decoder, count, &remarks);
  for (size_t size = 0; size <= sizeof bytes; ++size) {
    const int frame = size == 0 || size == 2 || size == 8 || size == 10;
    const int32_t expected = frame ? 0 : G729_ERROR_SIZE;
    wrong += g729_decoder_decode_bytes(decoder, bytes, size, samples) != expected;
  }
  wrong += remarks != 1; /* zeros have a wrong parity */
  wrong += g729_decoder_decode_bytes(decoder, NULL, 10, samples) != G729_ERROR_NULL;
  wrong += g729_decoder_decode_words(decoder, words, 81, samples) != G729_ERROR_SIZE;
  wrong += g729_decoder_decode_words(decoder, words, 82, samples) != 0;
  wrong += g729_decoder_decode_words(decoder, odd, 200, samples) != G729_ERROR_SIZE;
  wrong += g729_encoder_encode_bytes(encoder, tone, bytes, 9) != G729_ERROR_SIZE;
  wrong += g729_encoder_encode_words(encoder, tone, 1, out, 119) != G729_ERROR_SIZE;
  wrong += g729_encoder_encode_words(encoder, tone, 3, out, 120) != G729_ERROR_RATE;
  wrong += g729_encoder_encode_words(NULL, tone, 1, out, 120) != G729_ERROR_NULL;
  wrong += !G729_CHECK_VERSION(1, 0, 20) || G729_CHECK_VERSION(1, 1, 0) || !g729_version()[0];
  g729_encoder_destroy(encoder);
  g729_decoder_destroy(decoder);
  return wrong;
}

int main(void) {
  int failed = wrong_calls();
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
