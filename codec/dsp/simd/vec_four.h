// Four doubles at a time, built like Vec8.
#pragma once

#include "codec/dsp/simd/vec.h"

namespace g729 {
inline namespace KELG729F_TARGET {

#if defined(__AVX512F__) && !defined(KELG729F_PLAIN)
typedef double FourPart __attribute__((vector_size(32)));
#else
using FourPart = Native;
#endif
inline constexpr int kFourParts = 4 * sizeof(double) / sizeof(FourPart);

struct Four {
  FourPart part[kFourParts];
};

KELG729F_VEC Four four(double a, double b, double c, double d) {
#if defined(KELG729F_PLAIN)
  return {{a, b, c, d}};
#elif defined(__AVX__)
  return {{FourPart{a, b, c, d}}};
#else
  return {{FourPart{a, b}, FourPart{c, d}}};
#endif
}

KELG729F_VEC Four operator+(Four a, Four b) {
  for (int i = 0; i < kFourParts; ++i) a.part[i] += b.part[i];
  return a;
}
KELG729F_VEC Four operator*(Four a, Four b) {
  for (int i = 0; i < kFourParts; ++i) a.part[i] *= b.part[i];
  return a;
}

KELG729F_VEC void store(double* p, Four v) {
  __builtin_memcpy(p, &v, sizeof v);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
