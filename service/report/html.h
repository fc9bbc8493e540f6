// HTML that cannot be written unescaped: a text becomes markup only by text().
#pragma once

#include <string>
#include <string_view>

namespace tavo {

class Markup {
public:
    Markup() = default;
    /// Text of anybody: what HTML would take for its own is escaped, and what would not show as it is.
    static Markup text(std::string_view text);
    /// Written here, nobody's data.
    static Markup exactly(const char* html) { return Markup(html); }
    /// <name attributes>inner</name>. attributes: written here, or numbers.
    static Markup tag(const char* name, const Markup& inner, const std::string& attributes = "");
    static Markup tag(const char* name, std::string_view inner, const std::string& attributes = "") {
        return tag(name, text(inner), attributes);
    }

    Markup& operator+=(const Markup& more) {
        html_ += more.html_;
        return *this;
    }
    friend Markup operator+(Markup left, const Markup& right) { return left += right; }
    bool isEmpty() const { return html_.empty(); }
    const std::string& html() const { return html_; }

private:
    explicit Markup(std::string html) : html_(std::move(html)) {}
    std::string html_;
};

}  // namespace tavo
