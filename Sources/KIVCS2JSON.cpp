// JSON: walks a property list and writes its text, or counts it.
#include "KIVCS2JSON.h"

#include "Private/Check.h"
#include "Private/JSON_Number.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <type_traits>

namespace
{
constexpr uint64_t kLongestText = std::numeric_limits<uint32_t>::max();

// A stack whose first elements need no memory of the heap.
template <class T, size_t kInline>
class Stack
{
    static_assert(std::is_trivially_copyable_v<T>);

public:
    Stack() = default;
    Stack(const Stack &) = delete;
    Stack &operator=(const Stack &) = delete;
    ~Stack()
    {
        if (m_data != m_inline.data())
            std::free(m_data);
    }

    // Room for `count` more on top, uninitialised, or null without memory.
    [[nodiscard]] T *push(size_t count)
    {
        if (count > m_capacity - m_size && !grow(count))
            return nullptr;
        T *first = m_data + m_size;
        m_size += count;
        return first;
    }
    void pop(size_t count)
    {
        m_size -= count;
    }
    [[nodiscard]] size_t size() const
    {
        return m_size;
    }
    [[nodiscard]] T &operator[](size_t index)
    {
        return m_data[index];
    }

private:
    [[nodiscard]] bool grow(size_t count)
    {
        if (count > std::numeric_limits<size_t>::max() / 4 / sizeof(T) - m_size)
            return false;
        const size_t capacity = 2 * (m_size + count);
        const bool isInline = m_data == m_inline.data();
        void *block = std::realloc(isInline ? nullptr : m_data, capacity * sizeof(T));
        if (block == nullptr)
            return false;
        if (isInline)
            std::memcpy(block, m_data, m_size * sizeof(T));
        m_data = static_cast<T *>(block);
        m_capacity = capacity;
        return true;
    }

    std::array<T, kInline> m_inline; // left as it is: most of it is never used
    T *m_data = m_inline.data();
    size_t m_size = 0;
    size_t m_capacity = kInline;
};

// Where the text goes: to a cursor and a counter, or to the counter alone.
class Text
{
public:
    Text(char *cursor, uint32_t length) : m_cursor{cursor}, m_length{length} {}

    [[nodiscard]] bool measures() const
    {
        return m_cursor == nullptr;
    }
    [[nodiscard]] char *cursor() const
    {
        return m_cursor;
    }
    [[nodiscard]] uint32_t length() const
    {
        return m_length;
    }

    // Makes this failure the answer to everything that follows: no text may go on behind a gap that
    // would leave the measured length below the written one.
    [[nodiscard]] KIVCS2Status breakOff()
    {
        m_broken = true;
        return KIVCS2STATUS_MEMORY_ERR;
    }

    [[nodiscard]] KIVCS2Status append(std::string_view piece)
    {
        if (m_broken || piece.size() > kLongestText - m_length) [[unlikely]]
            return breakOff();
        if (m_cursor != nullptr)
            std::memcpy(m_cursor, piece.data(), piece.size());
        advance(piece.size());
        return KIVCS2STATUS_OK;
    }

    // Kept: between quotes and nothing escaped; hosts escape what they store.
    [[nodiscard]] KIVCS2Status appendQuoted(CFStringRef string)
    {
        constexpr uint64_t kQuotes = 2;
        const CFIndex units = CFStringGetLength(string);
        const CFIndex most = CFStringGetMaximumSizeForEncoding(units, kCFStringEncodingUTF8);
        const uint64_t left = kLongestText - m_length;
        if (m_broken || most < 0 || (measures() && static_cast<uint64_t>(most) + kQuotes > left) ||
            left < kQuotes) [[unlikely]]
            return breakOff();
        if (measures())
        {
            advance(static_cast<size_t>(most) + kQuotes);
            return KIVCS2STATUS_OK;
        }

        const auto room = static_cast<CFIndex>(left - kQuotes);
        CFIndex bytes = 0;
        const CFIndex converted =
            CFStringGetBytes(string, CFRangeMake(0, units), kCFStringEncodingUTF8, 0, false,
                             reinterpret_cast<UInt8 *>(m_cursor + 1), most < room ? most : room, &bytes);
        if (converted < units) [[unlikely]]
        {
            *m_cursor = '\0';
            // With less than the most room it is the room that may have ended the conversion.
            return most > room ? breakOff() : KIVCS2STATUS_UNSUPPORTED_ERR;
        }
        m_cursor[0] = '"';
        m_cursor[bytes + 1] = '"';
        advance(static_cast<size_t>(bytes) + kQuotes);
        return KIVCS2STATUS_OK;
    }

private:
    void advance(size_t bytes)
    {
        m_length += static_cast<uint32_t>(bytes);
        if (m_cursor == nullptr)
            return;
        m_cursor += bytes;
        *m_cursor = '\0';
    }

    char *m_cursor;
    uint32_t m_length;
    bool m_broken = false;
};

// An array or a dictionary that is being written.
struct Level
{
    CFArrayRef array; // null for a dictionary
    CFIndex count;
    CFIndex next;
    size_t firstKey; // in the stack of keys and values
};

// Walks without calling itself, so that no nesting reaches the end of a thread's stack.
class Walk
{
public:
    explicit Walk(Text &text) : m_text{text} {}

