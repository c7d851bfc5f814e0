#include "tools/capture/capture.h"

#include <pcap/pcap.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "tools/capture/rtp.h"
#include "tools/failure.h"

namespace tool {
namespace {

// From here on a call's ends agree on what a payload type is.
constexpr int kFirstDynamicType = 96;

// Two sources of one flow this close together are one after the other.
constexpr int64_t kOverlap = kSecond / 2;

struct CaptureCloser {
  void operator()(pcap_t* capture) const { pcap_close(capture); }
};
using CaptureHandle = std::unique_ptr<pcap_t, CaptureCloser>;

CaptureHandle open_capture(const InputFile& input) {
  char reason[PCAP_ERRBUF_SIZE] = "";
  FileHandle file(fdopen(dup(fileno(input.file())), "rb"));
  CaptureHandle capture(
      pcap_fopen_offline_with_tstamp_precision(file.get(), PCAP_TSTAMP_PRECISION_NANO, reason));
  if (!capture) throw Failure(Exit::input, input.name() + ": no capture file (" + reason + ")");
  file.release();  // the capture closes it
  return capture;
}

Link link_of(pcap_t* capture, const std::string& name) {
  const int type = pcap_datalink(capture);
  switch (type) {
    case DLT_EN10MB:
      return Link::ethernet;
    case DLT_LINUX_SLL:
      return Link::cooked;
    case DLT_LINUX_SLL2:
      return Link::cooked2;
    case DLT_RAW:
    case DLT_IPV4:
    case DLT_IPV6:
      return Link::ip;
  }
  const char* found = pcap_datalink_val_to_name(type);
  throw Failure(Exit::input, name + ": captured from a link of type " +
                                 (found ? found : std::to_string(type)) +
                                 "; Ethernet, Linux cooked and raw IP are read");
}

// A file may hold any time; 32 bits of its seconds are kept. The fraction is nanoseconds.
int64_t time_of(const pcap_pkthdr& header) {
  return static_cast<uint32_t>(header.ts.tv_sec) * kSecond +
         static_cast<uint32_t>(header.ts.tv_usec);
}

struct Source {
  Flow flow;
  uint32_t ssrc;

  auto operator<=>(const Source&) const = default;
};

using Streams = std::map<Source, RtpStream>;

void add_packet(Bytes bytes, Link link, int64_t time, const CaptureOptions& options,
                Streams* streams, Capture* capture) {
  const Datagram datagram = find_datagram(bytes, link);
  if (datagram.content == Content::fragment) ++capture->fragments;
  const bool whole = datagram.content == Content::datagram;
  if (!whole && datagram.content != Content::cut) return;
  const auto packet = parse_rtp(datagram.payload, whole);
  if (!packet || (options.ssrc && packet->ssrc != *options.ssrc)) return;
  const Source source{datagram.flow, packet->ssrc};
  if (packet->payload_type == options.payload_type) {
    RtpStream& stream = (*streams)[source];
    whole ? stream.add(*packet, time) : stream.add_cut();
    return;
  }
  const auto known = streams->find(source);
  if (!whole) {
    if (known != streams->end()) known->second.add_cut();
    return;
  }
  if (packet->payload_type >= kFirstDynamicType) {
    if (const auto parts = parse_redundant(packet->payload, options.payload_type)) {
      (*streams)[source].add(*packet, *parts, time);
      return;
    }
  }
  if (known != streams->end()) known->second.add_other(*packet, time);
}

// Appends a stream to the direction that it continues, or else as one of its own.
void append(const Source& source, RtpStream stream, std::vector<Direction>* directions) {
  for (Direction& direction : *directions) {
    if (direction.flow == source.flow && direction.end() <= stream.begin() + kOverlap) {
      direction.parts.push_back({source.ssrc, std::move(stream)});
      return;
    }
  }
  directions->push_back({source.flow, {}});
  directions->back().parts.push_back({source.ssrc, std::move(stream)});
}

std::vector<Direction> sort_out(Streams* streams) {
  std::vector<Streams::value_type*> found;
  for (auto& entry : *streams) {
    if (!entry.second.plausible()) continue;
    entry.second.finish();
    found.push_back(&entry);
  }
  std::stable_sort(found.begin(), found.end(), [](const auto* a, const auto* b) {
    return a->second.begin() < b->second.begin();
  });
  std::vector<Direction> directions;
  for (auto* entry : found) append(entry->first, std::move(entry->second), &directions);
  return directions;
}

std::string nothing_found(const Capture& capture, const Streams& streams,
                          const CaptureOptions& options) {
  uint64_t cut = 0;
  for (const auto& [source, stream] : streams) cut += stream.cut();
  const std::string advice = " captured only in part; capture whole packets (tcpdump -s 0)";
  if (cut) return "its packets were" + advice;
  std::string reason = "no stream of RTP payload type " + std::to_string(options.payload_type) +
                       " in " + std::to_string(capture.packets) + " packets";
  if (capture.fragments) {
    reason += " (" + std::to_string(capture.fragments) + " of them fragments, which are skipped)";
  }
  if (capture.cut) return reason + ", " + std::to_string(capture.cut) + " of them" + advice;
  if (options.ssrc) return reason + " with that SSRC";
  return reason + "; --payload-type names another";
}

bool overlap(const Direction& a, const Direction& b) {
  return a.begin() <= b.end() && b.begin() <= a.end();
}

bool same_hosts(const Flow& a, const Flow& b) {
  return a.from.address == b.to.address && a.to.address == b.from.address;
}

// How well one direction answers another.
enum class Match { none, only_two, hosts, ports };

Match match(const Direction& a, const Direction& b, bool only_two) {
  if (!overlap(a, b)) return Match::none;
  if (a.flow == b.flow.reversed()) return Match::ports;
  if (same_hosts(a.flow, b.flow)) return Match::hosts;
  return only_two ? Match::only_two : Match::none;
}

}  // namespace

Capture read_capture(const InputFile& input, const CaptureOptions& options) {
  const CaptureHandle handle = open_capture(input);
  const Link link = link_of(handle.get(), input.name());
  Capture capture;
  Streams streams;
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  int status;
  while ((status = pcap_next_ex(handle.get(), &header, &data)) == 1) {
    const int64_t time = time_of(*header);
    if (capture.packets++ == 0) capture.begin = time;
    capture.cut += header->caplen < header->len;
    add_packet({data, header->caplen}, link, time, options, &streams, &capture);
  }
  if (status == PCAP_ERROR) capture.fault = pcap_geterr(handle.get());
  capture.directions = sort_out(&streams);
  if (!capture.directions.empty()) return capture;
  const std::string fault = capture.fault.empty() ? "" : " (" + capture.fault + ")";
  throw Failure(Exit::input,
                input.name() + ": " + nothing_found(capture, streams, options) + fault);
}

std::vector<std::vector<size_t>> recordings(const Capture& capture, bool stereo) {
  const std::vector<Direction>& all = capture.directions;
  std::vector<std::vector<size_t>> groups;
  std::vector<bool> taken(all.size());
  for (size_t i = 0; i < all.size(); ++i) {
    if (taken[i]) continue;
    groups.push_back({i});
    if (!stereo) continue;
    const auto with = [&](size_t k) {
      return taken[k] ? Match::none : match(all[i], all[k], all.size() == 2);
    };
    taken[i] = true;
    size_t best = i;
    for (size_t k = i; k < all.size(); ++k) {
      if (with(k) > with(best)) best = k;
    }
    if (with(best) == Match::none) continue;
    groups.back().push_back(best);
    taken[best] = true;
  }
  return groups;
}

}  // namespace tool
