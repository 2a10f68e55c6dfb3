// A property list built from bytes, as JSON text by both passes; where that is legal JSON it parses back to
// the same values. The bytes are steps: make a value, open or close an array or a dictionary.
#include "KIVCS2JSON.h"

#include "Private/Support/CFRef.h"

#include "Expect.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace
{
using kiv::CFRef;
using Json = nlohmann::ordered_json;

// A value beside what it parses back to. The text is no JSON where the list holds what JSON lacks.
struct Value
{
    CFRef<CFTypeRef> object;
    Json json;
    bool legal = true;
};

struct Container
{
    CFRef<CFTypeRef> object;
    bool isArray = true;
    Json json;
    bool legal = true;
    Value key;
};

class Input
{
public:
    Input(const uint8_t *data, size_t size) : m_data{data}, m_size{size} {}

    [[nodiscard]] bool atEnd() const
    {
        return m_size == 0;
    }
    template <class T>
    [[nodiscard]] T take()
    {
        T value{};
        const size_t count = m_size < sizeof value ? m_size : sizeof value;
        if (count > 0)
            std::memcpy(&value, m_data, count);
        m_data += count;
        m_size -= count;
        return value;
    }

private:
    const uint8_t *m_data;
    size_t m_size;
};

bool isWellFormed(const std::vector<UniChar> &units)
{
    for (size_t index = 0; index < units.size(); ++index)
    {
        if ((units[index] & 0xf800) != 0xd800)
            continue;
        if (units[index] > 0xdbff || index + 1 == units.size() || (units[index + 1] & 0xfc00) != 0xdc00)
            return false;
        ++index;
    }
    return true;
}

Value text(Input &input)
{
    Value value;
    const auto form = input.take<uint8_t>();
    std::vector<UniChar> units(form % 24);
    for (UniChar &unit : units)
        unit = (form & 0x80) != 0 ? input.take<UniChar>() : input.take<uint8_t>() & 0x7f;
    const CFRef<CFStringRef> string{
        CFStringCreateWithCharacters(nullptr, units.data(), static_cast<CFIndex>(units.size()))};
    value.object = CFRef<CFTypeRef>{CFRetain(string.get())};
    value.legal = isWellFormed(units);
    for (const UniChar unit : units)
        value.legal = value.legal && unit >= 0x20 && unit != '"' && unit != '\\';
    if (!value.legal)
        return value;
    std::string bytes(units.size() * 3 + 1, '\0');
    KIV_FUZZ_EXPECT(CFStringGetCString(string.get(), bytes.data(), static_cast<CFIndex>(bytes.size()),
                                       kCFStringEncodingUTF8) != 0);
    value.json = std::string{bytes.c_str()};
    return value;
}

// printf's text of a fraction, read back.
Json printed(double real)
{
    char text[400];
    std::snprintf(text, sizeof text, "%f", real);
    return std::strtod(text, nullptr);
}

Value number(Input &input)
{
    const CFNumberType type = 1 + input.take<uint8_t>() % kCFNumberMaxType;
    const auto bytes = input.take<int64_t>();
    const CFRef<CFNumberRef> made{CFNumberCreate(nullptr, type, &bytes)};
    Value value{CFRef<CFTypeRef>{CFRetain(made.get())}, {}, type != kCFNumberCharType};
    if (type == kCFNumberFloat32Type || type == kCFNumberFloatType || type == kCFNumberFloat64Type ||
        type == kCFNumberDoubleType || type == kCFNumberCGFloatType)
    {
        double real = 0;
        CFNumberGetValue(made.get(), kCFNumberDoubleType, &real);
        value.legal = std::isfinite(real);
        if (value.legal)
            value.json = printed(real);
        return value;
    }
    int64_t integer = 0;
    CFNumberGetValue(made.get(), kCFNumberSInt64Type, &integer);
    value.json = integer;
    return value;
}

// The steps so far: open containers, the innermost last; the outermost is an array.
class Builder
{
public:
    Builder()
    {
        open(true);
    }

    void open(bool isArray)
    {
        Container container;
        container.isArray = isArray;
        container.json = isArray ? Json::array() : Json::object();
        container.object = CFRef<CFTypeRef>{
            isArray ? static_cast<CFTypeRef>(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks))
                    : CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                &kCFTypeDictionaryValueCallBacks)};
        m_open.push_back(std::move(container));
    }

    void key(Value value)
    {
        m_open.back().key = std::move(value);
    }

    void put(Value value)
    {
        Container &into = m_open.back();
        into.legal = into.legal && value.legal;
        void *object = const_cast<void *>(into.object.get());
        if (into.isArray)
        {
            CFArrayAppendValue(static_cast<CFMutableArrayRef>(object), value.object.get());
            into.json.push_back(std::move(value.json));
            return;
        }
        if (!into.key.object)
            return;
        CFDictionarySetValue(static_cast<CFMutableDictionaryRef>(object), into.key.object.get(),
                             value.object.get());
        into.legal = into.legal && into.key.legal;
        if (into.key.legal && into.key.json.is_string())
            into.json[into.key.json.get<std::string>()] = std::move(value.json);
        else
            into.legal = false;
    }

    // Puts the innermost into the one around it; false for the outermost.
    bool close()
    {
        if (m_open.size() == 1)
            return false;
        Container &done = m_open.back();
        Value value{std::move(done.object), std::move(done.json), done.legal};
        m_open.pop_back();
        put(std::move(value));
        return true;
    }

    [[nodiscard]] const Container &outermost() const
    {
        return m_open.front();
    }

private:
    std::vector<Container> m_open;
};

void write(const Container &list)
{
    uint32_t measured = 0;
    KIV_FUZZ_EXPECT(kivCS2JSON_createFromPlist(list.object.get(), nullptr, &measured) == KIVCS2STATUS_OK);
    auto *room = static_cast<char *>(std::malloc(size_t{measured} + 1)); // of exactly what was asked for
    char *cursor = room;
    uint32_t length = 0;
    const KIVCS2Status status = kivCS2JSON_createFromPlist(list.object.get(), &cursor, &length);
    KIV_FUZZ_EXPECT(length <= measured && cursor == room + length && *cursor == '\0');
    KIV_FUZZ_EXPECT(status == KIVCS2STATUS_OK || (status == KIVCS2STATUS_UNSUPPORTED_ERR && !list.legal));
    if (list.legal)
    {
        const Json parsed = Json::parse(room, room + length, nullptr, false);
        KIV_FUZZ_EXPECT(parsed == list.json);
    }
    std::free(room);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input input{data, size};
    Builder builder;
    while (!input.atEnd())
    {
        switch (input.take<uint8_t>() % 8)
        {
        case 0:
        case 1:
            builder.put(text(input));
            break;
        case 2:
            builder.put(number(input));
            break;
        case 3:
            builder.key(text(input));
            break;
        case 4:
            builder.open(true);
            break;
        case 5:
            builder.open(false);
            break;
        case 6:
            (void)builder.close();
            break;
        default: // a value that JSON has no text for, or a key that is no string
            if (input.take<uint8_t>() % 2 == 0)
                builder.put({CFRef<CFTypeRef>{CFRetain(kCFBooleanTrue)}, {}, false});
            else
                builder.key(number(input));
        }
    }
    while (builder.close())
    {
    }
    write(builder.outermost());
    return 0;
}
