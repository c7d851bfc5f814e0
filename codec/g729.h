/* The codec's frame interface: one 10 ms frame of 80 samples (8000 Hz, mono, 16 bit) a call.
 *
 * A handle is used by one caller at a time and belongs to one call; handles share only constants.
 * No call allocates but create. What can be wrong with a caller's arguments is refused by
 * g729_encoder_set_complexity, g729_encoder_encode_bytes, g729_encoder_encode_words,
 * g729_decoder_decode_bytes and g729_decoder_decode_words, which leave handle and output as they
 * were. The others trust their caller: a serial frame of impossible size or a rate that does not
 * exist ends the process with a message on standard output.
 */
#ifndef KELG729F_G729_H
#define KELG729F_G729_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define G729_API __attribute__((visibility("default")))
#else
#define G729_API
#endif

/* Version of this header; g729_version() tells the library's. */
#define G729_VERSION_MAJOR 1
#define G729_VERSION_MINOR 0
#define G729_VERSION_MICRO 20
#define G729_CHECK_VERSION(major, minor, micro) \
  (G729_VERSION_MAJOR > (major) ||              \
   (G729_VERSION_MAJOR == (major) &&            \
    (G729_VERSION_MINOR > (minor) ||            \
     (G729_VERSION_MINOR == (minor) && G729_VERSION_MICRO >= (micro)))))
G729_API const char* g729_version(void); /* "1.0.20" */

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

/* Why a call was refused. */
enum {
  G729_ERROR_SIZE = -1, /* no frame has that size, or there is no room for one */
  G729_ERROR_RATE = -2,
  G729_ERROR_NULL = -3, /* a handle or buffer is missing */
  G729_ERROR_COMPLEXITY = -4
};

typedef struct G729EncoderState G729EncoderState;
typedef struct G729DecoderState G729DecoderState;

/* annexb: non-zero switches silence compression on. NULL without memory. */
G729_API G729EncoderState* g729_encoder_create(int32_t annexb);
G729_API void g729_encoder_destroy(G729EncoderState* encoder);

/* How far the encoder searches from its next frame on: 0 (at the start) to G729_COMPLEXITY_MAX,
 * each level better and slower than the one below it. Any decoder plays what comes out. Returns 0,
 * or an error below 0, which leaves the level as it was. */
enum { G729_COMPLEXITY_MAX = 3 };
G729_API int32_t g729_encoder_set_complexity(G729EncoderState* encoder, int32_t complexity);

/* Encodes samples[80] at 8 kbit/s. *size becomes 10 (speech), 2 (silence descriptor) or 0 (nothing
 * to send; bytes is then not touched). bytes has room for 10. */
G729_API void g729_encoder_encode_frame(G729EncoderState* encoder, const int16_t* samples,
                                        uint8_t* bytes, uint32_t* size);

/* Encodes samples[80] at the given rate, which may change from frame to frame, into a serial frame
 * of at most 120 words. */
G729_API void g729_encoder_encode_serial(G729EncoderState* encoder, const int16_t* samples,
                                         int32_t rate, uint16_t* serial);

/* The same, refusing what is wrong: room is that of the output, 10 bytes or 120 words at least.
 * Return the number of bytes or words, or an error below 0. */
G729_API int32_t g729_encoder_encode_bytes(G729EncoderState* encoder, const int16_t* samples,
                                           uint8_t* bytes, size_t room);
G729_API int32_t g729_encoder_encode_words(G729EncoderState* encoder, const int16_t* samples,
                                           int32_t rate, uint16_t* words, size_t room);

G729_API G729DecoderState* g729_decoder_create(void);
G729_API void g729_decoder_destroy(G729DecoderState* decoder);

/* Decodes size bytes: 10 speech at 8 kbit/s, 8 speech at 6.4 kbit/s, 2 a silence descriptor, 0 an
 * untransmitted frame (bytes may be NULL then). Always writes samples[80]. */
G729_API void g729_decoder_decode_frame(G729DecoderState* decoder, const uint8_t* bytes,
                                        uint32_t size, int16_t* samples);

/* Decodes a serial frame of any type. A frame is erased, and concealed, when any of its bit words
 * is 0, or when it has no bits and a sync word other than 0x6B21. Always writes samples[80]. */
G729_API void g729_decoder_decode_serial(G729DecoderState* decoder, const uint16_t* serial,
                                         int16_t* samples);

/* The same, refusing what is wrong: count words are there, of which the frame may use fewer.
 * Return 0, or an error below 0. */
G729_API int32_t g729_decoder_decode_bytes(G729DecoderState* decoder, const uint8_t* bytes,
                                           size_t size, int16_t* samples);
G729_API int32_t g729_decoder_decode_words(G729DecoderState* decoder, const uint16_t* words,
                                           size_t count, int16_t* samples);

/* Stands in for a frame that was lost: writes samples[80] of concealment. In a pause, when the last
 * frame was no speech, comfort noise goes on. */
G729_API void g729_decoder_conceal(G729DecoderState* decoder, int16_t* samples);

/* What is odd in a frame but allowed makes a remark: "warning LSP Low \n", "warning LSP High \n" or
 * " ! Wrong Pitch 1st subfr. !   " (a wrong parity bit). Remarks go to standard output; with a
 * function they go to it instead, from within the frame's call. The text is constant; the function
 * must not use the handle. NULL: standard output again. */
typedef void (*G729RemarkFunction)(void* user, const char* text);
G729_API void g729_encoder_set_remark_function(G729EncoderState* encoder,
                                               G729RemarkFunction function, void* user);
G729_API void g729_decoder_set_remark_function(G729DecoderState* decoder,
                                               G729RemarkFunction function, void* user);

#ifdef __cplusplus
}
#endif

#endif
