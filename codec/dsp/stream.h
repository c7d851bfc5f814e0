// Vec8 for kernels that load more than they compute, at any alignment: nearly every 64-byte load
// crosses a cache line and takes twice as long, of 32-byte loads fewer than half do.
#pragma once

#include "codec/dsp/vec.h"

namespace g729::inline KELG729F_TARGET {

#if defined(__AVX512F__) && !defined(KELG729F_PLAIN)

typedef double Half __attribute__((vector_size(32)));
typedef double HalfUnaligned __attribute__((vector_size(32), aligned(8), may_alias));
struct Stream8 {
  Half low, high;
};

KELG729F_VEC Stream8 load_stream(const double* p) {
  return {*reinterpret_cast<const HalfUnaligned*>(p),
          *reinterpret_cast<const HalfUnaligned*>(p + 4)};
}
KELG729F_VEC Stream8 splat_stream(double x) {
  return {x - Half{}, x - Half{}};
}
KELG729F_VEC Stream8 operator+(Stream8 a, Stream8 b) {
  return {a.low + b.low, a.high + b.high};
}
KELG729F_VEC Stream8 operator*(Stream8 a, Stream8 b) {
  return {a.low * b.low, a.high * b.high};
}
KELG729F_VEC Vec8 whole(Stream8 s) {
  return {{__builtin_shufflevector(s.low, s.high, 0, 1, 2, 3, 4, 5, 6, 7)}};
}

#else

using Stream8 = Vec8;
KELG729F_VEC Stream8 load_stream(const double* p) {
  return load(p);
}
KELG729F_VEC Stream8 splat_stream(double x) {
  return splat(x);
}
KELG729F_VEC Vec8 whole(Stream8 s) {
  return s;
}

#endif

}  // namespace g729::inline KELG729F_TARGET
