#include "tools/batch.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>

#include "tools/progress.h"

namespace tool {
namespace {

Exit attempt(const std::function<Exit(size_t)>& work, size_t item) {
  try {
    return work(item);
  } catch (const std::exception& error) {
    return complain(error);
  }
}

Exit worst(const std::vector<Exit>& results) {
  Exit noted = Exit::ok;
  for (const Exit result : results) {
    if (result == Exit::truncated) noted = result;
    if (result != Exit::ok && result != Exit::truncated) return result;
  }
  return noted;
}

}  // namespace

Exit for_each(size_t count, int threads, const std::function<Exit(size_t)>& work) {
  std::vector<Exit> results(count);
  std::atomic<size_t> next{0};
  std::atomic<size_t> done{0};
  Progress progress(std::to_string(count) + " files", threads > 1);
  const auto run = [&](bool shows) {
    for (size_t item; (item = next++) < count;) {
      results[item] = attempt(work, item);
      ++done;
      if (shows) progress.show(static_cast<double>(done) / static_cast<double>(count));
    }
  };
  {
    std::vector<std::jthread> others;
    for (size_t t = 1; t < std::min(count, static_cast<size_t>(threads)); ++t) {
      others.emplace_back(run, false);
    }
    run(true);
  }
  return worst(results);
}

bool is_done(const std::string& input, const std::string& output) {
  namespace fs = std::filesystem;
  std::error_code error;
  if (!fs::is_regular_file(output, error)) return false;
  const auto made = fs::last_write_time(output, error);  // or the earliest of all times
  const auto changed = fs::last_write_time(input, error);
  return !error && made >= changed;
}

Exit run_jobs(const std::vector<Job>& jobs, const BatchOptions& options,
              const std::function<Exit(const Job&)>& work) {
  std::vector<Job> left;
  for (const Job& job : jobs) {
    if (!options.resume || !is_done(job.input, job.output)) left.push_back(job);
  }
  if (left.size() < jobs.size()) {
    say(std::to_string(jobs.size() - left.size()) + " of " + std::to_string(jobs.size()) +
        " outputs are there already");
  }
  return for_each(left.size(), options.threads, [&](size_t item) { return work(left[item]); });
}

}  // namespace tool
