// A JSON value that this program builds and prints. Only json.cpp includes the JSON library, which would add
// seconds to the compilation of each source.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace velto::host {

class Json {
public:
    struct Member;
    using Elements = std::vector<Json>;
    using Members = std::vector<Member>; // in the order in which they were added
    using Value =
        std::variant<std::nullptr_t, bool, int64_t, uint64_t, double, std::string, Elements, Members>;

    Json(); // null
    Json(const Json &other);
    Json(Json &&other) noexcept;
    ~Json();
    Json &operator=(const Json &other);
    Json &operator=(Json &&other) noexcept;

    Json(std::nullptr_t);
    Json(bool value);
    template <std::signed_integral Number>
    Json(Number value);
    template <std::unsigned_integral Number>
    Json(Number value);
    template <std::floating_point Number>
    Json(Number value);
    Json(const char *text);
    Json(std::string text);
    Json(Elements elements);
    template <typename Element>
    Json(const std::vector<Element> &elements);
    // {{"key", value}, ...}: an object.
    Json(std::initializer_list<Member> members);

    static Json Array();

    bool IsNull() const;
    const Value &Get() const { return m_value; }

    // Adds an element to an array.
    void Append(Json element);
    // The value of a key; a missing key is added with a null value. If this is null, it becomes an object.
    Json &operator[](const std::string &key);

    // On one line. Replaces bytes that are not UTF-8.
    std::string Text() const;
    // Indented, with one member on each line.
    std::string IndentedText() const;

private:
    Value m_value;
};

struct Json::Member {
    std::string key;
    Json value;
};

// Defined here because Member, which Value contains, must be complete.
template <std::signed_integral Number>
Json::Json(Number value) : m_value(std::in_place_type<int64_t>, value)
{
}

template <std::unsigned_integral Number>
Json::Json(Number value) : m_value(std::in_place_type<uint64_t>, value)
{
}

template <std::floating_point Number>
Json::Json(Number value) : m_value(std::in_place_type<double>, value)
{
}

template <typename Element>
Json::Json(const std::vector<Element> &elements) : Json(Elements(elements.begin(), elements.end()))
{
}

} // namespace velto::host
