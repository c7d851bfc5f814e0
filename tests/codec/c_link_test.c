/* A C program on the installed header and library: the calls that check their arguments do what the
 * plain ones do, a tone comes out of both, and what is wrong is refused. */
#include <kelg729f/g729.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

enum { FRAMES = 60, LOST = 30, FRAME_BYTES = G729_FRAME_SAMPLES * sizeof(int16_t) };

static int16_t tone[FRAMES][G729_FRAME_SAMPLES];

static double energy(const int16_t* samples) {
  double sum = 0;
  for (int n = 0; n < G729_FRAME_SAMPLES; ++n) sum += (double)samples[n] * samples[n];
  return sum;
}

/* Number of frames that the two ways do not have in common, packed ones without a rate. */
static int differences(int32_t rate) {
  G729EncoderState *plain = g729_encoder_create(0), *checked = g729_encoder_create(0);
  G729DecoderState *from_plain = g729_decoder_create(), *from_checked = g729_decoder_create();
  int wrong = 0;
  for (int f = 0; f < FRAMES; ++f) {
    int16_t out[G729_FRAME_SAMPLES], same[G729_FRAME_SAMPLES];
    uint16_t words[2][G729_SERIAL_WORDS] = {{G729_SERIAL_SYNC, 80}};
    uint8_t bytes[2][G729_SPEECH_BYTES] = {{0}};
    if (f == LOST) {
      g729_decoder_decode_serial(from_plain, words[0], out);
      g729_decoder_conceal(from_checked, same);
    } else if (rate < 0) {
      uint32_t size;
      g729_encoder_encode_frame(plain, tone[f], bytes[0], &size);
      wrong += g729_encoder_encode_bytes(checked, tone[f], bytes[1], 10) != (int32_t)size;
      g729_decoder_decode_frame(from_plain, bytes[0], size, out);
      wrong += g729_decoder_decode_bytes(from_checked, bytes[1], size, same) != 0;
    } else {
      g729_encoder_encode_serial(plain, tone[f], rate, words[0]);
      const int32_t count = g729_encoder_encode_words(checked, tone[f], rate, words[1], 120);
      wrong += count != 2 + words[0][1];
      g729_decoder_decode_serial(from_plain, words[0], out);
      wrong += g729_decoder_decode_words(from_checked, words[1], (size_t)count, same) != 0;
    }
    wrong += memcmp(out, same, FRAME_BYTES) != 0;
    wrong += f >= 20 && f < LOST && fabs(log(energy(out) / energy(tone[f]))) > 1;
  }
  g729_encoder_destroy(plain);
  g729_encoder_destroy(checked);
  g729_decoder_destroy(from_plain);
  g729_decoder_destroy(from_checked);
  return wrong;
}

static void count(void* calls, const char* text) {
  if (strstr(text, "Wrong Pitch")) ++*(int*)calls;
}

/* Number of calls that did not do what the header says. */
static int wrong_calls(void) {
  G729EncoderState* encoder = g729_encoder_create(0);
  G729DecoderState* decoder = g729_decoder_create();
  const uint16_t words[G729_SERIAL_WORDS] = {G729_SERIAL_SYNC, 80};
  uint8_t bytes[16] = {0};
  uint16_t out[G729_SERIAL_WORDS];
  int16_t samples[G729_FRAME_SAMPLES] = {0};
  int remarks = 0, wrong = 0;
  wrong += g729_encoder_set_complexity(encoder, G729_COMPLEXITY_MAX) != 0;
  wrong += g729_encoder_set_complexity(encoder, G729_COMPLEXITY_MAX + 1) != G729_ERROR_COMPLEXITY;
  wrong += g729_encoder_set_complexity(encoder, -1) != G729_ERROR_COMPLEXITY;
  wrong += g729_encoder_set_complexity(NULL, 0) != G729_ERROR_NULL;
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
  for (int bits = 0; bits < 200; ++bits) {
    const uint16_t sized[202] = {G729_SERIAL_SYNC, (uint16_t)bits};
    const int frame = bits == 0 || bits == 16 || bits == 64 || bits == 80 || bits == 118;
    const int32_t expected = frame ? 0 : G729_ERROR_SIZE;
    wrong += g729_decoder_decode_words(decoder, sized, 202, samples) != expected;
  }
  wrong += g729_encoder_encode_bytes(encoder, samples, bytes, 9) != G729_ERROR_SIZE;
  wrong += g729_encoder_encode_words(encoder, samples, 1, out, 119) != G729_ERROR_SIZE;
  wrong += g729_encoder_encode_words(encoder, samples, 3, out, 120) != G729_ERROR_RATE;
  wrong += g729_encoder_encode_words(NULL, samples, 1, out, 120) != G729_ERROR_NULL;
  wrong += !G729_CHECK_VERSION(1, 0, 20) || G729_CHECK_VERSION(1, 1, 0) || !g729_version()[0];
  g729_encoder_destroy(encoder);
  g729_decoder_destroy(decoder);
  return wrong;
}

int main(void) {
  int wrong = wrong_calls();
  for (int f = 0; f < FRAMES; ++f)
    for (int n = 0; n < G729_FRAME_SAMPLES; ++n)
      tone[f][n] =
          (int16_t)(6000 * sin(2 * 3.14159265 * 300 / 8000 * (G729_FRAME_SAMPLES * f + n)));
  for (int32_t rate = -1; rate <= G729_RATE_11K8; ++rate) wrong += differences(rate);
  if (wrong) printf("%d wrong\n", wrong);
  return wrong != 0;
}
