// Two or four doubles: outputs of a recursion in a row, or of two filters side by side.
#pragma once

#include "codec/dsp/simd/vec.h"

namespace g729 {
inline namespace KELG729F_TARGET {

#if defined(KELG729F_PLAIN)
struct Pair {
  double lane[2];
};
KELG729F_VEC Pair operator*(Pair x, Pair y) {
  return {{x.lane[0] * y.lane[0], x.lane[1] * y.lane[1]}};
}
KELG729F_VEC Pair operator+(Pair x, Pair y) {
  return {{x.lane[0] + y.lane[0], x.lane[1] + y.lane[1]}};
}
KELG729F_VEC Pair operator-(Pair x, Pair y) {
  return {{x.lane[0] - y.lane[0], x.lane[1] - y.lane[1]}};
}
KELG729F_VEC Pair operator*(double a, Pair x) {
  return {{a * x.lane[0], a * x.lane[1]}};
}
KELG729F_VEC double lane(Pair x, int i) {
  return x.lane[i];
}
KELG729F_VEC Pair both_first(Pair x) {
  return {{x.lane[0], x.lane[0]}};
}
KELG729F_VEC Pair both_second(Pair x) {
  return {{x.lane[1], x.lane[1]}};
}
KELG729F_VEC void store_pair(double* p, Pair x) {
  p[0] = x.lane[0];
  p[1] = x.lane[1];
}
#else
typedef double Pair __attribute__((vector_size(16)));
typedef double PairUnaligned __attribute__((vector_size(16), aligned(8), may_alias));
KELG729F_VEC double lane(Pair x, int i) {
  return x[i];
}
KELG729F_VEC Pair both_first(Pair x) {
  return __builtin_shufflevector(x, x, 0, 0);
}
KELG729F_VEC Pair both_second(Pair x) {
  return __builtin_shufflevector(x, x, 1, 1);
}
KELG729F_VEC void store_pair(double* p, Pair x) {
  *reinterpret_cast<PairUnaligned*>(p) = x;
}
#endif
KELG729F_VEC Pair twice(double x) {
  return Pair{x, x};
}

// A pair of each of two filters.
#if defined(__AVX__) && !defined(KELG729F_PLAIN)
typedef double Quad __attribute__((vector_size(32)));
KELG729F_VEC Quad join(Pair a, Pair b) {
  return __builtin_shufflevector(a, b, 0, 1, 2, 3);
}
KELG729F_VEC Pair low(Quad x) {
  return __builtin_shufflevector(x, x, 0, 1);
}
KELG729F_VEC Pair high(Quad x) {
  return __builtin_shufflevector(x, x, 2, 3);
}
KELG729F_VEC Quad both_first(Quad x) {
  return __builtin_shufflevector(x, x, 0, 0, 2, 2);
}
KELG729F_VEC Quad both_second(Quad x) {
  return __builtin_shufflevector(x, x, 1, 1, 3, 3);
}
#else
struct Quad {
  Pair a, b;
};
KELG729F_VEC Quad join(Pair a, Pair b) {
  return {a, b};
}
KELG729F_VEC Pair low(Quad x) {
  return x.a;
}
KELG729F_VEC Pair high(Quad x) {
  return x.b;
}
KELG729F_VEC Quad both_first(Quad x) {
  return {both_first(x.a), both_first(x.b)};
}
KELG729F_VEC Quad both_second(Quad x) {
  return {both_second(x.a), both_second(x.b)};
}
KELG729F_VEC Quad operator*(Quad x, Quad y) {
  return {x.a * y.a, x.b * y.b};
}
KELG729F_VEC Quad operator+(Quad x, Quad y) {
  return {x.a + y.a, x.b + y.b};
}
KELG729F_VEC Quad operator-(Quad x, Quad y) {
  return {x.a - y.a, x.b - y.b};
}
#endif

// Stores four pairs at once: a wide load that follows would wait for narrow stores.
KELG729F_VEC void store_pairs(double* p, const Pair (&x)[4]) {
#if defined(__AVX512F__) && !defined(KELG729F_PLAIN)
  const Quad first = join(x[0], x[1]), second = join(x[2], x[3]);
  store(p, Vec8{{__builtin_shufflevector(first, second, 0, 1, 2, 3, 4, 5, 6, 7)}});
#elif defined(__AVX__) && !defined(KELG729F_PLAIN)
  store(p, Vec8{{join(x[0], x[1]), join(x[2], x[3])}});
#else
  for (int i = 0; i < 4; ++i) store_pair(p + 2 * i, x[i]);
#endif
}

}  // namespace KELG729F_TARGET
}  // namespace g729
