// What is done with one device, step by step: to the log file in full, to standard error as far as -v asks.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>

namespace cli {

enum class Detail { Step = 1, Transfer = 2, FileOnly = 100 };

class Log {
public:
    Log() = default;
    ~Log();
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    /// Put in front of each line on standard error, where several devices share it.
    void setDevice(const std::string& name) { prefix_ = name + ": "; }
    void open(const std::string& path);  ///< throws Failure when the file cannot be written
    void setVerbosity(int level) { verbosity_ = level; }
    bool wants(Detail detail) const { return file_ != nullptr || verbosity_ >= static_cast<int>(detail); }
    /// What kept lines out of the file, for people; empty while all of them are in it.
    std::string fault();
    void write(Detail detail, const std::string& text);

private:
    std::mutex mutex_;
    std::string prefix_;
    std::string path_;
    std::FILE* file_ = nullptr;
    int error_ = 0;  // the first one; a log is written on with, but the hole in it is told
    int verbosity_ = 0;
};

}  // namespace cli
