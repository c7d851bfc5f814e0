#include <filesystem>
#include <memory>

#include "tools/commands.h"
#include "tools/gilbert_model.h"
#include "tools/progress.h"
#include "tools/stream_io.h"
#include "tools/wav_io.h"

namespace tool {
namespace {

struct DecoderDeleter {
  void operator()(G729DecoderState* decoder) const { g729_decoder_destroy(decoder); }
};

// The bursts asked for, or else losses that are independent of each other.
GilbertModel loss_model(const DecodeOptions& options) {
  const double loss = options.loss / 100.0;
  if (!options.burst) return {loss, options.seed};
  if (loss > GilbertModel::greatest_loss(*options.burst)) {
    throw Failure(Exit::usage,
                  "--loss and --burst: so much loss needs longer bursts; leave --burst"
                  " out or raise it");
  }
  return {loss, *options.burst, options.seed};
}

// Decides frame by frame what the network loses. A lost frame reaches the decoder as an erased one
// of the last speech frame's size; what was never sent cannot be lost.
class Channel {
 public:
  explicit Channel(const DecodeOptions& options) : model_(loss_model(options)) {}

  void pass(Frame* frame) {
    if (frame->bits() >= 64) speech_bits_ = frame->bits();
    const bool lost = model_.next();
    if (!lost || frame->bits() == 0) return;
    frame->erase(speech_bits_);
    ++lost_;
  }
  uint64_t lost() const { return lost_; }

 private:
  GilbertModel model_;
  int speech_bits_ = 80;
  uint64_t lost_ = 0;
};

void check_output(const std::string& path) {
  const bool named = path == "-" || !std::filesystem::path(path).has_extension();
  if (!named && std::filesystem::path(path).extension() != ".wav") {
    throw Failure(Exit::usage, path + ": decoded audio is a WAV file; end its name in .wav");
  }
}

Exit report(const FrameReader& reader, const Channel& channel, const std::string& name) {
  if (channel.lost() > 0) {
    say(name + ": " + std::to_string(channel.lost()) + " of " + std::to_string(reader.frames()) +
        " frames erased");
  }
  if (reader.dropped_bytes() == 0) return Exit::ok;
  say(name + ": ends in the middle of a frame; decoded " + std::to_string(reader.frames()) +
      " whole frames, dropped the last " + std::to_string(reader.dropped_bytes()) + " bytes");
  return Exit::truncated;
}

Exit decode_file(const Job& job, const DecodeOptions& options) {
  const StreamFormat format = stream_format(job.input, options.format);
  check_output(job.output);
  const InputFile input(job.input);
  FrameReader reader(input, format);
  OutputFile output(job.output);
  WavWriter wav(output);
  Channel channel(options);
  const std::unique_ptr<G729DecoderState, DecoderDeleter> decoder(g729_decoder_create());
  {
    Progress progress(input.name());
    Frame frame;
    int16_t samples[G729_FRAME_SAMPLES];
    while (reader.next(&frame)) {
      channel.pass(&frame);
      g729_decoder_decode_serial(decoder.get(), frame.words.data(), samples);
      wav.write(samples, G729_FRAME_SAMPLES);
      progress.update(reader.progress());
    }
  }
  if (reader.frames() == 0) throw Failure(Exit::input, input.name() + ": has no whole frame");
  wav.close();
  output.commit();
  return report(reader, channel, input.name());
}

}  // namespace

Exit run_decode(const DecodeOptions& options) {
  claim_standard_output();
  loss_model(options);  // refuses what no model can do before anything is written
  return for_each_file(plan_jobs(options.names, ".wav"),
                       [&](const Job& job) { return decode_file(job, options); });
}

}  // namespace tool
