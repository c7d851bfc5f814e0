#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "codec/g729.h"
#include "tools/batch.h"
#include "tools/capture/capture.h"
#include "tools/capture/rtp_stream.h"
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

// What a direction sounds like, from a given time of the capture on. Silence stands before its
// first stream and where another one follows later; every stream has a decoder of its own.
class Player {
 public:
  Player(const Direction& direction, int64_t from, const DecodeOptions& options)
      : direction_(direction),
        from_(from),
        longest_pause_(options.capture.longest_pause),
        channel_(options) {}

  // The next samples, fewer than count only at the end.
  std::vector<int16_t> read(size_t count) {
    while (ready_.size() < count && (silent_ > 0 || decode_frame() || begin_part())) rest();
    const auto end = ready_.begin() + static_cast<ptrdiff_t>(std::min(count, ready_.size()));
    std::vector<int16_t> samples(ready_.begin(), end);
    ready_.erase(ready_.begin(), end);
    return samples;
  }

  // After the first read().
  double progress() const { return playout_->progress(); }
  const Channel& channel() const { return channel_; }
  const Parity& parity() const { return parity_; }
  bool cut_short() const { return cut_; }

 private:
  void give(const int16_t* samples, size_t count) {
    ready_.insert(ready_.end(), samples, samples + count);
    given_ += static_cast<int64_t>(count);
  }

  // A piece of the silence that is due.
  void rest() {
    static constexpr int16_t kSilence[G729_FRAME_SAMPLES] = {};
    const int64_t count = std::min<int64_t>(silent_, G729_FRAME_SAMPLES);
    give(kSilence, static_cast<size_t>(count));
    silent_ -= count;
  }

  bool decode_frame() {
    Frame frame;
    if (!playout_ || !playout_->next(&frame)) return false;
    parity_.look(frame);
    channel_.pass(&frame);
    int16_t samples[G729_FRAME_SAMPLES];
    decode(decoder_, frame, samples);
    give(samples, G729_FRAME_SAMPLES);
    return true;
  }

  bool begin_part() {
    cut_ = cut_ || (playout_ && playout_->cut_short());
    if (part_ == direction_.parts.size()) return false;
    const RtpStream& stream = direction_.parts[part_++].stream;
    silent_ = std::max<int64_t>(0, (stream.begin() - from_) / kSampleTime - given_);
    if (silent_ > int64_t{longest_pause_} * kSampleRate) {
      cut_ = true;
      silent_ = 0;
    }
    playout_.emplace(stream, longest_pause_);
    decoder_ = make_decoder();
    return true;
  }

  const Direction& direction_;
  int64_t from_;
  int longest_pause_;
  Channel channel_;
  Parity parity_;
  size_t part_ = 0;  // the next one
  std::optional<Playout> playout_;
  DecoderHandle decoder_;
  std::deque<int16_t> ready_;
  int64_t given_ = 0;
  int64_t silent_ = 0;
  bool cut_ = false;
};

// One channel each, by turns, as long as the longest of them.
void write_channels(std::vector<Player>* players, Progress* progress, WavWriter* wav) {
  const size_t channels = players->size();
  size_t longest;
  do {
    std::vector<int16_t> block(channels * G729_FRAME_SAMPLES);
    longest = 0;
    for (size_t c = 0; c < channels; ++c) {
      const std::vector<int16_t> samples = (*players)[c].read(G729_FRAME_SAMPLES);
      for (size_t at = c; const int16_t sample : samples)
        block[std::exchange(at, at + channels)] = sample;
      longest = std::max(longest, samples.size());
    }
    wav->write(block.data(), longest * channels);
    progress->show(players->front().progress());
  } while (longest);
  wav->close();
}

void remark(const std::vector<Player>& players, const CaptureOptions& options,
            const std::string& name) {
  for (const Player& player : players) {
    if (player.parity().foreign()) say(name + ": " + player.parity().remark());
    if (player.cut_short()) {
      say(name + ": a pause of more than " + std::to_string(options.longest_pause) +
          " s is left out");
    }
    if (player.channel().lost()) {
      say(name + ": " + std::to_string(player.channel().lost()) + " of " +
          std::to_string(player.channel().frames()) + " frames erased");
    }
  }
}

void write_recording(const Capture& capture, const std::vector<size_t>& directions,
                     const std::string& path, const DecodeOptions& options) {
  const int64_t from = capture.directions[directions.front()].begin();  // the first to begin
  std::vector<Player> players;
  for (const size_t d : directions) players.emplace_back(capture.directions[d], from, options);
  OutputFile output(path);
  WavWriter wav(output, static_cast<int>(players.size()), options.raw);
  {
    Progress progress(output.name(), options.batch.threads == 1);
    write_channels(&players, &progress, &wav);
  }
  output.commit();
  remark(players, options.capture, output.name());
}

// call.wav becomes call-1.wav, call-2.wav and so on.
std::string numbered(const std::string& path, size_t number) {
  const std::filesystem::path whole(path);
  return whole.parent_path() /
         (whole.stem().string() + "-" + std::to_string(number) + whole.extension().string());
}

Exit report(const Capture& capture, const std::string& name) {
  uint64_t cut = 0;
  for (const Direction& direction : capture.directions) {
    for (const auto& part : direction.parts) cut += part.stream.cut();
  }
  if (cut) {
    say(name + ": " + std::to_string(cut) +
        " packets were captured only in part and count as lost");
  }
  if (!capture.fault.empty()) {
    say(name + ": ends early (" + capture.fault + "); decoded what there is");
  }
  return cut || !capture.fault.empty() ? Exit::truncated : Exit::ok;
}

}  // namespace

Exit decode_capture(const Job& job, const DecodeOptions& options,
                    const std::set<std::string>& others) {
  const InputFile input(job.input);
  const Capture capture = read_capture(input, options.capture);
  const auto groups = recordings(capture, options.stereo);
  if (groups.size() == 1) {
    write_recording(capture, groups[0], job.output, options);
    return report(capture, input.name());
  }
  if (job.output == "-") {
    throw Failure(Exit::usage, input.name() + ": holds " + std::to_string(groups.size()) +
                                   " recordings; choose by --ssrc, join by --stereo, or name a"
                                   " file instead of standard output");
  }
  for (size_t i = 0; i < groups.size(); ++i) {
    const std::string path = numbered(job.output, i + 1);
    check_job({job.input, path});
    if (others.contains(path)) {
      throw Failure(Exit::usage, path + ": two inputs would be written there; rename one");
    }
  }
  for (size_t i = 0; i < groups.size(); ++i) {
    const std::string path = numbered(job.output, i + 1);
    if (options.batch.resume && is_done(job.input, path)) continue;
    write_recording(capture, groups[i], path, options);
  }
  say(input.name() + ": holds " + std::to_string(groups.size()) + " recordings, written to " +
      numbered(job.output, 1) + " and so on");
  return report(capture, input.name());
}

}  // namespace tool
