#include "cli/output/console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <span>

#include "tavo/service/text.h"

namespace cli {
namespace {

bool isCapableTerminal(int stream) {
    const char* term = std::getenv("TERM");
    return isatty(stream) == 1 && term != nullptr && std::strcmp(term, "dumb") != 0;
}

bool colorByDefault(bool terminal) {
    const char* noColor = std::getenv("NO_COLOR");  // https://no-color.org: present and not empty
    return terminal && (noColor == nullptr || *noColor == '\0');
}

/// So many bytes of a text as show in that many columns, none of them a part of a character.
std::string clipped(const std::string& text, std::size_t columns) {
    std::size_t end = 0;
    for (std::size_t shown = 0; end < text.size(); ++end) {
        const bool begins = (static_cast<unsigned char>(text[end]) & 0xC0) != 0x80;
        if (begins && shown++ == columns) break;
    }
    return text.substr(0, end);
}

constexpr const char* kCodes[] = {"", "\033[1;31m", "\033[1;33m", "\033[32m", "\033[36m", "\033[2m"};

std::string styled(bool color, Style style, const std::string& text) {
    if (!color || style == Style::Plain) return text;
    return kCodes[static_cast<int>(style)] + text + "\033[0m";
}

std::optional<int> columnsOf(int stream) {
    winsize size{};
    if (ioctl(stream, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return std::nullopt;
    return size.ws_col;
}

/// What scrolls out of the terminal cannot be drawn anew.
std::size_t mostRows() {
    constexpr std::size_t kUsual = 24;
    winsize size{};
    const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 1;
    return (isKnown ? size.ws_row : kUsual) - 1;
}

}  // namespace

Console::Console()
    : terminal_(isCapableTerminal(STDERR_FILENO)),
      color_(colorByDefault(terminal_)),
      resultTerminal_(isCapableTerminal(STDOUT_FILENO)),
      resultColor_(colorByDefault(resultTerminal_)) {}

bool Console::showsUtf8() const {
    if (!resultTerminal_) return false;
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {  // the first that is set counts
        const char* locale = std::getenv(name);
        if (locale == nullptr || *locale == '\0') continue;
        return strcasestr(locale, "UTF-8") != nullptr || strcasestr(locale, "UTF8") != nullptr;
    }
    return false;
}

int Console::width() const {
    return columnsOf(STDERR_FILENO).value_or(80);
}

std::optional<int> Console::resultWidth() {
    return columnsOf(STDOUT_FILENO);
}

std::string Console::result(const Line& line) const {
    std::string text;
    for (const Span& span : line) text += styled(resultColor_, span.style, tavo::printable(span.text));
    return text;
}

void Console::write(const std::string& text) const {
    const char* at = text.data();
    std::size_t left = text.size();
    while (left > 0) {
        const ssize_t written = ::write(STDERR_FILENO, at, left);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;  // nobody to tell
        at += written;
        left -= static_cast<std::size_t>(written);
    }
}

void Console::eraseRows(std::string& out) {
    for (std::size_t i = 0; i < rows_.size(); ++i) out += i == 0 ? "\r\033[K" : "\033[A\r\033[K";
    rows_.clear();
}

void Console::line(const std::string& text) {
    exactLine(tavo::printable(text));
}

void Console::line(Style style, const std::string& word, const std::string& text) {
    exactLine("tavo-util: " + styled(color_, style, word) + " " + tavo::printable(text));
}

void Console::exactLine(const std::string& text) {
    const std::lock_guard lock(mutex_);
    const std::vector<std::string> rows = rows_;
    std::string out;
    eraseRows(out);
    out += text + "\n";
    for (std::size_t i = 0; i < rows.size(); ++i) out += (i == 0 ? "" : "\n") + rows[i];
    rows_ = rows;
    write(out);
}

void Console::live(const std::vector<std::string>& rows) {
    const std::lock_guard lock(mutex_);
    if (!terminal_ || rows == rows_) return;
    const auto columns = static_cast<std::size_t>(width());
    std::string out;
    eraseRows(out);
    const auto shown = std::min(rows.size(), mostRows());
    for (const auto& row : std::span(rows).first(shown)) {
        rows_.push_back(clipped(tavo::printable(row), columns - 1));  // a full last column would wrap
        out += (rows_.size() == 1 ? "" : "\n") + rows_.back();
    }
    write(out);
}

void Console::clearLive() {
    const std::lock_guard lock(mutex_);
    std::string out;
    eraseRows(out);
    write(out);
}

void Console::setColor(const std::string& when) {
    if (when == "always") color_ = resultColor_ = true;
    if (when == "never") color_ = resultColor_ = false;
}

Console& console() {
    static Console instance;
    return instance;
}

}  // namespace cli
