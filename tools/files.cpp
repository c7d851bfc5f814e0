#include "tools/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <set>
#include <utility>

#include "tools/failure.h"

namespace fs = std::filesystem;

namespace tool {
namespace {

[[noreturn]] void fail_reading(const std::string& name) {
  throw Failure(Exit::input, name + ": cannot read: " + std::strerror(errno));
}

[[noreturn]] void fail_writing(const std::string& name) {
  throw Failure(Exit::output, name + ": cannot write: " + std::strerror(errno));
}

// Copies to the end of `from`; false when reading or writing failed.
bool copy(std::FILE* from, std::FILE* to) {
  std::array<char, BUFSIZ> block;
  while (const size_t count = std::fread(block.data(), 1, block.size(), from)) {
    if (std::fwrite(block.data(), 1, count, to) != count) return false;
  }
  return !std::ferror(from) && std::fflush(to) == 0;
}

FileHandle seekable_copy(std::FILE* from, const std::string& name) {
  FileHandle unnamed(std::tmpfile());
  if (!unnamed || !copy(from, unnamed.get())) fail_reading(name);
  std::rewind(unnamed.get());
  return unnamed;
}

// The names of unfinished outputs, for the signal handler; empty when a slot is free.
char unfinished[kMostThreads][PATH_MAX];

extern "C" void remove_unfinished(int signal_number) {
  for (const auto& name : unfinished) {
    if (name[0]) unlink(name);
  }
  _exit(128 + signal_number);
}

// The slot taken, of a file that exists, so its name fits. The first letter comes last, so that the
// handler sees whole names only.
size_t remember_unfinished(const std::string& path) {
  static std::mutex mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  size_t slot = 0;
  while (unfinished[slot][0]) ++slot;  // one is free, as there is one for every thread
  std::strcpy(unfinished[slot] + 1, path.c_str() + 1);
  std::atomic_signal_fence(std::memory_order_release);
  unfinished[slot][0] = path[0];
  return slot;
}

void make_folder(const std::string& path) {
  std::error_code error;
  if (fs::exists(path, error) || path == "-" || fs::path(path).has_extension()) {
    throw Failure(Exit::usage, path + ": not a folder; several inputs need a folder at the end");
  }
  fs::create_directories(path, error);
  if (error) throw Failure(Exit::output, path + ": cannot make folder: " + error.message());
}

std::vector<Job> pair_up(const std::vector<std::string>& names, const std::string& suffix) {
  const std::string& last = names.back();
  const bool several = names.size() > 2;
  std::error_code unknown;
  const bool folder = fs::is_directory(last, unknown);
  if (!several && !last.ends_with('/') && !folder) return {{names[0], last}};
  std::vector<Job> jobs;
  std::set<std::string> seen;
  for (size_t i = 0; i + 1 < names.size(); ++i) {
    if (names[i] == "-") {
      throw Failure(Exit::usage, "standard input has no name for a file in " + last +
                                     "; give it an output of its own");
    }
    const std::string output = fs::path(last) / (fs::path(names[i]).stem().string() + suffix);
    if (!seen.insert(output).second) {
      throw Failure(Exit::usage, output + ": two inputs would be written there; rename one");
    }
    jobs.push_back({names[i], output});
  }
  if (!folder) make_folder(last);
  return jobs;
}

}  // namespace

InputFile::InputFile(const std::string& path)
    : name_(path == "-" ? "standard input" : path),
      file_(path == "-" ? fdopen(dup(STDIN_FILENO), "rb") : std::fopen(path.c_str(), "rb")) {
  struct stat status;
  if (!file_ || fstat(fileno(file_.get()), &status) != 0) fail_reading(name_);
  if (S_ISDIR(status.st_mode)) {
    throw Failure(Exit::input, name_ + ": is a folder; name the files in it");
  }
  if (!S_ISREG(status.st_mode) || path == "-") {
    file_ = seekable_copy(file_.get(), name_);
    if (fstat(fileno(file_.get()), &status) != 0) fail_reading(name_);
  }
  size_ = static_cast<uint64_t>(status.st_size);
}

OutputFile::OutputFile(const std::string& path) : name_(path == "-" ? "standard output" : path) {
  if (path == "-" && isatty(STDOUT_FILENO)) {
    throw Failure(Exit::usage, "standard output is a terminal; redirect it or name a file");
  }
  std::error_code missing;
  if (path == "-" || fs::is_other(path, missing)) {
    file_.reset(std::tmpfile());
    if (!file_) fail_writing(name_);
  } else {
    const fs::path target = fs::canonical(path, missing);  // through symbolic links
    open_beside(missing ? path : target.string());
  }
}

OutputFile::~OutputFile() {
  if (target_.empty()) return;
  unlink(temporary_.c_str());  // not there any more behind commit()
  unfinished[slot_][0] = '\0';
}

void OutputFile::open_beside(const std::string& target) {
  temporary_ = fs::path(target).parent_path() / ".kelg729f.XXXXXX";
  const int descriptor = mkstemp(temporary_.data());
  if (descriptor == -1) fail_writing(name_);
  target_ = target;
  slot_ = remember_unfinished(temporary_);
  // Which can only be read by changing it, so once for all threads.
  static const mode_t mask = [] {
    const mode_t found = umask(0);
    umask(found);
    return found;
  }();
  fchmod(descriptor, 0666 & ~mask);
  file_.reset(fdopen(descriptor, "w+b"));
}

void OutputFile::commit() {
  if (std::fflush(file_.get()) != 0) fail_writing(name_);
  if (!target_.empty()) {
    // After a power cut too, what stands under its name is complete.
    if (fsync(fileno(file_.get())) != 0) fail_writing(name_);
    if (std::rename(temporary_.c_str(), target_.c_str()) != 0) fail_writing(name_);
    return;
  }
  std::rewind(file_.get());
  const FileHandle out(name_ == "standard output" ? fdopen(dup(STDOUT_FILENO), "wb")
                                                  : std::fopen(name_.c_str(), "wb"));
  if (!out || !copy(file_.get(), out.get())) fail_writing(name_);
}

void guard_standard_streams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) >= 0) continue;
    // The lowest free number is the stream's.
    if (open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) != stream) return;
  }
}

void finish_standard_output() {
  const bool lost = std::ferror(stdout) != 0;
  if (std::fflush(stdout) != 0 || lost) fail_writing("standard output");
}

void clean_up_on_signals() {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) std::signal(number, remove_unfinished);
  // A closed pipe and a file that is not allowed to grow are write errors like others.
  for (const int number : {SIGPIPE, SIGXFSZ}) std::signal(number, SIG_IGN);
}

void check_job(const Job& job) {
  if (job.input.empty() || job.output.empty()) {
    throw Failure(Exit::usage, "a file name is empty; is a shell variable unset?");
  }
  std::error_code missing;
  if (fs::equivalent(job.input, job.output, missing)) {
    throw Failure(Exit::usage, job.output + ": is the input too; name another output");
  }
}

std::vector<Job> plan_jobs(const std::vector<std::string>& names, const std::string& suffix) {
  if (names.size() < 2) {
    throw Failure(Exit::usage, names[0] + ": and the output? Name the inputs, then the output");
  }
  std::vector<Job> jobs = pair_up(names, suffix);
  for (const Job& job : jobs) check_job(job);
  return jobs;
}

}  // namespace tool
