// A JSON value as the commands fill it: light to include, in the order in which it was filled. Reading and
// writing JSON text is json.cpp's.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace cli {

class Json {
public:
    using Array = std::vector<Json>;
    using Object = std::vector<std::pair<std::string, Json>>;

    Json(std::nullptr_t = nullptr) {}
    Json(bool value) : value_(value) {}
    template <std::integral Number>
    Json(Number value) : value_(static_cast<std::int64_t>(value)) {}
    Json(double value) : value_(value) {}
    Json(const char* text) : value_(std::string(text)) {}
    Json(std::string text) : value_(std::move(text)) {}
    template <typename Item>
    Json(const std::vector<Item>& items) : value_(Array(items.begin(), items.end())) {}
    /// Pairs that begin with a text make an object: {{"name", 1}}; anything else an array: {1, 0}.
    Json(std::initializer_list<Json> items);
    Json(const Json& other);
    Json(Json&& other) noexcept;
    Json& operator=(Json other) noexcept;
    ~Json();

    static Json array(Array items = {});
    static Json object();

    bool isNull() const { return std::holds_alternative<std::nullptr_t>(value_); }
    bool isText() const { return std::holds_alternative<std::string>(value_); }
    /// Empty when it is none.
    const std::string& text() const;

    /// The member of that name; made, null, when there is none. A null becomes an object.
    Json& operator[](const std::string& name);
    /// Adds an item; a null becomes an array.
    void push_back(Json item);
    std::size_t size() const;

    /// In one line. Bytes that are no UTF-8 (they come from files and devices) are replaced.
    std::string dump() const;

private:
    friend struct JsonWriter;
    std::variant<std::nullptr_t, bool, std::int64_t, double, std::string, Array, Object> value_;
};

}  // namespace cli
