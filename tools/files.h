// Inputs and outputs by name; "-" is standard input or output.
#ifndef KELG729F_TOOLS_FILES_H
#define KELG729F_TOOLS_FILES_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "tools/commands.h"

namespace tool {

// Outputs open at one time.
inline constexpr size_t kMostThreads = 256;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, FileCloser>;

// A file open for reading, always seekable: pipes are copied into an unnamed file first.
class InputFile {
 public:
  // Throws Failure when the file cannot be read.
  explicit InputFile(const std::string& path);

  const std::string& name() const { return name_; }  // for messages
  std::FILE* file() const { return file_.get(); }
  uint64_t size() const { return size_; }

 private:
  std::string name_;
  FileHandle file_;
  uint64_t size_;
};

// A file that appears under its name at commit(), whole; without commit() nothing is left behind.
// Pipes, devices and standard output get their bytes at commit() too.
class OutputFile {
 public:
  // Throws Failure when the file cannot be made.
  explicit OutputFile(const std::string& path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  const std::string& name() const { return name_; }  // for messages
  std::FILE* file() const { return file_.get(); }
  // Throws Failure when something could not be written.
  void commit();

 private:
  void open_beside(const std::string& target);

  std::string name_;
  std::string target_;     // empty: the bytes are copied at commit()
  std::string temporary_;  // what is at target_ in the end
  size_t slot_;            // where the signal handler finds it
  FileHandle file_;
};

// Where a standard stream is closed, its use fails from now on, as it should; else the next file
// opened would get its number and all that is printed.
void guard_standard_streams();

// Throws Failure when something printed on standard output was lost.
void finish_standard_output();

// Removes an unfinished output when the process is interrupted.
void clean_up_on_signals();

// Throws Failure for a job that would destroy its own input.
void check_job(const Job& job);

// Pairs every input with its output. names: one or more inputs, then an output, which is a folder
// when there are several inputs (made when missing); suffix: of the files in a folder.
// Throws Failure for a set of names that would lose something.
std::vector<Job> plan_jobs(const std::vector<std::string>& names, const std::string& suffix);

}  // namespace tool

#endif
