// Ends the process when a test hangs, after writing every thread's stack to standard error.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

class Watchdog : public testing::EmptyTestEventListener {
 public:
  explicit Watchdog(std::chrono::milliseconds limit);
  ~Watchdog() override;
  void OnTestStart(const testing::TestInfo& info) override;
  void OnTestEnd(const testing::TestInfo&) override;

 private:
  void run();

  const std::chrono::milliseconds limit_;
  std::mutex mutex_;
  std::condition_variable change_;
  std::string test_;      // that is running, empty between tests
  unsigned started_ = 0;  // tests so far
  bool done_ = false;
  std::thread thread_;
};
