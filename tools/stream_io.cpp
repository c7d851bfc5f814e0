#include "tools/stream_io.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>

#include "tools/failure.h"

namespace tool {
namespace {

constexpr int kPackedBits = 8 * G729_SPEECH_BYTES;
// Frame lost on the way, as channel simulators mark it.
constexpr uint16_t kSyncErased = 0x6B20;

std::string hexadecimal(uint16_t word) {
  char text[sizeof "0x0000"];
  std::snprintf(text, sizeof text, "0x%04X", static_cast<unsigned>(word));
  return text;
}

// The words of a byte's bits, the highest bit first.
constexpr auto kByteWords = [] {
  std::array<std::array<uint16_t, 8>, 256> words{};
  for (unsigned byte = 0; byte < words.size(); ++byte)
    for (unsigned bit = 0; bit < 8; ++bit)
      words[byte][bit] = byte >> (7 - bit) & 1 ? G729_SERIAL_ONE : G729_SERIAL_ZERO;
  return words;
}();

}  // namespace

StreamFormat stream_format(const std::string& path, const std::string& option) {
  if (path.empty()) {
    throw Failure(Exit::usage, "a file name is empty; is a shell variable unset?");
  }
  const std::string suffix = std::filesystem::path(path).extension();
  if (option == "g729" || (option.empty() && suffix == ".g729")) return StreamFormat::packed;
  if (option == "bit" || (option.empty() && suffix == ".bit")) return StreamFormat::serial;
  const bool captured = suffix == ".pcap" || suffix == ".pcapng" || suffix == ".cap";
  if (option == "pcap" || (option.empty() && captured)) return StreamFormat::capture;
  if (path == "-") {
    throw Failure(
        Exit::usage,
        "-: what is there? --format g729, --format bit or, to be read, --format pcap tells");
  }
  throw Failure(Exit::usage,
                path + ": a stream's name ends in .g729 or .bit; else say --format g729 or bit");
}

DecoderHandle make_decoder() {
  DecoderHandle decoder(g729_decoder_create());
  g729_decoder_set_remark_function(
      decoder.get(), [](void*, const char*) {}, nullptr);
  return decoder;
}

void decode(const DecoderHandle& decoder, const Frame& frame, int16_t* samples) {
  if (frame.lost) {
    g729_decoder_conceal(decoder.get(), samples);
  } else {
    g729_decoder_decode_serial(decoder.get(), frame.words.data(), samples);
  }
}

bool Frame::erased() const {
  if (lost) return true;
  if (bits() == 0) return words[0] != G729_SERIAL_SYNC;
  const auto first = words.begin() + 2;
  return std::find(first, first + bits(), G729_SERIAL_ERASED) != first + bits();
}

void Frame::erase(int bits) {
  words.fill(G729_SERIAL_ERASED);
  words[0] = G729_SERIAL_SYNC;
  words[1] = static_cast<uint16_t>(bits);
}

void Frame::lose() {
  unpack({});
  lost = true;
}

void Frame::unpack(std::span<const uint8_t> bytes) {
  lost = false;
  words[0] = G729_SERIAL_SYNC;
  words[1] = static_cast<uint16_t>(8 * bytes.size());
  for (size_t i = 0; i < bytes.size(); ++i) {
    const auto& bits = kByteWords[bytes[i]];
    std::copy(bits.begin(), bits.end(), words.begin() + 2 + static_cast<ptrdiff_t>(8 * i));
  }
}

bool FrameReader::next(Frame* frame) {
  frame->lost = false;
  const bool whole = format_ == StreamFormat::packed ? next_packed(frame) : next_serial(frame);
  if (std::ferror(input_.file())) throw Failure(Exit::input, input_.name() + ": cannot read on");
  if (whole) ++frames_;
  return whole;
}

double FrameReader::progress() const {
  return static_cast<double>(position_) / static_cast<double>(input_.size());
}

bool FrameReader::next_packed(Frame* frame) {
  uint8_t bytes[G729_SPEECH_BYTES];
  const size_t count = std::fread(bytes, 1, sizeof bytes, input_.file());
  if (count < sizeof bytes) {
    dropped_ = count;
    return false;
  }
  position_ += count;
  frame->unpack(bytes);
  return true;
}

bool FrameReader::next_serial(Frame* frame) {
  if (!read_words(frame->words.data(), 2)) return false;
  check_header(frame->words[0], frame->words[1]);
  if (!read_words(frame->words.data() + 2, frame->words[1])) return false;
  check_bits(*frame);
  position_ += 2 * (2 + frame->words[1]);
  if (frame->words[0] == kSyncErased && frame->bits() > 0) frame->erase(frame->bits());
  return true;
}

// False at the end of the file, after counting what is left of a frame.
bool FrameReader::read_words(uint16_t* words, size_t count) {
  uint8_t bytes[sizeof(Frame::words)];
  if (std::fread(bytes, 2, count, input_.file()) < count) {
    dropped_ = input_.size() - position_;
    return false;
  }
  for (size_t i = 0; i < count; ++i) {
    words[i] = static_cast<uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
  }
  return true;
}

void FrameReader::check_header(uint16_t sync, uint16_t bits) const {
  if (sync == 0x216B) fail("its words are big-endian; swap the bytes of every word");
  if (sync != G729_SERIAL_SYNC && sync != kSyncErased) {
    fail("sync word " + hexadecimal(sync) +
         " where 0x6B21 belongs; no ITU serial stream, or damaged");
  }
  for (const int known : {0, 16, 64, 80, 118}) {
    if (bits == known) return;
  }
  fail("frame of " + std::to_string(bits) +
       " bits, but G.729 frames have 0, 16, 64, 80 or 118; damaged, or another codec's");
}

void FrameReader::check_bits(const Frame& frame) const {
  for (int i = 0; i < frame.bits(); ++i) {
    const uint16_t word = frame.words[static_cast<size_t>(2 + i)];
    if (word != G729_SERIAL_ZERO && word != G729_SERIAL_ONE && word != G729_SERIAL_ERASED) {
      fail("bit word " + hexadecimal(word) + " is none of 0x007F, 0x0081, 0x0000; damaged");
    }
  }
}

void FrameReader::fail(const std::string& what) const {
  throw Failure(Exit::input, input_.name() + ": frame " + std::to_string(frames_ + 1) + " (byte " +
                                 std::to_string(position_) + "): " + what);
}

void write_frame(const Frame& frame, StreamFormat format, const OutputFile& output) {
  std::array<uint8_t, sizeof(Frame::words)> bytes{};
  size_t count = 0;
  if (format == StreamFormat::packed) {
    for (size_t bit = 0; bit < kPackedBits; ++bit) {
      if (frame.words[2 + bit] == G729_SERIAL_ONE) {
        bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] | 0x80 >> bit % 8);
      }
    }
    count = G729_SPEECH_BYTES;
  } else {
    for (size_t i = 0; i < 2U + frame.words[1]; ++i) {
      bytes[count++] = static_cast<uint8_t>(frame.words[i] & 0xFF);
      bytes[count++] = static_cast<uint8_t>(frame.words[i] >> 8);
    }
  }
  if (std::fwrite(bytes.data(), 1, count, output.file()) != count) {
    throw Failure(Exit::output, output.name() + ": cannot write; is the disk full?");
  }
}

}  // namespace tool
