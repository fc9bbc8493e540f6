#include "service/report/html.h"

#include "tavo/service/text.h"

namespace tavo {
namespace {

const char* entityOf(char c) {
    switch (c) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        case '\'':
            return "&#39;";
        default:
            return nullptr;
    }
}

}  // namespace

Markup Markup::text(std::string_view text) {
    std::string html;
    for (const char c : printable(text)) {
        if (const char* entity = entityOf(c))
            html += entity;
        else
            html += c;
    }
    return Markup(std::move(html));
}

Markup Markup::tag(const char* name, const Markup& inner, const std::string& attributes) {
    const std::string start = std::string("<") + name + (attributes.empty() ? "" : " ") + attributes + ">";
    return Markup(start + inner.html_ + "</" + name + ">");
}

}  // namespace tavo
