#include "cli/output/log.h"

#include <sys/time.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "cli/output/console.h"
#include "cli/running/outcome.h"
#include "tavo/service/text.h"

namespace cli {
namespace {

std::string timeOfDay() {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm parts{};
    localtime_r(&now.tv_sec, &parts);
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    char whole[80];
    std::snprintf(whole, sizeof whole, "%s.%03d", text, static_cast<int>(now.tv_usec / 1000));
    return whole;
}

}  // namespace

Log::~Log() {
    if (file_ != nullptr) std::fclose(file_);
}

void Log::open(const std::string& path) {
    path_ = path;
    file_ = std::fopen(path.c_str(), "ae");
    if (file_ == nullptr) {
        throw Failure{Exit::FileSystem,
                      "cannot write the log " + path + ": " + std::strerror(errno),
                      "choose another file for --log",
                      {}};
    }
    setvbuf(file_, nullptr, _IOLBF, 0);
}

void Log::write(Detail detail, const std::string& text) {
    if (!wants(detail)) return;
    const std::lock_guard lock(mutex_);
    if (file_ != nullptr && std::fprintf(file_, "%s %s\n", timeOfDay().c_str(), tavo::printable(text).c_str()) < 0) {
        if (error_ == 0) error_ = errno;
    }
    if (verbosity_ >= static_cast<int>(detail)) console().line(prefix_ + text);
}

std::string Log::fault() {
    const std::lock_guard lock(mutex_);
    return error_ == 0 ? "" : "the log " + path_ + " is incomplete: " + std::strerror(error_);
}

}  // namespace cli
