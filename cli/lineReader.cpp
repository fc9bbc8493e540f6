#include "cli/lineReader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace cli {
namespace {

constexpr std::size_t kBufferSize = 64 * 1024;

}  // namespace

LineReader::LineReader(const Descriptor& file, const std::string& path, std::size_t longest)
    : file_(file), path_(path), longest_(longest), buffer_(kBufferSize) {}

bool LineReader::fill() {
    ssize_t count;
    do count = pread(file_.get(), buffer_.data(), buffer_.size(), static_cast<off_t>(consumed_));
    while (count < 0 && errno == EINTR);
    if (count < 0) throw fileFailure("read " + path_, errno);
    at_ = 0;
    filled_ = static_cast<std::size_t>(count);
    if (sink_ && filled_ > 0) sink_(buffer_.data(), filled_);
    return filled_ > 0;
}

bool LineReader::next(Line& line) {
    line_.clear();
    line.tooLong = false;
    bool any = false;
    for (bool ended = false; !ended && (at_ < filled_ || fill());) {
        any = true;
        const auto from = buffer_.begin() + static_cast<std::ptrdiff_t>(at_);
        const auto to = buffer_.begin() + static_cast<std::ptrdiff_t>(filled_);
        const auto feed = std::find(from, to, '\n');
        ended = feed != to;
        const auto length = static_cast<std::size_t>(feed - from);
        const std::size_t kept = std::min(length, longest_ - line_.size());
        line_.append(&*from, kept);
        line.tooLong = line.tooLong || kept < length;
        at_ += length + (ended ? 1 : 0);
        consumed_ += length + (ended ? 1 : 0);
    }
    line.text = line_;
    line.number = ++number_;
    line.end = consumed_;
    return any;
}

}  // namespace cli
