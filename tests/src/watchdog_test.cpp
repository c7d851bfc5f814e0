#include "tests/src/watchdog.h"

namespace {

void wait_for_ever() {
  Watchdog watchdog(std::chrono::milliseconds(100));
  watchdog.OnTestStart(*testing::UnitTest::GetInstance()->current_test_info());
  std::mutex mutex;
  mutex.lock();
  std::thread waiting([&] { mutex.lock(); });
  waiting.join();
}

// All threads are there: the one that runs the test and the one that waits for the lock.
TEST(WatchdogDeathTest, WritesTheStacks) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the sanitizer holds signals back";
#endif
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(wait_for_ever(), testing::ExitedWithCode(1),
              "WritesTheStacks hangs\nthread (.|\n)*thread.*join(.|\n)*mutex_lock");
}

}  // namespace
