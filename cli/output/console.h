// Standard error as one screen: whole lines, and on a terminal one live row below them.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace cli {

enum class Style { Plain, Error, Warning, Good };

/// Every line of the program that is not a result goes through here, from any thread, so that a
/// message never lands in the middle of a progress row.
class Console {
public:
    /// A terminal that can move its cursor.
    bool isTerminal() const { return terminal_; }
    int width() const;  ///< columns of the terminal, 80 when unknown

    /// One line; what would not show as it is in text is escaped (see output/printable.h).
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
    std::string styled(Style style, const std::string& text) const;
    void eraseRows(std::string& out);
    void write(const std::string& text) const;

    mutable std::mutex mutex_;
    bool terminal_;
    bool color_;
    std::vector<std::string> rows_;
};

Console& console();

}  // namespace cli
