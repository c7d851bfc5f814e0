// What the decoder does in a live pipeline, told in rows (scenario.h).
#include "tests/src/scenario.h"

#include <string>

namespace {

struct Row {
  const char* name;
  const char* script;
  const char* want;
};

std::string name_of(const testing::TestParamInfo<Row>& info) {
  return info.param.name;
}
void PrintTo(const Row& row, std::ostream* out) {
  *out << row.script;
}

class Scenarios : public testing::TestWithParam<Row> {};

TEST_P(Scenarios, Row) {
  const auto* suite = testing::UnitTest::GetInstance()->current_test_info()->test_suite_name();
  Scenario scenario;
  if (g_str_has_prefix(suite, "ByTimestamps")) scenario.play("plc=1");
  EXPECT_EQ(scenario.play(GetParam().script), GetParam().want);
}

// By the clock alone: the packets' times are the base class's.
constexpr Row kByTheClock[] = {
    {"EveryTenMilliseconds", "t=5001.25 12@1000 t+200", "s1000..1020 n1020..1220+3991.25"},
    {"NoTimestamps", "4{ 10 t+10 2 t+60 10 t+10 }",
     "s0..20 n20..80 s80..110 n110..170-10 s170..200 n200..260-20 s260..290 n290..350-30 "
     "s350..360"},
    {"CatchesUp", "2@0 t=5 late+50 t=60",
     "s0..10 n10..20+45 n20..30+35 n30..40+25 n40..50+15 "
     "n50..60+5 n60..70"},
    {"EndsWithTheNextBuffer", "2@0 t=30 10@40 t=1000 10@50", "s0..10 n10..40 s40..60"},
    {"EndsWithAnInvalidBuffer", "2@0 t=30 4@40 t=1000", "s0..10 n10..40"},
    {"NewDescriptorNewGrid", "2@0 t=37 2@40 t=67", "s0..10 n10..40 s40..50 n50..80-3"},
    {"TimestampsAreFollowed", "2@0 t=50 10@50 2@60 t=90 10@30",
     "s0..10 n10..60 s50..70 n70..110-10 s30..40"},
    {"GoesOnThroughGaps", "2@0 t=20 gap@30+20 t=50 hush@50+10 t=60 10@70",
     "s0..10 n10..70 s70..80"},
    {"Flush", "2@0 t=20 flush t=200 10@0", "s0..10 n10..30 s0..10"},
    {"FlushWhileNoiseIsHeld", "2@0 t=10 hold=1 flush let-go 10@500", "s0..10 n10..30 s500..510"},
    {"End", "2@0 t=20 eos t=200", "s0..10 n10..30"},
    {"OtherSegment", "2@0 t=20 segment@5 t=200", "s0..10 n10..30"},
    {"SameSegment", "2@0 t=20 segment@0 t=50 10@60", "s0..10 n10..60 s60..70"},
    {"Ready", "2@0 t=20 ready t=200 10@0", "s0..10 n10..30 s0..10"},
    {"Pause", "2@0 t=25 pause t=1025 play t=1055 10@60", "s0..10 n10..30 n30..60+1000 s60..70"},
    {"PauseWithoutBaseTime", "clock=500 2@0 t=525 pause t=1525 resume t=1555",
     "s0..10 n10..30+500 n30..60+1500"},
    {"PauseTwice", "2@0 t=20 pause t=50 play t=60 pause t=100 play t=110",
     "s0..10 n10..30 n30..40+30 n40..50+70"},
    {"DescriptorInPause", "10@0 pause t=50 2@10 t=100 play t=120", "s0..20 n20..40+90"},
    {"PacketInPause", "2@0 t=20 pause t=100 10@30 play t=200", "s0..10 n10..30 s30..40"},
    {"NoClock", "no-clock 2@0 t=50", "s0..10"},
    {"NoConcealment", "10@0 gap@10+20 10@60", "s0..10 s60..70"},
    {"LatencyIsNothingToIt", "latency=80/60 2@0 t=40 10@50", "s0..10 n10..50 s50..60"},
};
INSTANTIATE_TEST_SUITE_P(ByTheClock, Scenarios, testing::ValuesIn(kByTheClock), name_of);

// By the packets' timestamps; noise in its time.
constexpr Row kByTimestamps[] = {
    {"LossTold", "20@0 gap@20+24 gap@44+16 10@60", "s0..20 C20..60 s60..70"},
    {"LossNotTold", "10@0 10@50 10@60", "s0..10 C10..50 s50..70"},
    {"LossOfUnknownLength", "10@0 gap@10+0 10@30 gap@40+0 10@40", "s0..10 C10..30 s30..50"},
    {"LossOfSeconds", "10@0 10@3000", "s0..10 C10..3000 s3000..3010"},
    {"LossAtDiscontinuity", "10@0 !10@30", "s0..10 C10..30 s30..40"},
    {"LossBeforeAnything", "gap@20+50 10@70", "C20..70 s70..80"},
    {"LossInSilence", "2@0 gap@10+20 10@30 hush@40+10", "s0..10 N10..30 s30..40 C40..50"},
    {"LossToldTwice", "10@0 gap@10+20 gap@20+20 10@40", "s0..10 C10..40 s40..50"},
    {"LossAndALittle", "10@0 gap@10+20 10@36", "s0..10 C10..40 s40..50"},
    {"Hole", "10@0 hole@10+20 10@30", "s0..10 s30..40"},
    {"ToTheFrame", "2@0 10@34.9 2@45.1 10@74.9", "s0..10 N10..30 s30..50 N50..70 s70..80"},
    {"TimestampsWaver", "10@0 10@13 10@18.5 10@31 10@49 10@51", "s0..60"},
    {"FasterThanTheClock", "10@0 2@10 10@500 2@510 2@800 10@900",
     "s0..20 N20..500 s500..520 N520..800 s800..810 N810..900 s900..910"},
    {"SilenceAtTheEnd", "2@0 hush@10+100 eos", "s0..10 N10..110"},
    {"SilenceThatWasEnded", "2@0 hush@10+100 10@20 eos", "s0..10 N10..20 s20..30"},
    {"WithoutTimestamps", "10 t+10 2 t+50 10 t+10", "s0..20 n20..70 s70..80"},
    {"TimestampsEnd", "latency=80/60 10@0 2 t=40", "s0..20 n20..60-10"},
    {"WithoutLatency", "2@0 t=30 20@30", "s0..10 n10..40 s40..50"},
    {"NoiseInItsTime", "latency=80/60 t=30 12@0 t=200 10@150",
     "s0..20 n20..140+70 N140..150 s150..160"},
    {"NetworkIsLate", "latency=80/60 2@0 t=65 10@10 t=99 2@20 t=109 10@40",
     "s0..30 n30..40+70 s40..50"},
    {"TooLate", "latency=20/20 2@0 t=75 20@40 20@50 20@60", "s0..10 n10..60+20 s60..80"},
    {"TooLateAndDiscontinuous", "latency=20/20 2@0 t=75 !2@40 t=95", "s0..10 n10..80+20"},
    {"HeldForSeconds", "latency=20/20 2@0 t=2020 20@10 20@30 t=2500 10@2010",
     "s0..10 n10..2010+20 s2010..2020"},
    {"LatencyChanges", "2@0 t=25 latency=200/100 t=200", "s0..10 n10..30 n30..60+150"},
    {"Repeated", "10@0 10@10 10@10 10@20", "s0..30"},
    {"NewTime", "10@5000 10@0", "s5000..5010 s0..10"},
    {"Flush", "10@0 flush 10@500", "s0..10 s500..510"},
    {"FlushLeavesLatency", "latency=80/60 flush 2@0 t=100 10@40", "s0..10 n10..40+70 s40..50"},
    {"SameSegment", "10@0 segment@0 10@30", "s0..10 C10..30 s30..40"},
    {"OtherSegment", "10@0 segment@5 10@30", "s0..10 s30..40"},
    {"InvalidBuffer", "2@0 t=30 4@40 t=100 10@100", "s0..10 n10..40 N40..100 s100..110"},
    {"Pause", "latency=20/20 2@0 t=55 pause t=1055 play t=1085 10@70",
     "s0..10 n10..40+20 n40..70+1020 s70..80"},
};
INSTANTIATE_TEST_SUITE_P(ByTimestamps, Scenarios, testing::ValuesIn(kByTimestamps), name_of);

// Waits that the machine makes late are counted; those that a push made late are not.
TEST(Scenario, LateWakeups) {
  Scenario scenario;
  scenario.play("2@0 t=30 late+45 t=80 late+5 t=90 late+10 pause t=200 play t=300");
  EXPECT_EQ(scenario.counter("late-wakeups"), 1u);
}

}  // namespace
