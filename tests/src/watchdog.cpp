#include "tests/src/watchdog.h"

#include <execinfo.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace {

constexpr int kSignal = SIGUSR2;
constexpr int kMostCalls = 64;
sem_t written;

// Runs in the thread whose stack it is.
void write_stack(int) {
  void* calls[kMostCalls];
  backtrace_symbols_fd(calls, backtrace(calls, kMostCalls), STDERR_FILENO);
  sem_post(&written);
}

void write_stack_of(pid_t thread) {
  std::fprintf(stderr, "thread %d:\n", thread);
  syscall(SYS_tgkill, getpid(), thread, kSignal);
  timespec until;
  clock_gettime(CLOCK_REALTIME, &until);
  until.tv_sec += 2;
  if (sem_timedwait(&written, &until) != 0) std::fprintf(stderr, "does not answer\n");
}

}  // namespace

Watchdog::Watchdog(std::chrono::milliseconds limit) : limit_(limit) {
  void* call;
  backtrace(&call, 1);  // loads what a signal handler must not
  sem_init(&written, 0, 0);
  struct sigaction action = {};
  action.sa_handler = write_stack;
  action.sa_flags = SA_RESTART;
  sigaction(kSignal, &action, nullptr);
  thread_ = std::thread([this] { run(); });
}

Watchdog::~Watchdog() {
  {
    const std::lock_guard lock(mutex_);
    done_ = true;
    change_.notify_all();
  }
  thread_.join();
}

void Watchdog::OnTestStart(const testing::TestInfo& info) {
  const std::lock_guard lock(mutex_);
  test_ = std::string(info.test_suite_name()) + "." + info.name();
  started_++;
  change_.notify_all();
}

void Watchdog::OnTestEnd(const testing::TestInfo&) {
  const std::lock_guard lock(mutex_);
  test_.clear();
  change_.notify_all();
}

void Watchdog::run() {
  std::unique_lock lock(mutex_);
  while (!done_) {
    const unsigned number = started_;
    const auto news = [&] { return done_ || test_.empty() || number != started_; };
    if (test_.empty()) {
      change_.wait(lock, [this] { return done_ || !test_.empty(); });
    } else if (!change_.wait_for(lock, limit_, news)) {
      std::fprintf(stderr, "%s hangs\n", test_.c_str());
      for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        const pid_t thread = std::atoi(task.path().filename().c_str());
        if (thread != gettid()) write_stack_of(thread);
      }
      std::_Exit(1);
    }
  }
}
