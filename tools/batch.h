// Many files in one run.
#ifndef KELG729F_TOOLS_BATCH_H
#define KELG729F_TOOLS_BATCH_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "tools/failure.h"

namespace tool {

// Calls work(0) to work(count - 1), which may throw Failure, from so many threads. All are tried;
// the status is that of the first failure by number, or else the last remark's, or ok.
Exit for_each(size_t count, int threads, const std::function<Exit(size_t)>& work);

// The same for pairs of an input and its output; leaves out what --resume finds to be done.
Exit run_jobs(const std::vector<Job>& jobs, const BatchOptions& options,
              const std::function<Exit(const Job&)>& work);

// True when output need not be made again: it is there, hence complete, and no older than input.
bool is_done(const std::string& input, const std::string& output);

}  // namespace tool

#endif
