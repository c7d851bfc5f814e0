// For code that serves single doubles and Vec8 alike: T is either.
#pragma once

#include "codec/dsp/simd/vec.h"

namespace g729 {
inline namespace KELG729F_TARGET {

template <typename T>
KELG729F_VEC T load_as(const double* p);
template <>
KELG729F_VEC double load_as(const double* p) {
  return *p;
}
template <>
KELG729F_VEC Vec8 load_as(const double* p) {
  return load(p);
}

template <typename T>
KELG729F_VEC T splat_as(double x);
template <>
KELG729F_VEC double splat_as(double x) {
  return x;
}
template <>
KELG729F_VEC Vec8 splat_as(double x) {
  return splat(x);
}

KELG729F_VEC double select(bool m, double a, double b) {
  return m ? a : b;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
