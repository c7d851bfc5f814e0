/* Codes raw 16-bit speech from standard input and decodes it again, every tenth packet lost on the
 * way: example <in.raw >out.raw */
#include <kelg729f/g729.h>
#include <stdio.h>

static void remark(void* side, const char* text) {
  fprintf(stderr, "%s: %s\n", (const char*)side, text);
}

int main(void) {
  G729EncoderState* encoder = g729_encoder_create(1);
  G729DecoderState* decoder = g729_decoder_create();
  int16_t samples[G729_FRAME_SAMPLES];
  if (!encoder || !decoder) return 1;
  g729_encoder_set_remark_function(encoder, remark, "encoder");
  g729_decoder_set_remark_function(decoder, remark, "decoder");
  for (int frame = 1; fread(samples, sizeof samples, 1, stdin) == 1; ++frame) {
    uint8_t packet[G729_SPEECH_BYTES];
    const int32_t size = g729_encoder_encode_bytes(encoder, samples, packet, sizeof packet);
    if (frame % 10 == 0)
      g729_decoder_conceal(decoder, samples);
    else if (g729_decoder_decode_bytes(decoder, packet, (size_t)size, samples) < 0)
      return 1;
    fwrite(samples, sizeof samples, 1, stdout);
  }
  g729_encoder_destroy(encoder);
  g729_decoder_destroy(decoder);
  return 0;
}
