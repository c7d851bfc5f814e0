#include "tools/capture/rtp_stream.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "codec/g729.h"

namespace tool {
namespace {

// RFC 3550 clause A.1: how far a sequence number may jump and come late.
constexpr int kMaxDropout = 3000;
constexpr int kMaxMisorder = 100;
// Timestamps that differ by more from the clock's time were set anew by the sender.
constexpr int64_t kGreatestSkew = 10 * 8000;
constexpr int64_t kFarBehind = 2 * 8000;

int32_t distance(uint32_t from, uint32_t to) {
  return static_cast<int32_t>(to - from);
}

int64_t samples_between(int64_t from, int64_t to) {
  return (to - from) / kSampleTime;
}

}  // namespace

void RtpStream::add(const RtpPacket& packet, int64_t time) {
  certain_ = true;
  add_payload(packet, packet.payload, time);
}

void RtpStream::add(const RtpPacket& packet, const RedundantPacket& parts, int64_t time) {
  if (!add_payload(packet, parts.own, time)) return;
  const int64_t sequence = packets_.back().sequence;
  for (const auto& [age, payload] : parts.earlier) {
    if (payload.empty()) continue;
    certain_ = true;
    RtpPacket earlier = packet;
    earlier.timestamp -= age;
    spares_.push_back(store(earlier, payload, sequence, time - age * kSampleTime));
  }
}

void RtpStream::add_other(const RtpPacket& packet, int64_t time) {
  if (packets_.empty()) return;
  const int step = step_to(packet);
  if (step < -kMaxMisorder || step > kMaxDropout) return;
  Packet other = store(packet, {}, highest_ + step, time);
  other.speech = false;
  ++others_;
  take(other);
}

// By how many numbers a packet is ahead of the highest so far.
int RtpStream::step_to(const RtpPacket& packet) const {
  return static_cast<int16_t>(packet.sequence - static_cast<uint16_t>(highest_));
}

// False for what is not taken, or not yet.
bool RtpStream::add_payload(const RtpPacket& packet, Bytes payload, int64_t time) {
  if (!is_g729_size(payload.size())) {
    ++figures_.odd;
    return false;
  }
  if (packets_.empty()) highest_ = packet.sequence;
  const int step = step_to(packet);
  if (step < -kMaxMisorder || step > kMaxDropout) {
    add_far(packet, payload, time);
    return false;
  }
  following_ += !packets_.empty() && step <= kMaxMisorder && !payload.empty();
  if (stray_) ++figures_.odd;
  stray_.reset();
  take(store(packet, payload, highest_ + step, time));
  return true;
}

// A packet far off is a stray; when the next one follows it, the sender has started anew.
void RtpStream::add_far(const RtpPacket& packet, Bytes payload, int64_t time) {
  if (!stray_ || packet.sequence != static_cast<uint16_t>(stray_->sequence + 1)) {
    if (stray_) ++figures_.odd;
    const auto up = static_cast<uint16_t>(packet.sequence - static_cast<uint16_t>(highest_));
    stray_ = store(packet, payload, highest_ + up, time);
    return;
  }
  stray_->fresh = true;
  take(*stray_);
  take(store(packet, payload, stray_->sequence + 1, time));
  stray_.reset();
}

RtpStream::Packet RtpStream::store(const RtpPacket& packet, Bytes payload, int64_t sequence,
                                   int64_t time) {
  const size_t begin = payloads_.size();
  payloads_.insert(payloads_.end(), payload.begin(), payload.end());
  const auto size = static_cast<uint16_t>(payload.size());
  return {sequence, packet.timestamp, time, begin, size, false, false, true};
}

void RtpStream::take(const Packet& packet) {
  if (packet.speech) measure_jitter(packet);
  packets_.push_back(packet);
  packets_.back().late = packet.sequence < highest_;
  highest_ = std::max(highest_, packet.sequence);
}

// Of neighbours in the order of arrival. Sender and capture have clocks of their own; only how the
// packets' distances differ counts.
void RtpStream::measure_jitter(const Packet& packet) {
  if (!packets_.empty()) {
    const double late = static_cast<double>(packet.time - last_time_) / kSampleTime -
                        distance(last_timestamp_, packet.timestamp);
    if (std::abs(late) < kGreatestSkew) jitter_ += (std::abs(late) - jitter_) / 16;
    figures_.jitter += jitter_ / 8;
    figures_.worst_jitter = std::max(figures_.worst_jitter, jitter_ / 8);
  }
  last_time_ = packet.time;
  last_timestamp_ = packet.timestamp;
}

bool RtpStream::plausible() const {
  const uint64_t behind_first = packets_.size() - others_ + figures_.odd - 1;
  return certain_ && following_ >= 2 && 4 * following_ >= 3 * behind_first;
}

void RtpStream::finish() {
  if (stray_) ++figures_.odd;
  figures_.jitter /= static_cast<double>(packets_.size() - others_ - 1);
  sort();
  count_losses();
  recover();
  for (const Packet& packet : packets_) figures_.reordered += packet.late;
}

void RtpStream::sort() {
  const auto before = [](const Packet& a, const Packet& b) { return a.sequence < b.sequence; };
  const auto same = [](const Packet& a, const Packet& b) { return a.sequence == b.sequence; };
  std::stable_sort(spares_.begin(), spares_.end(), before);
  std::stable_sort(packets_.begin(), packets_.end(), before);
  const auto end = std::unique(packets_.begin(), packets_.end(), same);
  figures_.duplicates = static_cast<uint64_t>(packets_.end() - end);
  packets_.erase(end, packets_.end());
}

// Keeps speech only.
void RtpStream::count_losses() {
  std::vector<Packet> speech;
  uint64_t lost = 0;
  for (size_t i = 0; i < packets_.size(); ++i) {
    if (i > 0 && !packets_[i].fresh) {
      lost += static_cast<uint64_t>(packets_[i].sequence - packets_[i - 1].sequence - 1);
    }
    if (!packets_[i].speech) continue;
    speech.push_back(packets_[i]);
    speech.back().lost = std::exchange(lost, 0);
    figures_.lost += speech.back().lost;
  }
  packets_ = std::move(speech);
  figures_.packets = packets_.size();
}

// Puts what was sent again where it is missing.
void RtpStream::recover() {
  if (spares_.empty()) return;
  std::vector<Packet> all;
  for (Packet& packet : packets_) {
    if (packet.lost > 0 && !all.empty()) {
      std::vector<Packet> found = spares_between(all.back(), packet);
      figures_.recovered += found.size();
      packet.lost -= found.size();
      for (Packet& spare : found) {
        spare.lost = packet.lost;  // what is missing still may be before any of them
        all.push_back(spare);
      }
    }
    all.push_back(packet);
  }
  packets_ = std::move(all);
}

// By time, each moment once, no more than are missing. They came with packets behind the gap.
std::vector<RtpStream::Packet> RtpStream::spares_between(const Packet& before,
                                                         const Packet& after) const {
  const auto behind = [](const Packet& spare, int64_t number) { return spare.sequence < number; };
  const auto since = [&](const Packet& p) { return distance(before.timestamp, p.timestamp); };
  std::vector<Packet> found;
  auto spare = std::lower_bound(spares_.begin(), spares_.end(), after.sequence, behind);
  for (; spare != spares_.end() && spare->sequence <= after.sequence + kMaxMisorder; ++spare) {
    if (since(*spare) > 0 && since(*spare) < since(after)) found.push_back(*spare);
  }
  std::stable_sort(found.begin(), found.end(),
                   [&](const Packet& a, const Packet& b) { return since(a) < since(b); });
  const auto same = [](const Packet& a, const Packet& b) { return a.timestamp == b.timestamp; };
  found.erase(std::unique(found.begin(), found.end(), same), found.end());
  found.resize(std::min<size_t>(found.size(), after.lost));
  return found;
}

// The least delay among the first packets stands for none.
int64_t RtpStream::begin() const {
  constexpr size_t kFirst = 50;
  int64_t begin = packets_[0].time;
  for (size_t i = 1; i < std::min(kFirst, packets_.size()) && !packets_[i].fresh; ++i) {
    const int64_t since = distance(packets_[0].timestamp, packets_[i].timestamp) * kSampleTime;
    if (std::abs(packets_[i].time - packets_[0].time - since) > kGreatestSkew * kSampleTime) break;
    begin = std::min(begin, packets_[i].time - since);
  }
  return begin;
}

bool Playout::next(Frame* frame) {
  for (;;) {
    if (erased_ > 0) {
      --erased_;
      frame->lose();
      return true;
    }
    if (untransmitted_ > 0) {
      --untransmitted_;
      frame->unpack({});
      return true;
    }
    if (!left_.empty()) {
      const size_t size = std::min<size_t>(left_.size(), G729_SPEECH_BYTES);
      frame->unpack(left_.first(size));
      left_ = left_.subspan(size);
      return true;
    }
    if (packet_ == stream_.packets().size()) return false;
    begin_packet(packet_++);
  }
}

void Playout::begin_packet(size_t index) {
  const RtpStream::Packet& packet = stream_.packets()[index];
  if (index > 0) {
    fill(gap_before(packet, stream_.packets()[index - 1]),
         static_cast<int64_t>(std::min(packet.lost, uint64_t{kMaxDropout})));
  }
  left_ = stream_.payload(packet);
  if (packet.size >= G729_SPEECH_BYTES) usual_frames_ = frames_in(packet.size);
}

// Samples from the end of what was given up to the packet's first.
int64_t Playout::gap_before(const RtpStream::Packet& packet, const RtpStream::Packet& before) {
  const int64_t given = G729_FRAME_SAMPLES * static_cast<int64_t>(frames_in(before.size));
  const int64_t step = distance(before.timestamp, packet.timestamp);
  const int64_t by_clock = samples_between(before.time, packet.time);
  const int64_t gap = step - given - ahead_;
  if (gap >= -kFarBehind && std::abs(step - by_clock) <= kGreatestSkew) return gap;
  return std::max<int64_t>(0, by_clock - given);
}

void Playout::fill(int64_t gap, int64_t lost_packets) {
  int64_t frames = std::max<int64_t>(0, (gap + G729_FRAME_SAMPLES / 2) / G729_FRAME_SAMPLES);
  ahead_ = frames * G729_FRAME_SAMPLES - gap;
  if (frames > longest_) {
    cut_ = true;
    frames = 0;
  }
  erased_ = std::min(frames, lost_packets * static_cast<int64_t>(usual_frames_));
  untransmitted_ = frames - erased_;
}

double Playout::progress() const {
  return static_cast<double>(packet_) / static_cast<double>(stream_.packets().size());
}

}  // namespace tool
