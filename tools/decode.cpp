#include <array>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "codec/g729.h"
#include "tools/batch.h"
#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/loss.h"
#include "tools/parity.h"
#include "tools/progress.h"
#include "tools/stream_io.h"
#include "tools/wav_io.h"

namespace tool {
namespace {

void check_output(const std::string& path) {
  const std::filesystem::path suffix = std::filesystem::path(path).extension();
  if (!suffix.empty() && suffix != ".wav") {
    throw Failure(Exit::usage, path + ": decoded audio is a WAV file; end its name in .wav");
  }
}

Exit report(const FrameReader& reader, const Channel& channel, const Parity& parity,
            const std::string& name) {
  if (parity.foreign()) say(name + ": " + parity.remark());
  if (channel.lost()) {
    say(name + ": " + std::to_string(channel.lost()) + " of " + std::to_string(reader.frames()) +
        " frames erased");
  }
  if (reader.dropped_bytes() == 0) return Exit::ok;
  say(name + ": ends in the middle of a frame; decoded " + std::to_string(reader.frames()) +
      " whole frames, dropped the last " + std::to_string(reader.dropped_bytes()) + " bytes");
  return Exit::truncated;
}

Exit decode_stream(const Job& job, StreamFormat format, const DecodeOptions& options) {
  const InputFile input(job.input);
  FrameReader reader(input, format);
  OutputFile output(job.output);
  WavWriter wav(output, 1, options.raw);
  Channel channel(options);
  Parity parity;
  const DecoderHandle decoder = make_decoder();
  {
    Progress progress(input.name(), options.batch.threads == 1);
    Frame frame;
    int16_t samples[G729_FRAME_SAMPLES];
    while (reader.next(&frame)) {
      parity.look(frame);
      channel.pass(&frame);
      decode(decoder, frame, samples);
      wav.write(samples, G729_FRAME_SAMPLES);
      progress.show(reader.progress());
    }
  }
  if (reader.frames() == 0) throw Failure(Exit::input, input.name() + ": has no whole frame");
  wav.close();
  output.commit();
  return report(reader, channel, parity, input.name());
}

Exit decode_file(const Job& job, const DecodeOptions& options,
                 const std::set<std::string>& outputs) {
  const StreamFormat format = stream_format(job.input, options.format);
  if (!options.raw) check_output(job.output);
  if (format == StreamFormat::capture) return decode_capture(job, options, outputs);
  if (options.stereo) {
    throw Failure(Exit::usage, job.input + ": --stereo is for captures; a stream has one channel");
  }
  return decode_stream(job, format, options);
}

}  // namespace

Exit run_decode(const DecodeOptions& options) {
  loss_model(options);  // refuses what no model can do before anything is written
  const std::vector<Job> jobs = plan_jobs(options.names, options.raw ? ".raw" : ".wav");
  std::set<std::string> outputs;
  for (const Job& job : jobs) outputs.insert(job.output);
  return run_jobs(jobs, options.batch,
                  [&](const Job& job) { return decode_file(job, options, outputs); });
}

}  // namespace tool
