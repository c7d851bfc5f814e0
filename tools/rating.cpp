#include <cstdio>

#include "codec/g729_rating.h"
#include "tools/commands.h"
#include "tools/json.h"

namespace tool {

Exit run_rating(const RatingOptions& options) {
  const G729Rating rating = g729_rating(options.loss / 100, options.burst_ratio, options.delay);
  if (options.json) {
    print_json({{"r", rounded(rating.r)}, {"mos", rounded(rating.mos)}});
  } else {
    std::printf("R %.1f, MOS %.2f\n", rating.r, rating.mos);
  }
  return Exit::ok;
}

}  // namespace tool
