/* The codec's frame interface: one 10 ms frame of 80 samples (8000 Hz, mono, 16 bit) a call.
 *
 * A handle is used by one caller at a time and belongs to one call; handles share only constants.
 * No call allocates but create, none fails: a caller that breaks the interface (a serial frame of
 * impossible size, a rate that does not exist) ends the process with a message on standard output.
 */
#ifndef KELG729F_G729_H
#define KELG729F_G729_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
  G729_FRAME_SAMPLES = 80,
  G729_SPEECH_BYTES = 10, /* packed speech frame, 8 kbit/s */
  G729_SID_BYTES = 2,     /* packed silence descriptor (Annex B) */
  G729_SERIAL_WORDS = 122 /* longest serial frame and room to spare */
};

/* Rates of the frame operations. The packed operations run at G729_RATE_8K. */
enum { G729_RATE_6K4 = 0, G729_RATE_8K = 1, G729_RATE_11K8 = 2 };

/* ITU serial format: sync word, number of bits (0, 16, 64, 80 or 118), one word a bit. */
enum {
  G729_SERIAL_SYNC = 0x6B21,
  G729_SERIAL_ZERO = 0x007F,
  G729_SERIAL_ONE = 0x0081,
  G729_SERIAL_ERASED = 0
};

typedef struct G729EncoderState G729EncoderState;
typedef struct G729DecoderState G729DecoderState;

/* annexb: non-zero switches silence compression on. */
G729EncoderState* g729_encoder_create(int32_t annexb);
void g729_encoder_destroy(G729EncoderState* encoder);

/* Encodes samples[80] at 8 kbit/s. *size becomes 10 (speech), 2 (silence descriptor) or 0 (nothing
 * to send; bytes is then not touched). bytes has room for 10. */
void g729_encoder_encode_frame(G729EncoderState* encoder, const int16_t* samples, uint8_t* bytes,
                               uint32_t* size);

/* Encodes samples[80] at the given rate, which may change from frame to frame, into a serial frame
 * of at most 120 words. */
void g729_encoder_encode_serial(G729EncoderState* encoder, const int16_t* samples, int32_t rate,
                                uint16_t* serial);

G729DecoderState* g729_decoder_create(void);
void g729_decoder_destroy(G729DecoderState* decoder);

/* Decodes size bytes: 10 speech at 8 kbit/s, 8 speech at 6.4 kbit/s, 2 a silence descriptor, 0 an
 * untransmitted frame (bytes may be NULL then). Always writes samples[80]. */
void g729_decoder_decode_frame(G729DecoderState* decoder, const uint8_t* bytes, uint32_t size,
                               int16_t* samples);

/* Decodes a serial frame of any type. A frame is erased, and concealed, when any of its bit words
 * is 0, or when it has no bits and a sync word other than 0x6B21. Always writes samples[80]. */
void g729_decoder_decode_serial(G729DecoderState* decoder, const uint16_t* serial,
                                int16_t* samples);

#ifdef __cplusplus
}
#endif

#endif
