// What most of the tests include, read once per program. No file relies on it: they also build with
// -Db_pch=false, as .ci/sanitizers does.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>
