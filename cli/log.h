// What the program does, step by step: to the log file in full, to standard error as far as -v asks.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>

namespace cli {

enum class Detail { Step = 1, Transfer = 2, FileOnly = 100 };

class Log {
public:
    ~Log();
    void open(const std::string& path);  ///< throws Failure when the file cannot be written
    void setVerbosity(int level) { verbosity_ = level; }
    bool wants(Detail detail) const { return file_ != nullptr || verbosity_ >= static_cast<int>(detail); }
    void write(Detail detail, const std::string& text);

private:
    std::mutex mutex_;
    std::FILE* file_ = nullptr;
    int verbosity_ = 0;
};

Log& log();

}  // namespace cli
