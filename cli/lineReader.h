// The lines of a text file, however long they are, in bounded memory.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/files.h"

namespace cli {

struct Line {
    std::string_view text;     ///< without its line feed; cut when tooLong. Good until the next call.
    std::uint64_t number = 0;  ///< from 1
    std::uint64_t end = 0;     ///< bytes of the file up to and with this line
    bool tooLong = false;
};

class LineReader {
public:
    /// @param longest  characters kept of a line; the rest is passed over
    LineReader(const Descriptor& file, const std::string& path, std::size_t longest);
    /// @return false at the end of the file. Throws Failure when the file cannot be read.
    bool next(Line& line);
    /// Every byte read passes here too, in order.
    void onText(std::function<void(const char*, std::size_t)> sink) { sink_ = std::move(sink); }

private:
    bool fill();

    const Descriptor& file_;
    std::string path_;
    std::size_t longest_;
    std::vector<char> buffer_;
    std::size_t at_ = 0;
    std::size_t filled_ = 0;
    std::string line_;
    std::uint64_t number_ = 0;
    std::uint64_t consumed_ = 0;
    std::function<void(const char*, std::size_t)> sink_;
};

}  // namespace cli
