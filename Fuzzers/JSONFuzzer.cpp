// A property list built from bytes, written as JSON by both passes and compared with a recursion over the
// same list. The bytes are steps: make a value, open or close an array or a dictionary.
#include "../Tests/Support/CFText.h"
#include "Input.h"
#include "Require.h"

#include "KIVCS2JSON.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace
{
using kiv::CFRef;
using Object = CFRef<CFTypeRef>;

Object text(Input &input)
{
    const auto form = input.take();
    std::u16string units(form % 24, u'\0');
    for (char16_t &unit : units)
        unit = (form & 0x80) != 0 ? input.take<char16_t>() : input.take() & 0x7f;
    return Object{kiv::test::fromUnits(units).release()};
}

Object number(Input &input)
{
    const CFNumberType type = 1 + input.take() % kCFNumberMaxType;
    const auto bytes = input.take<int64_t>();
    return Object{CFNumberCreate(nullptr, type, &bytes)};
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
        m_open.push_back(
            {Object{isArray ? static_cast<CFTypeRef>(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks))
                            : CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                        &kCFTypeDictionaryValueCallBacks)},
             isArray,
             {}});
    }
    void key(Object value)
    {
        m_open.back().key = std::move(value);
    }
    void put(const Object &value)
    {
        Container &into = m_open.back();
        void *object = const_cast<void *>(into.object.get());
        if (into.isArray)
            CFArrayAppendValue(static_cast<CFMutableArrayRef>(object), value.get());
        else if (into.key)
            CFDictionarySetValue(static_cast<CFMutableDictionaryRef>(object), into.key.get(), value.get());
    }
    // Puts the innermost container into the next one; false for the outermost.
    bool close()
    {
        if (m_open.size() == 1)
            return false;
        const Object done = std::move(m_open.back().object);
        m_open.pop_back();
        put(done);
        return true;
    }
    [[nodiscard]] CFTypeRef outermost() const
    {
        return m_open.front().object.get();
    }

private:
    struct Container
    {
        Object object;
        bool isArray;
        Object key;
    };
    std::vector<Container> m_open;
};

// Each of these appends the text of a value. False if the value has no text: the containers around it end.
bool addQuoted(CFTypeRef value, std::string &text)
{
    const auto string = static_cast<CFStringRef>(value);
    const auto [units, bytes] = kiv::test::convert(string, kCFStringEncodingUTF8);
    if (units < CFStringGetLength(string))
        return false;
    text += '"' + bytes + '"';
    return true;
}

void addNumber(CFNumberRef number, std::string &text)
{
    char printed[400];
    double real = 0;
    int64_t integer = 0;
    CFNumberGetValue(number, kCFNumberDoubleType, &real);
    CFNumberGetValue(number, kCFNumberSInt64Type, &integer);
    switch (CFNumberGetType(number))
    {
    case kCFNumberFloat32Type:
    case kCFNumberFloat64Type:
    case kCFNumberFloatType:
    case kCFNumberDoubleType:
    case kCFNumberCGFloatType:
        std::snprintf(printed, sizeof printed, "%f", real);
        break;
    case kCFNumberCharType:
        std::snprintf(printed, sizeof printed, "%hhui", static_cast<unsigned char>(integer));
        break;
    default:
        std::snprintf(printed, sizeof printed, "%lld", static_cast<long long>(integer));
    }
    text += printed;
}

bool add(CFTypeRef value, std::string &text);

bool addMembers(CFArrayRef array, std::string &text)
{
    for (CFIndex index = 0; index < CFArrayGetCount(array); ++index)
    {
        text += index > 0 ? ", " : "";
        if (!add(CFArrayGetValueAtIndex(array, index), text))
            return false;
    }
    return true;
}

void addEntries(CFDictionaryRef dictionary, std::string &text)
{
    const auto count = static_cast<size_t>(CFDictionaryGetCount(dictionary));
    std::vector<const void *> keys(count);
    std::vector<const void *> values(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    for (size_t index = 0; index < count; ++index)
    {
        text += index > 0 ? ", " : "";
        if (CFGetTypeID(keys[index]) != CFStringGetTypeID() || !addQuoted(keys[index], text))
            return;
        text += " : ";
        if (!add(values[index], text))
            return;
    }
}

bool add(CFTypeRef value, std::string &text)
{
    const CFTypeID type = CFGetTypeID(value);
    if (type == CFStringGetTypeID())
        return addQuoted(value, text);
    if (type == CFNumberGetTypeID())
        addNumber(static_cast<CFNumberRef>(value), text);
    else if (type == CFArrayGetTypeID())
    {
        text += '[';
        if (!addMembers(static_cast<CFArrayRef>(value), text))
            return false;
        text += ']';
    }
    else if (type == CFDictionaryGetTypeID())
    {
        text += '{';
        addEntries(static_cast<CFDictionaryRef>(value), text); // a dictionary hides a failure
        text += '}';
    }
    return true;
}

void write(CFTypeRef list)
{
    std::string expected;
    const KIVCS2Status wanted = add(list, expected) ? KIVCS2STATUS_OK : KIVCS2STATUS_UNSUPPORTED_ERR;
    uint32_t measured = 0;
    require(kivCS2JSON_createFromPlist(list, nullptr, &measured) == KIVCS2STATUS_OK);
    std::vector<char> room(size_t{measured} +
                           1); // exactly that size, so that AddressSanitizer detects one byte too many
    char *cursor = room.data();
    uint32_t length = 0;
    require(kivCS2JSON_createFromPlist(list, &cursor, &length) == wanted);
    require(length <= measured && cursor == room.data() + length && *cursor == '\0');
    require(expected == std::string(room.data(), length));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input input{data, size};
    Builder builder;
    while (input.size > 0)
    {
        switch (input.take() % 8)
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
        default: // a value without a text, or a key that is not a string
            if (input.take() % 2 == 0)
                builder.put(Object{CFRetain(kCFBooleanTrue)});
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
