#include "velto-host/json.h"

#include <algorithm>

#include <nlohmann/json.hpp>

namespace velto::host {
namespace {

using Library = nlohmann::ordered_json;

Library Convert(const Json &json);

struct Converter {
    template <typename Scalar>
    Library operator()(const Scalar &value) const
    {
        return value;
    }

    Library operator()(const Json::Elements &elements) const
    {
        Library array = Library::array();
        for (const Json &element : elements) {
            array.push_back(Convert(element));
        }
        return array;
    }

    Library operator()(const Json::Members &members) const
    {
        Library object = Library::object();
        for (const Json::Member &member : members) {
            object[member.key] = Convert(member.value);
        }
        return object;
    }
};

Library Convert(const Json &json)
{
    return std::visit(Converter(), json.Get());
}

std::string Dump(const Json &json, int indent)
{
    return Convert(json).dump(indent, ' ', false, Library::error_handler_t::replace);
}

} // namespace

Json::Json() = default;
Json::Json(const Json &other) = default;
Json::Json(Json &&other) noexcept = default;
Json::~Json() = default;
Json &Json::operator=(const Json &other) = default;
Json &Json::operator=(Json &&other) noexcept = default;
Json::Json(std::nullptr_t) {}
Json::Json(bool value) : m_value(std::in_place_type<bool>, value) {}
Json::Json(const char *text) : m_value(std::in_place_type<std::string>, text) {}
Json::Json(std::string text) : m_value(std::in_place_type<std::string>, std::move(text)) {}
Json::Json(Elements elements) : m_value(std::in_place_type<Elements>, std::move(elements)) {}
Json::Json(std::initializer_list<Member> members) : m_value(std::in_place_type<Members>, members) {}

void Json::Append(Json element)
{
    std::get<Elements>(m_value).push_back(std::move(element));
}

Json &Json::operator[](const std::string &key)
{
    if (IsNull()) {
        m_value.emplace<Members>();
    }
    auto &members = std::get<Members>(m_value);
    auto member =
        std::find_if(members.begin(), members.end(), [&](const Member &each) { return each.key == key; });
    if (member == members.end()) {
        member = members.insert(member, {key, nullptr});
    }
    return member->value;
}

Json Json::Array()
{
    return Elements();
}

bool Json::IsNull() const
{
    return std::holds_alternative<std::nullptr_t>(m_value);
}

std::string Json::Text() const
{
    return Dump(*this, -1);
}

std::string Json::IndentedText() const
{
    return Dump(*this, 2);
}

} // namespace velto::host
