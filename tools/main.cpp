#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "codec/g729.h"
#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/files.h"

namespace {

using tool::Exit;

constexpr const char* kFooter =
    "A .g729 file is a packed stream: 10-byte frames of 8 kbit/s, nothing else. A .bit file is an\n"
    "ITU serial stream (16-bit little-endian words) and carries every rate, silence and erasures.\n"
    "WAV files to encode may have any rate and channels, others are 8000 Hz. \"-\" is standard "
    "input\n"
    "or output.\n"
    "Exit status: 0 done, 2 bad usage, 3 bad input, 4 output cannot be written, 5 done but an\n"
    "input was cut short. An output appears under its name only when it is complete.";

constexpr const char* kFormatHelp = "stream format where the suffix does not tell";

CLI::Validator number_from(double least, double greatest) {
  const std::string range =
      CLI::detail::to_string(least) + " to " + CLI::detail::to_string(greatest);
  return CLI::Validator(
      [=](std::string& text) {
        double value;
        const bool number = CLI::detail::lexical_cast(text, value);
        const bool inside = number && value >= least && value <= greatest;
        return inside ? std::string() : text + " is no number from " + range;
      },
      "");
}

// With 0x in front or without.
uint32_t to_ssrc(const std::string& text) {
  const bool prefixed = text.starts_with("0x") || text.starts_with("0X");
  const char* end = text.data() + text.size();
  uint32_t ssrc;
  const auto [at, error] = std::from_chars(text.data() + (prefixed ? 2 : 0), end, ssrc, 16);
  if (error == std::errc() && at == end) return ssrc;
  throw CLI::ValidationError(text + " is no SSRC, up to eight hexadecimal digits");
}

// Files by command: inputs, and behind them the output where there is one.
void add_files(CLI::App* app, std::vector<std::string>* names, const std::string& help) {
  app->add_option("FILES", *names, help)->required();
}

void add_format(CLI::App* app, std::string* format, std::set<std::string> formats) {
  app->add_option("--format", *format, kFormatHelp)->check(CLI::IsMember(formats));
}

void add_batch(CLI::App* app, tool::BatchOptions* options) {
  app->add_option("-j,--jobs", options->threads, "files that are worked on at a time")
      ->check(number_from(1, tool::kMostThreads));
  app->add_flag("--resume", options->resume, "leave out outputs that are there and not older");
}

void add_encode(CLI::App* app, tool::EncodeOptions* options) {
  add_files(app, &options->names, "IN.wav... OUT.g729|OUT.bit|FOLDER|-");
  app->add_option("--rate", options->rate, "kbit/s: 6.4, 8 or 11.8")
      ->check(CLI::IsMember({"6.4", "8", "11.8"}));
  app->add_option("--complexity", options->complexity,
                  "0 (fastest) to 3 (best sound); 0 unless given")
      ->check(number_from(0, G729_COMPLEXITY_MAX));
  app->add_flag("--annexb", options->annexb, "silence compression; needs a .bit output");
  app->add_flag("--raw", options->raw, "the input has no header: 8000 Hz mono, 16 bit LE");
  add_batch(app, &options->batch);
  add_format(app, &options->format, {"g729", "bit"});
}

void add_capture(CLI::App* app, tool::CaptureOptions* options) {
  app->add_option("--payload-type", options->payload_type, "of G.729 in a capture; 18 unless given")
      ->check(number_from(0, 127));
  app->add_option_function<std::string>(
      "--ssrc", [=](const std::string& text) { options->ssrc = to_ssrc(text); },
      "of a capture, only this source (hexadecimal)");
}

void add_decode(CLI::App* app, tool::DecodeOptions* options) {
  add_files(app, &options->names, "IN.g729|IN.bit|IN.pcap... OUT.wav|FOLDER|-");
  add_format(app, &options->format, {"g729", "bit", "pcap"});
  add_capture(app, &options->capture);
  app->add_flag("--raw", options->raw, "write samples without a header, 16 bit LE");
  add_batch(app, &options->batch);
  app->add_flag("--stereo", options->stereo, "of a capture, both directions as two channels");
  app->add_option("--loss", options->loss, "per cent of the frames to erase")
      ->check(number_from(0, 100));
  app->add_option("--burst", options->burst, "mean number of frames lost in a row")
      ->check(number_from(1, 1000));
  app->add_option("--seed", options->seed, "another seed loses other frames")
      ->check(number_from(0, 4294967295.0));
}

void add_info(CLI::App* app, tool::InfoOptions* options) {
  add_files(app, &options->names, "IN.g729|IN.bit|IN.pcap|-...");
  add_format(app, &options->format, {"g729", "bit", "pcap"});
  add_capture(app, &options->capture);
  app->add_flag("--json", options->json, "print JSON");
}

void add_compare(CLI::App* app, tool::CompareOptions* options) {
  app->add_option("REFERENCE", options->reference, "the original WAV")->required();
  app->add_option("OUTPUT", options->output, "the decoded WAV")->required();
  app->add_flag("--json", options->json, "print JSON");
}

void add_rating(CLI::App* app, tool::RatingOptions* options) {
  app->add_option("--loss", options->loss, "per cent of the packets that were not there in time")
      ->check(number_from(0, 100));
  app->add_option("--burst-ratio", options->burst_ratio,
                  "packets lost in a row against random loss")
      ->check(number_from(0.1, 1000));
  app->add_option("--delay", options->delay, "from mouth to ear, ms")->check(number_from(0, 10000));
  app->add_flag("--json", options->json, "print JSON");
}

// The reason on one line, wherever the parser breaks its own.
Exit refuse(const CLI::ParseError& error) {
  std::string reason = error.what();
  reason.resize(std::min(reason.find('\n'), reason.size()));
  tool::say(reason + " (kelg729f --help tells more)");
  return Exit::usage;
}

Exit run(int argc, char** argv) {
  CLI::App app("G.729 speech codec: encode, decode and look into files", "kelg729f");
  app.footer(kFooter);
  app.set_version_flag("--version", KELG729F_VERSION);
  app.require_subcommand(0, 1);
  tool::EncodeOptions encode;
  tool::DecodeOptions decode;
  tool::InfoOptions info;
  tool::CompareOptions compare;
  add_encode(app.add_subcommand("encode", "WAV to G.729"), &encode);
  add_decode(app.add_subcommand("decode", "G.729 to WAV"), &decode);
  add_info(app.add_subcommand("info", "frames by type, duration, bit rate"), &info);
  add_compare(app.add_subcommand("compare", "measure a decoded WAV against the original"),
              &compare);
  tool::RatingOptions rating;
  add_rating(app.add_subcommand("rating", "R and MOS of a call by ITU-T G.107"), &rating);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& success) {
    return static_cast<Exit>(app.exit(success));
  } catch (const CLI::ParseError& error) {
    return refuse(error);
  }
  if (app.got_subcommand("encode")) return tool::run_encode(encode);
  if (app.got_subcommand("decode")) return tool::run_decode(decode);
  if (app.got_subcommand("info")) return tool::run_info(info);
  if (app.got_subcommand("compare")) return tool::run_compare(compare);
  if (app.got_subcommand("rating")) return tool::run_rating(rating);
  throw tool::Failure(Exit::usage, "name a command: encode, decode, info, compare or rating");
}

}  // namespace

void tool::say(const std::string& message) {
  std::fprintf(stderr, "kelg729f: %s\n", message.c_str());
}

int main(int argc, char** argv) {
  tool::guard_standard_streams();
  tool::clean_up_on_signals();
  Exit status;
  try {
    status = run(argc, argv);
    tool::finish_standard_output();
  } catch (const std::exception& error) {
    status = tool::complain(error);
  }
  return static_cast<int>(status);
}
