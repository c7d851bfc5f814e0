// Checksums of the standard's tables: streams reach only some of the entries.
#include <gtest/gtest.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "codec/decoder/long_term_postfilter.h"
#include "codec/dsp/constants.h"
#include "codec/dsp/pitch.h"
#include "codec/dsp/tables/algebraic_tables.h"
#include "codec/dsp/tables/backward_lp_tables.h"
#include "codec/dsp/tables/gain_tables.h"
#include "codec/dsp/tables/lsp_predictors.h"
#include "codec/dsp/tables/lsp_tables.h"
#include "codec/dsp/tables/phase_dispersion_tables.h"
#include "codec/dtx/sid.h"
#include "codec/encoder/lp_analysis.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

template <typename Array>
uint64_t checksum(const Array& table) {
  uint64_t hash = 0xCBF29CE484222325u;
  for (const std::byte b : std::as_bytes(std::span(table)))
    hash = (hash ^ static_cast<uint64_t>(b)) * 0x100000001B3u;
  return hash;
}

TEST(Tables, AreTheStandards) {
  const struct {
    const char* name;
    uint64_t found, expected;
  } tables[] = {
#define TABLE(name, expected) {#name, checksum(name), expected}
      TABLE(lp_window, 0xD0E42C8DCE32A8FE),
      TABLE(lag_window, 0x3D1513129D873A09),
      TABLE(kHybridWindowTable, 0xAED07C9794259A7C),
      TABLE(kBackwardLagWindow, 0x7714874BDDAF30BC),
      TABLE(kInitialLsp, 0x8E310A8B5CE6F319),
      TABLE(kLspFirstStage, 0x16744A41BED9026F),
      TABLE(kLspSecondStage, 0x4A31EDD75AFBE180),
      TABLE(kSpeechPredictor, 0xB63E3CC6E1F09C55),
      TABLE(kNoisePredictor, 0x333E049ED2701673),
      TABLE(kPitchInterpolation, 0xCC217DB67F0BC490),
      TABLE(kPulse0Track6k4, 0x69F7ABD4ED4771B5),
      TABLE(kPulse1Track6k4, 0x5CA9BAC731972AFD),
      TABLE(kGray, 0x88F9D6F85D4763A5),
      TABLE(kGrayInverse, 0xA94E42D6CF8A3F25),
      TABLE(kGainA, 0x00589E67F9CEF4A5),
      TABLE(kGainB, 0xD513716C3E1B4039),
      TABLE(kGainA6k4, 0xDC0BAACA57BD390D),
      TABLE(kGainB6k4, 0x188F8D47D898D227),
      TABLE(kGainCodeA, 0x678D443F4B0A1A85),
      TABLE(kGainCodeB, 0x3C703C657B04A4A5),
      TABLE(kGainCodeA6k4, 0x80BED9205543E255),
      TABLE(kGainCodeB6k4, 0x62E443AF5F6859C5),
      TABLE(kGainIndexA, 0xFD04C7D9235D3065),
      TABLE(kGainIndexB, 0x04F0BC7CE8D33EE5),
      TABLE(kGainIndexA6k4, 0x4CD82F148D67F215),
      TABLE(kGainIndexB6k4, 0x9AD2FC0FB61F8125),
      TABLE(kDispersionResponse, 0x7F6018A56F4E101D),
      TABLE(kShortDelay, 0x696CB89079482ACC),
      TABLE(kLongDelay, 0xAEFFF3C0234889F8),
      TABLE(kSidGain, 0x5664B2632E6D8ABC),
      TABLE(kSidFirstStage, 0x2E412A518A165873),
      TABLE(kSidSecondStageLower, 0x60898BFAA255C408),
      TABLE(kSidSecondStageUpper, 0xDB36E6155E6B0578),
#undef TABLE
  };
  for (const auto& table : tables)
    EXPECT_EQ(table.found, table.expected) << table.name << std::hex << " 0x" << table.found;
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
