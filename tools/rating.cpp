#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "codec/g729_rating.h"
#include "tools/commands.h"

namespace tool {

Exit run_rating(const RatingOptions& options) {
  const G729Rating rating = g729_rating(options.loss / 100, options.burst_ratio, options.delay);
  if (options.json) {
    const auto rounded = [](double value) { return std::round(100 * value) / 100; };
    const nlohmann::ordered_json json{{"r", rounded(rating.r)}, {"mos", rounded(rating.mos)}};
    std::puts(json.dump(2).c_str());
  } else {
    std::printf("R %.1f, MOS %.2f\n", rating.r, rating.mos);
  }
  return Exit::ok;
}

}  // namespace tool
