// Scenarios for the decoder on a clock that the test turns, written as two lines of words: what
// happens, and what must come out. Times are milliseconds.
//
//   10@20 2 12@40   packets of so many bytes, with a timestamp or without; !10@20 is discontinuous
//   gap@20+30       a gap of 30 ms that is a loss; hush: of which nothing is said; hole: that is
//   none t=50 t+50       the clock is turned to 50, or by 50; whatever is due meanwhile is made in
//   time late+35         the clock jumps, as if the machine had slept pause play      play moves
//   the base time as pipelines do; resume does not ready flush eos segment@0 no-clock plc=1
//   latency=80/60 (of the pipeline / of what is upstream) 4{ ... }        four times
//
// Out come runs of audio: s0..20 is packets' audio with timestamps from 0 to 20, N and C are noise
// and concealment made when a packet or an event came, n is noise of the thread; n20..50+5 came 5
// ms after each frame's timestamp.
#pragma once

#include <atomic>
#include <charconv>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "src/audio/g729f/dec.h"
#include "tests/src/faults.h"
#include "tests/src/live.h"

class Scenario {
 public:
  Scenario() {
    dec_ = reinterpret_cast<KelG729fDec*>(live_.h->element);
    pad_.reset(GST_PAD(gst_object_ref(live_.h->sinkpad)));
    gst_harness_set_drop_buffers(live_.h.get(), TRUE);
    gst_pad_add_probe(pad_.get(), GST_PAD_PROBE_TYPE_BUFFER, on_buffer, this, nullptr);
    downstream_ = std::make_unique<Downstream>(live_.h.get());
  }

  std::string play(const std::string& script) {
    std::istringstream words(script);
    run(words);
    return text();
  }
  GstElement* element() const { return live_.h->element; }
  guint64 counter(const char* name) const {
    GstStructure* stats = nullptr;
    g_object_get(live_.h->element, "stats", &stats, nullptr);
    guint64 value = 0;
    EXPECT_TRUE(gst_structure_get_uint64(stats, name, &value)) << name;
    gst_structure_free(stats);
    return value;
  }

  struct Heard {
    GstClockTime end = 0;   // of the last audio
    gsize breaks = 0;       // buffers that did not begin where the one before had ended
    gsize out_of_turn = 0;  // and those that came while the element did not play
  };
  Heard heard() {
    const std::lock_guard lock(mutex_);
    return heard_;
  }
  bool noisy() {  // comfort noise is wanted
    g_mutex_lock(&dec_->lock);
    const bool noisy = dec_->dtx_active;
    g_mutex_unlock(&dec_->lock);
    return noisy;
  }

 private:
  struct Run {
    char kind;
    GstClockTime begin, end;
    GstClockTimeDiff late;
  };

  static GstPadProbeReturn on_buffer(GstPad*, GstPadProbeInfo* info, gpointer data) {
    static_cast<Scenario*>(data)->note(GST_PAD_PROBE_INFO_BUFFER(info));
    return GST_PAD_PROBE_OK;
  }
  // In the thread that pushes, so the counters are those of this buffer.
  void note(GstBuffer* buffer) {
    const std::lock_guard lock(mutex_);
    const guint64 noise = counter("comfort-noise"), concealed = counter("concealed");
    const bool thread = g_thread_self() == dec_->thread;
    const GstClockTime pts = GST_BUFFER_PTS(buffer);
    Run run{'s', pts, pts + gst_buffer_get_size(buffer) * (kTick / kPcm), 0};
    if (noise > noise_) run.kind = 'N';
    if (concealed > concealed_) run.kind = 'C';
    if (thread) run.kind = 'n', run.late = GST_CLOCK_DIFF(pts, now());
    noise_ = noise;
    concealed_ = concealed;
    heard_.breaks += run.begin != heard_.end;
    heard_.end = run.end;
    heard_.out_of_turn += thread && !plays_;
    if (!runs_.empty()) {
      Run& last = runs_.back();
      if (last.kind == run.kind && last.end == run.begin && last.late == run.late) {
        last.end = run.end;
        return;
      }
    }
    runs_.push_back(run);
  }
  std::string text() {
    std::ostringstream out;
    const std::lock_guard lock(mutex_);
    for (const Run& run : runs_) {
      out << (out.tellp() > 0 ? " " : "") << run.kind << ms(run.begin) << ".." << ms(run.end);
      if (run.late) out << (run.late > 0 ? "+" : "") << ms(run.late);
    }
    return out.str();
  }
  template <typename T>
  static double ms(T time) {
    return static_cast<double>(time) / GST_MSECOND;
  }

