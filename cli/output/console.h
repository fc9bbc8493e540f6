// Standard error as one screen: whole lines, and on a terminal one live row below them.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace cli {

enum class Style { Plain, Error, Warning, Good, Note, Faint };

/// A piece of a line that looks the same, and a line of them.
struct Span {
    std::string text;
    Style style = Style::Plain;
};
using Line = std::vector<Span>;

/// Every line of the program that is not a result goes through here, from any thread, so that a
/// message never lands in the middle of a progress row.
class Console {
public:
    /// A terminal that can move its cursor.
    bool isTerminal() const { return terminal_; }
    int width() const;  ///< columns of the terminal, 80 when unknown
    /// Of standard output, where the results go; nothing when that is no terminal.
    static std::optional<int> resultWidth();
    /// Standard output is a terminal too: what is shown there can be drawn anew in its place.
    bool showsResults() const { return terminal_ && resultTerminal_; }
    bool showsUtf8() const;  ///< standard output is a terminal with the characters of Unicode
    /// A line of results: escaped as others, and coloured when standard output shows colours.
    std::string result(const Line& line) const;

    /// One line; what would not show as it is in text is escaped.
    void line(const std::string& text);
    /// The same behind "tavo-util: " and a word in its colour: "error:".
    void line(Style style, const std::string& word, const std::string& text);
    /// A line that must stay as it is, byte for byte: an event of --progress json.
    void exactLine(const std::string& text);
    /// Shows rows that the next call replaces; only on a terminal.
    void live(const std::vector<std::string>& rows);
    void clearLive();

    void setColor(const std::string& when);  ///< auto, always, never

    Console();

private:
    void eraseRows(std::string& out);
    void write(const std::string& text) const;

    mutable std::mutex mutex_;
    bool terminal_;
    bool color_;
    bool resultTerminal_;
    bool resultColor_;
    std::vector<std::string> rows_;
};

Console& console();

}  // namespace cli
