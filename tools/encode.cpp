#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "codec/g729.h"
#include "tools/batch.h"
#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/progress.h"
#include "tools/stream_io.h"
#include "tools/wav_io.h"

namespace tool {
namespace {

struct EncoderDeleter {
  void operator()(G729EncoderState* encoder) const { g729_encoder_destroy(encoder); }
};

int32_t rate_code(const std::string& rate) {
  return rate == "6.4" ? G729_RATE_6K4 : rate == "8" ? G729_RATE_8K : G729_RATE_11K8;
}

// Refuses what the format cannot hold. A packed stream holds nothing but 10-byte frames; without
// lengths in it, frames of another size or frames that are left out could not be told apart again.
void check_format(StreamFormat format, const std::string& output, const EncodeOptions& options) {
  if (format == StreamFormat::capture) {
    throw Failure(Exit::usage, output + ": captures are only read; write a .g729 or .bit");
  }
  if (format != StreamFormat::packed) return;
  if (options.annexb) {
    throw Failure(Exit::usage, "--annexb: a .g729 stream has no place for silence; write a .bit");
  }
  if (options.rate != "8") {
    throw Failure(Exit::usage,
                  "--rate " + options.rate + ": a .g729 stream is 8 kbit/s only; write a .bit");
  }
}

Exit encode_file(const Job& job, const EncodeOptions& options) {
  const StreamFormat format = stream_format(job.output, options.format);
  check_format(format, job.output, options);
  const InputFile input(job.input);
  WavReader wav(input, options.raw ? SoundForm::raw : SoundForm::any);
  OutputFile output(job.output);
  const std::unique_ptr<G729EncoderState, EncoderDeleter> encoder(
      g729_encoder_create(options.annexb));
  g729_encoder_set_remark_function(
      encoder.get(), [](void*, const char*) {}, nullptr);
  g729_encoder_set_complexity(encoder.get(), options.complexity);
  Progress progress(input.name(), options.batch.threads == 1);
  const int32_t rate = rate_code(options.rate);
  uint64_t done = 0;
  int16_t samples[G729_FRAME_SAMPLES];
  while (const size_t count = wav.read(samples, G729_FRAME_SAMPLES)) {
    std::fill(samples + count, samples + G729_FRAME_SAMPLES, int16_t{0});
    Frame frame;
    g729_encoder_encode_serial(encoder.get(), samples, rate, frame.words.data());
    write_frame(frame, format, output);
    done += count;
    const uint64_t all = std::max(done, wav.samples());
    progress.show(static_cast<double>(done) / static_cast<double>(all));
  }
  if (done == 0) throw Failure(Exit::input, input.name() + ": has no samples");
  output.commit();
  if (wav.missing_bytes() == 0) return Exit::ok;
  say(input.name() + ": ends early; encoded the " + std::to_string(done) + " samples there are, " +
      std::to_string(wav.missing_bytes()) + " bytes are missing");
  return Exit::truncated;
}

}  // namespace

Exit run_encode(const EncodeOptions& options) {
  const bool plain = options.rate == "8" && !options.annexb;
  const std::string suffix = options.format.empty() ? (plain ? "g729" : "bit") : options.format;
  return run_jobs(plan_jobs(options.names, "." + suffix), options.batch,
                  [&](const Job& job) { return encode_file(job, options); });
}

}  // namespace tool
