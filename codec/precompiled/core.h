// What most of the core's files include, read once per instruction set. No file relies on it: they
// also build with -Db_pch=false, as .ci/sanitizers does.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <span>

#ifndef __clang__  // whose version 14 does not understand <immintrin.h> that it precompiled
#include "codec/dsp/simd/intrinsics.h"
#endif
