// Files of coded frames, read and written frame by frame in the ITU serial form.
#ifndef KELG729F_TOOLS_STREAM_IO_H
#define KELG729F_TOOLS_STREAM_IO_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "codec/g729.h"
#include "tools/files.h"

namespace tool {

enum class StreamFormat {
  packed,  // .g729: 10-byte speech frames at 8 kbit/s, nothing else
  serial,  // .bit: ITU serial frames of 16-bit little-endian words, every rate and frame type
  capture  // .pcap, .pcapng: packets of a network; read only, by what is in tools/capture
};

// By the option --format ("g729", "bit", "pcap" or empty), else by the name's suffix.
// Throws Failure when neither tells.
StreamFormat stream_format(const std::string& path, const std::string& option);

struct DecoderDeleter {
  void operator()(G729DecoderState* decoder) const { g729_decoder_destroy(decoder); }
};
using DecoderHandle = std::unique_ptr<G729DecoderState, DecoderDeleter>;

// One that keeps its remarks to itself: a damaged stream would make thousands.
DecoderHandle make_decoder();

struct Frame {
  std::array<uint16_t, G729_SERIAL_WORDS> words{};

  int bits() const { return words[1]; }
  bool erased() const;  // lost, or such that the decoder takes it for erased
  void erase(int bits);
  void lose();
  // A packed frame of 10 bytes (speech), 2 (a silence descriptor) or none (untransmitted).
  void unpack(std::span<const uint8_t> bytes);

  bool lost = false;  // never arrived; then there are no bits
};

// Writes samples[G729_FRAME_SAMPLES].
void decode(const DecoderHandle& decoder, const Frame& frame, int16_t* samples);

class FrameReader {
 public:
  FrameReader(const InputFile& input, StreamFormat format) : input_(input), format_(format) {}

  // False at the end. Never yields a frame that the codec cannot take: throws Failure instead.
  bool next(Frame* frame);

  uint64_t frames() const { return frames_; }
  uint64_t dropped_bytes() const { return dropped_; }  // behind the last whole frame
  double progress() const;                             // 0 to 1, after the first frame

 private:
  bool next_packed(Frame* frame);
  bool next_serial(Frame* frame);
  bool read_words(uint16_t* words, size_t count);
  void check_header(uint16_t sync, uint16_t bits) const;
  void check_bits(const Frame& frame) const;
  [[noreturn]] void fail(const std::string& what) const;

  const InputFile& input_;
  StreamFormat format_;
  uint64_t frames_ = 0;
  uint64_t position_ = 0;  // of the frame being read, in bytes
  uint64_t dropped_ = 0;
};

// Appends a frame; packed streams take speech frames at 8 kbit/s only.
void write_frame(const Frame& frame, StreamFormat format, const OutputFile& output);

}  // namespace tool

#endif
