// Values that --json writes. Only JSON.cpp includes the library that writes them, because it takes seconds
// to compile.
#ifndef KIV_TOOL_JSON_H
#define KIV_TOOL_JSON_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tool
{

/// null, a truth value, a number, a text, an array or an object, whose keys keep their order. A braced list
/// of pairs that begin with a text is an object, any other list an array.
class Json
{
public:
    Json() noexcept;
    Json(std::nullptr_t) noexcept;
    Json(bool value);
    Json(int value);
    Json(long value);
    Json(long long value);
    Json(unsigned value);
    Json(unsigned long value);
    Json(unsigned long long value);
    Json(double value);
    Json(const char *text);
    Json(std::string text);
    Json(std::string_view text);
    Json(std::initializer_list<Json> list);
    template <class Value>
    Json(const std::vector<Value> &values) : Json(array())
    {
        for (const Value &value : values)
            push_back(value);
    }
    Json(const Json &other);
    Json(Json &&other) noexcept;
    Json &operator=(const Json &other);
    Json &operator=(Json &&other) noexcept;
    ~Json();

    [[nodiscard]] static Json array();
    [[nodiscard]] static Json object();

    /// Adds an element to an array; null becomes an array.
    void push_back(Json value);

    /// The value of a key of an object, null for a new key; null becomes an object.
    Json &operator[](std::string_view key);

    /// Copies all keys of another object.
    void update(const Json &other);

    [[nodiscard]] bool isNull() const;

    /// Elements of an array or keys of an object; 0 for any other value.
    [[nodiscard]] size_t size() const;
    [[nodiscard]] bool empty() const
    {
        return size() == 0;
    }

    /// The text in one line. Bytes that are not UTF-8 become U+FFFD, numbers that are not finite null.
    [[nodiscard]] std::string line() const;

    /// The same, indented by two blanks for each level.
    [[nodiscard]] std::string text() const;

private:
    friend struct JsonWriter;
    struct Member;
    using Array = std::vector<Json>;
    using Object = std::vector<Member>;
    using Value = std::variant<std::nullptr_t, bool, int64_t, uint64_t, double, std::string, Array, Object>;

    // The elements of a braced list are temporaries, whose values are moved out of them.
    mutable Value m_value;
};

struct Json::Member
{
    std::string key;
    Json value;
};

} // namespace tool

#endif