  GstClockTime now() const { return gst_clock_get_time(GST_CLOCK(live_.clock.get())); }
  bool resting() {  // the thread waits for the clock, or there is nothing for it to do
    g_mutex_lock(&dec_->lock);
    const bool rests = dec_->clock_id ? live_.waiting() : !dec_->dtx_active || !plays_;
    g_mutex_unlock(&dec_->lock);
    return rests;
  }
  void settle() {
    for (int i = 0; !held_ && !resting(); i++) {
      ASSERT_LT(i, 100000) << "the thread hangs";
      g_usleep(i < 100 ? 0 : 100);
    }
  }
  // Turns the clock, from one wait to the next.
  void turn(GstClockTime until) {
    settle();
    while (live_.waiting()) {
      const GstClockTime due = live_.next_deadline();
      if (due > until) break;
      if (due > now()) gst_test_clock_set_time(live_.clock.get(), due);
      GstClockID id = gst_test_clock_process_next_clock_id(live_.clock.get());
      if (id) gst_clock_id_unref(id);
      settle();
    }
    if (until > now()) gst_test_clock_set_time(live_.clock.get(), until);
  }

  void run(std::istringstream& words) {
    std::string word;
    while (words >> word && word != "}" && !testing::Test::HasFatalFailure()) {
      if (word.back() == '{') {
        const auto from = words.tellg();
        for (int i = std::stoi(word); i > 0; i--) {
          words.seekg(from);
          run(words);
        }
      } else {
        step(word);
        settle();
      }
    }
  }
  // "name", "name@1+2", "name=1/2": the numbers after the name, in nanoseconds.
  static std::vector<GstClockTime> numbers(std::string text) {
    for (char& c : text) c = c == '/' || c == '+' ? ' ' : c;
    std::istringstream in(text);
    std::vector<GstClockTime> values;
    for (double value; in >> value;) values.push_back(static_cast<GstClockTime>(value * 1e6 + 0.5));
    return values;
  }
  void step(const std::string& word) {
    const gsize at = word.find_first_of("@=+");
    const std::string name = word.substr(0, at);
    const auto values = numbers(at == std::string::npos ? "" : word.substr(at + 1));
    if (name.find_first_not_of("!0123456789") == std::string::npos) {
      const bool discont = name[0] == '!';
      live_.push(std::stoul(name.substr(discont)), values.empty() ? GST_CLOCK_TIME_NONE : values[0],
                 discont);
    } else if (name == "t") {
      turn(word[1] == '+' ? now() + values[0] : values[0]);
    } else if (name == "late") {
      gst_test_clock_advance_time(live_.clock.get(), values[0]);
      turn(now());
    } else if (name == "gap" || name == "hush" || name == "hole") {
      gap(name, values[0], values[1]);
    } else {
      pipeline_step(name, values);
    }
  }
  void gap(const std::string& name, GstClockTime pts, GstClockTime duration) {
    GstEvent* event = gst_event_new_gap(pts, duration);
    if (name == "gap") gst_event_set_gap_flags(event, GST_GAP_FLAG_MISSING_DATA);
    if (name == "hole") gst_event_set_gap_flags(event, static_cast<GstGapFlags>(0));
    gst_harness_push_event(live_.h.get(), event);
  }
  void pipeline_step(const std::string& name, const std::vector<GstClockTime>& values) {
    GstHarness* h = live_.h.get();
    if (name == "pause") {
      set(GST_STATE_PAUSED);
      paused_at_ = now();
    } else if (name == "play" || name == "resume") {
      const GstClockTime base = gst_element_get_base_time(h->element);
      if (name == "play") gst_element_set_base_time(h->element, base + now() - paused_at_);
      set(GST_STATE_PLAYING);
    } else if (name == "ready") {
      set(GST_STATE_READY);
      set(GST_STATE_PLAYING);
      gst_harness_set_src_caps_str(h, kG729Caps);
    } else if (name == "flush") {
      flush(h);
    } else if (name == "segment") {
      send_segment(h, values[0]);
    } else if (name == "eos") {
      gst_harness_push_event(h, gst_event_new_eos());
    } else if (name == "hold") {
      hold(values[0] != 0);
    } else if (name == "let-go") {
      downstream_->block(false);
      if (blocking_) gst_pad_remove_probe(source_.get(), blocking_);
      held_ = false;
      const std::lock_guard lock(mutex_);
      noise_ = counter("comfort-noise");  // some may have come to nothing
    } else if (name == "clock") {
      change_clock(values[0]);
    } else if (name == "no-clock") {
      gst_element_set_clock(h->element, nullptr);
    } else if (name == "plc") {
      g_object_set(h->element, "plc", values[0] != 0, nullptr);
    } else if (name == "latency") {
      gst_harness_set_upstream_latency(h, values[1]);
      gst_harness_push_upstream_event(h, gst_event_new_latency(values[0]));
    } else {
      ADD_FAILURE() << name;
    }
  }
  void set(GstState state) {
    if (state == GST_STATE_PLAYING) plays_ = true;
    const gint64 start = g_get_monotonic_time();
    EXPECT_EQ(gst_element_set_state(live_.h->element, state), GST_STATE_CHANGE_SUCCESS);
    EXPECT_LT(g_get_monotonic_time() - start, 2 * G_USEC_PER_SEC);
    plays_ = state == GST_STATE_PLAYING;
  }
  void hold(bool behind) {
    const auto block = [](GstPad*, GstPadProbeInfo*, gpointer held) {
      *static_cast<std::atomic<bool>*>(held) = true;
      return GST_PAD_PROBE_OK;
    };
    std::atomic<bool>& stuck = stuck_;
    stuck = false;
    constexpr int kinds = GST_PAD_PROBE_TYPE_BLOCK | GST_PAD_PROBE_TYPE_BUFFER;
    downstream_->block(behind);
    blocking_ = behind ? 0
                       : gst_pad_add_probe(source_.get(), static_cast<GstPadProbeType>(kinds),
                                           block, &stuck, nullptr);
    held_ = true;
    if (!live_.waiting()) return;
    const GstClockTime due = live_.next_deadline();
    if (due > now()) gst_test_clock_set_time(live_.clock.get(), due);
    gst_clock_id_unref(gst_test_clock_process_next_clock_id(live_.clock.get()));
    if (behind) downstream_->wait_until_waited_for();
    while (!behind && !stuck) g_usleep(100);
  }
  void change_clock(GstClockTime ahead) {
    GstElement* element = live_.h->element;
    const GstClockTime time = now() + ahead;
    live_.clock.reset(GST_TEST_CLOCK(gst_test_clock_new_with_start_time(time)));
    gst_element_set_base_time(element, gst_element_get_base_time(element) + ahead);
    paused_at_ += ahead;
    gst_element_set_clock(element, GST_CLOCK(live_.clock.get()));
  }

  guint64 noise_ = 0, concealed_ = 0;
  std::mutex mutex_;
  std::vector<Run> runs_;
  Heard heard_;
  KelG729fDec* dec_;
  std::atomic<bool> plays_ = true, stuck_ = false;
  bool held_ = false;
  gulong blocking_ = 0;
  GstClockTime paused_at_ = 0;
  Object<GstPad> pad_;
  Live live_;
  Object<GstPad> source_{gst_element_get_static_pad(live_.h->element, "src")};
  std::unique_ptr<Downstream> downstream_;
};