    [[nodiscard]] KIVCS2Status write(CFTypeRef plist)
    {
        KIVCS2Status status = begin(plist);
        while (m_levels.size() > 0)
        {
            const Level &top = m_levels[m_levels.size() - 1];
            if (KIVCS2_FAILED(status))
                status = abandon(status);
            else
                status = top.next < top.count ? member() : finish();
        }
        return status;
    }

private:
    // Writes a string or a number, opens an array or a dictionary.
    [[nodiscard]] KIVCS2Status begin(CFTypeRef value)
    {
        const CFTypeID type = value != nullptr ? CFGetTypeID(value) : 0;
        if (type == m_string)
            return m_text.appendQuoted(static_cast<CFStringRef>(value));
        if (type == m_number)
            return number(static_cast<CFNumberRef>(value));
        if (type == m_dictionary)
            return openDictionary(static_cast<CFDictionaryRef>(value));
        if (type == m_array)
            return openArray(static_cast<CFArrayRef>(value));
        return KIVCS2STATUS_OK; // Kept: other types have no text, and their entries no value
    }

    [[nodiscard]] KIVCS2Status number(CFNumberRef number)
    {
        kiv::json::NumberText buffer;
        return m_text.append(kiv::json::textOf(number, buffer));
    }

    [[nodiscard]] KIVCS2Status open(const Level &level, std::string_view bracket)
    {
        if (m_levels.size() == KIVCS2_JSON_MAX_DEPTH)
            return KIVCS2STATUS_UNSUPPORTED_ERR;
        Level *pushed = m_levels.push(1);
        if (pushed == nullptr)
            return noMemory();
        *pushed = level;
        if (const KIVCS2Status status = m_text.append(bracket); KIVCS2_FAILED(status))
        {
            m_levels.pop(1);
            return status;
        }
        return KIVCS2STATUS_OK;
    }

    [[nodiscard]] KIVCS2Status openArray(CFArrayRef array)
    {
        return open({array, CFArrayGetCount(array), 0, 0}, "[");
    }

    [[nodiscard]] KIVCS2Status openDictionary(CFDictionaryRef dictionary)
    {
        const CFIndex count = CFDictionaryGetCount(dictionary);
        const auto pairs = static_cast<size_t>(count);
        const size_t first = m_pointers.size();
        const void **keys = m_pointers.push(2 * pairs);
        if (keys == nullptr)
            return noMemory();
        CFDictionaryGetKeysAndValues(dictionary, keys, keys + pairs);
        const KIVCS2Status status = open({nullptr, count, 0, first}, "{");
        if (KIVCS2_FAILED(status))
            m_pointers.pop(2 * pairs);
        return status;
    }

    // What a dictionary hides when it fails must not make the measured length too short.
    [[nodiscard]] KIVCS2Status noMemory()
    {
        return m_text.measures() ? m_text.breakOff() : KIVCS2STATUS_MEMORY_ERR;
    }

    // The next member of the innermost level.
    [[nodiscard]] KIVCS2Status member()
    {
        Level &level = m_levels[m_levels.size() - 1];
        const CFIndex index = level.next++;
        if (index > 0)
            KIV_TRY(m_text.append(", "));
        if (level.array != nullptr)
            return begin(CFArrayGetValueAtIndex(level.array, index));

        const void *key = m_pointers[level.firstKey + static_cast<size_t>(index)];
        const void *value = m_pointers[level.firstKey + static_cast<size_t>(level.count + index)];
        if (key == nullptr || CFGetTypeID(key) != m_string)
            return KIVCS2STATUS_UNSUPPORTED_ERR;
        KIV_TRY(m_text.appendQuoted(static_cast<CFStringRef>(key)));
        KIV_TRY(m_text.append(" : "));
        return begin(value);
    }

    // Closes the innermost level. After a failure: an array hands it on.
    [[nodiscard]] KIVCS2Status abandon(KIVCS2Status status)
    {
        if (m_levels[m_levels.size() - 1].array == nullptr)
            return finish(); // Kept: a dictionary closes and forgets the failure; hosts get what there is
        m_levels.pop(1);
        return status;
    }

    [[nodiscard]] KIVCS2Status finish()
    {
        const Level level = m_levels[m_levels.size() - 1];
        m_levels.pop(1);
        if (level.array != nullptr)
            return m_text.append("]");
        m_pointers.pop(2 * static_cast<size_t>(level.count));
        return m_text.append("}");
    }

    Text &m_text;
    Stack<Level, 16> m_levels;
    Stack<const void *, 64> m_pointers;
    const CFTypeID m_string = CFStringGetTypeID();
    const CFTypeID m_number = CFNumberGetTypeID();
    const CFTypeID m_array = CFArrayGetTypeID();
    const CFTypeID m_dictionary = CFDictionaryGetTypeID();
};
} // namespace

KIVCS2Status kivCS2JSON_createFromPlist(CFTypeRef plist, char **cursor, uint32_t *length)
{
    KIV_CHECK_AS(plist != nullptr, "(plist) != NULL", KIVCS2STATUS_PARAM_ERR);
    KIV_CHECK_AS(length != nullptr, "(length) != NULL", KIVCS2STATUS_PARAM_ERR);

    Text text{cursor != nullptr ? *cursor : nullptr, *length};
    const KIVCS2Status status = Walk{text}.write(plist);
    *length = text.length();
    if (cursor != nullptr)
        *cursor = text.cursor();
    return status;
}
