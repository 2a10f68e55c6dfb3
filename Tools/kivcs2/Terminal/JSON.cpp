// JSON values, and their text by the JSON library, which only this source includes.
#include "Terminal/JSON.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tool
{

Json::Json() noexcept = default;
Json::~Json() = default;
Json::Json(const Json &other) = default;
Json::Json(Json &&other) noexcept = default;
Json &Json::operator=(const Json &other) = default;
Json &Json::operator=(Json &&other) noexcept = default;

Json::Json(std::nullptr_t) noexcept {}
Json::Json(bool value) : m_value(value) {}
Json::Json(int value) : m_value(int64_t{value}) {}
Json::Json(long value) : m_value(int64_t{value}) {}
Json::Json(long long value) : m_value(int64_t{value}) {}
Json::Json(unsigned value) : m_value(uint64_t{value}) {}
Json::Json(unsigned long value) : m_value(uint64_t{value}) {}
Json::Json(unsigned long long value) : m_value(uint64_t{value}) {}
Json::Json(double value) : m_value(value) {}
Json::Json(const char *text) : m_value(std::string{text}) {}
Json::Json(std::string text) : m_value(std::move(text)) {}
Json::Json(std::string_view text) : m_value(std::string{text}) {}

Json::Json(std::initializer_list<Json> list)
{
    const bool isObject =
        std::ranges::all_of(list,
                            [](const Json &element)
                            {
                                const auto *pair = std::get_if<Array>(&element.m_value);
                                return pair != nullptr && pair->size() == 2 &&
                                       std::holds_alternative<std::string>((*pair)[0].m_value);
                            });
    if (!isObject)
    {
        Array &elements = m_value.emplace<Array>();
        elements.reserve(list.size());
        for (const Json &element : list)
            elements.emplace_back().m_value = std::move(element.m_value);
        return;
    }
    Object &members = m_value.emplace<Object>();
    members.reserve(list.size());
    for (const Json &element : list)
    {
        auto &pair = std::get<Array>(element.m_value);
        members.push_back({std::move(std::get<std::string>(pair[0].m_value)), std::move(pair[1])});
    }
}

Json Json::array()
{
    Json made;
    made.m_value.emplace<Array>();
    return made;
}

Json Json::object()
{
    Json made;
    made.m_value.emplace<Object>();
    return made;
}

void Json::push_back(Json value)
{
    if (isNull())
        m_value.emplace<Array>();
    std::get<Array>(m_value).push_back(std::move(value));
}

Json &Json::operator[](std::string_view key)
{
    if (isNull())
        m_value.emplace<Object>();
    auto &members = std::get<Object>(m_value);
    const auto found = std::ranges::find(members, key, &Member::key);
    return found != members.end() ? found->value : members.emplace_back(Member{std::string{key}, {}}).value;
}

void Json::update(const Json &other)
{
    for (const Member &member : std::get<Object>(other.m_value))
        (*this)[member.key] = member.value;
}

bool Json::isNull() const
{
    return std::holds_alternative<std::nullptr_t>(m_value);
}

size_t Json::size() const
{
    if (const auto *elements = std::get_if<Array>(&m_value))
        return elements->size();
    const auto *members = std::get_if<Object>(&m_value);
    return members != nullptr ? members->size() : 0;
}

struct JsonWriter
{
    using Stored = nlohmann::ordered_json;

    Stored operator()(const Json::Array &elements) const
    {
        Stored stored = Stored::array();
        for (const Json &element : elements)
            stored.push_back(of(element));
        return stored;
    }
    Stored operator()(const Json::Object &members) const
    {
        Stored stored = Stored::object();
        for (const auto &member : members)
            stored[member.key] = of(member.value);
        return stored;
    }
    Stored operator()(const auto &value) const
    {
        return Stored(value);
    }

    static Stored of(const Json &value)
    {
        return std::visit(JsonWriter{}, value.m_value);
    }
    static std::string text(const Json &value, int indent)
    {
        return of(value).dump(indent, ' ', false, Stored::error_handler_t::replace);
    }
};

std::string Json::line() const
{
    return JsonWriter::text(*this, -1);
}

std::string Json::text() const
{
    return JsonWriter::text(*this, 2);
}

} // namespace tool
