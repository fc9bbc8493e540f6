#include "cli/output/json.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace cli {
namespace {

using Text = nlohmann::ordered_json;

}  // namespace

Json::Json(const Json& other) = default;
Json::Json(Json&& other) noexcept = default;
Json::~Json() = default;

Json& Json::operator=(Json other) noexcept {
    value_.swap(other.value_);
    return *this;
}

Json::Json(std::initializer_list<Json> items) {
    const auto isMember = [](const Json& item) {
        const Array* pair = std::get_if<Array>(&item.value_);
        return pair != nullptr && pair->size() == 2 && pair->front().isText();
    };
    if (!std::all_of(items.begin(), items.end(), isMember)) {
        value_ = Array(items);
        return;
    }
    Object members;
    for (const Json& item : items) {
        const Array& pair = std::get<Array>(item.value_);
        members.emplace_back(pair[0].text(), pair[1]);
    }
    value_ = std::move(members);
}

Json Json::array(Array items) {
    Json made;
    made.value_ = std::move(items);
    return made;
}

Json Json::object() {
    Json made;
    made.value_ = Object();
    return made;
}

const std::string& Json::text() const {
    static const std::string none;
    const std::string* found = std::get_if<std::string>(&value_);
    return found == nullptr ? none : *found;
}

Json& Json::operator[](const std::string& name) {
    if (isNull()) value_ = Object();
    auto& members = std::get<Object>(value_);
    const auto found =
        std::find_if(members.begin(), members.end(), [&](const auto& each) { return each.first == name; });
    if (found != members.end()) return found->second;
    return members.emplace_back(name, Json()).second;
}

void Json::push_back(Json item) {
    if (isNull()) value_ = Array();
    std::get<Array>(value_).push_back(std::move(item));
}

std::size_t Json::size() const {
    if (const Array* items = std::get_if<Array>(&value_)) return items->size();
    const Object* members = std::get_if<Object>(&value_);
    return members == nullptr ? 0 : members->size();
}

/// Makes of each value what the JSON library writes.
struct JsonWriter {
    Text operator()(const Json::Array& items) const {
        Text text = Text::array();
        for (const Json& item : items) text.push_back(std::visit(*this, item.value_));
        return text;
    }
    Text operator()(const Json::Object& members) const {
        Text text = Text::object();
        for (const auto& [name, value] : members) text[name] = std::visit(*this, value.value_);
        return text;
    }
    template <typename Plain>
    Text operator()(const Plain& value) const {
        return value;
    }
    static Text of(const Json& json) { return std::visit(JsonWriter(), json.value_); }
};

std::string Json::dump() const {
    return JsonWriter::of(*this).dump(-1, ' ', false, Text::error_handler_t::replace);
}

}  // namespace cli
