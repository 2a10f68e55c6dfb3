// JSON: walks a property list and writes its text, or counts it.
#include "KIVCS2JSON.h"

#include "Private/JSON/Number.h"
#include "Private/Support/Check.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <type_traits>

namespace
{
// A stack whose first elements need no heap memory.
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

    // Room for `count` more elements on top, uninitialised; null if there is no memory.
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

    std::array<T, kInline> m_inline; // uninitialised: most of it is never used
    T *m_data = m_inline.data();
    size_t m_size = 0;
    size_t m_capacity = kInline;
};

// Most keys and texts are too short to be worth a call, of memcpy or of this.
[[gnu::always_inline]] inline void copy(char *to, const char *from, size_t size)
{
    const auto ends = [=](auto word) // two words that overlap, for sizes of one to two words
    {
        std::memcpy(&word, from + size - sizeof word, sizeof word);
        const auto last = word;
        std::memcpy(&word, from, sizeof word);
        std::memcpy(to, &word, sizeof word);
        std::memcpy(to + size - sizeof word, &last, sizeof word);
    };
    if (size > 32) [[unlikely]]
        std::memcpy(to, from, size);
    else if (size >= 16)
        ends(static_cast<unsigned __int128>(0));
    else if (size >= 8)
        ends(uint64_t{});
    else if (size >= 4)
        ends(uint32_t{});
    else if (size >= 2)
        ends(uint16_t{});
    else if (size == 1)
        *to = *from;
}

// The output of the text: to a cursor and a counter, or only to the counter.
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

    // Makes everything that follows fail in the same way: no text may follow a gap that would leave the
    // measured length below the written one.
    [[nodiscard]] KIVCS2Status breakOff()
    {
        m_limit = m_length;
        return KIVCS2STATUS_MEMORY_ERR;
    }

    [[nodiscard]] KIVCS2Status append(std::string_view piece)
    {
        if (piece.size() > left()) [[unlikely]]
            return breakOff();
        if (m_cursor != nullptr)
            copy(m_cursor, piece.data(), piece.size());
        advance(piece.size());
        return KIVCS2STATUS_OK;
    }
    template <size_t kSize>
    [[nodiscard]] KIVCS2Status appendMark(const char (&mark)[kSize])
    {
        constexpr size_t kLength = kSize - 1;
        if (kLength > left()) [[unlikely]]
            return breakOff();
        if (m_cursor != nullptr)
            std::memcpy(m_cursor, mark, kLength);
        advance(kLength);
        return KIVCS2STATUS_OK;
    }

    // Kept: between quotes and not escaped; hosts escape the strings they store.
    [[nodiscard]] KIVCS2Status appendQuoted(CFStringRef string)
    {
        const CFIndex units = CFStringGetLength(string);
        if (m_cursor == nullptr)
            return measureQuoted(units);
        // An ASCII text has as many bytes as units.
        const char *ascii = CFStringGetCStringPtr(string, kCFStringEncodingASCII);
        if (ascii == nullptr || static_cast<uint64_t>(units) + kQuotes > left()) [[unlikely]]
            return convertQuoted(string, units);
        copy(m_cursor + 1, ascii, static_cast<size_t>(units));
        quote(static_cast<size_t>(units));
        return KIVCS2STATUS_OK;
    }

    // A member's key and the marks around it, in one step if there is room for all of it.
    [[nodiscard]] KIVCS2Status appendKey(CFStringRef key, bool isFirst)
    {
        constexpr std::string_view kBefore = ", \"";
        constexpr std::string_view kBehind = "\" : ";
        const auto units = static_cast<size_t>(CFStringGetLength(key));
        const char *ascii = CFStringGetCStringPtr(key, kCFStringEncodingASCII);
        if (m_cursor == nullptr || ascii == nullptr || kBefore.size() + units + kBehind.size() > left())
            [[unlikely]]
        {
            if (!isFirst)
                KIV_TRY(appendMark(", "));
            KIV_TRY(appendQuoted(key));
            return appendMark(" : ");
        }
        const std::string_view before = isFirst ? kBefore.substr(2) : kBefore;
        char *at = m_cursor;
        at = std::copy(before.begin(), before.end(), at);
        copy(at, ascii, units);
        std::memcpy(at + units, kBehind.data(), kBehind.size());
        advance(before.size() + units + kBehind.size());
        return KIVCS2STATUS_OK;
    }

private:
    static constexpr uint64_t kQuotes = 2;

    [[nodiscard]] uint64_t left() const
    {
        return m_limit - m_length;
    }

    [[nodiscard]] KIVCS2Status measureQuoted(CFIndex units)
    {
        const CFIndex most = CFStringGetMaximumSizeForEncoding(units, kCFStringEncodingUTF8);
        if (most < 0 || static_cast<uint64_t>(most) + kQuotes > left()) [[unlikely]]
            return breakOff();
        advance(static_cast<size_t>(most) + kQuotes);
        return KIVCS2STATUS_OK;
    }

    [[nodiscard]] KIVCS2Status convertQuoted(CFStringRef string, CFIndex units)
    {
        const CFIndex most = CFStringGetMaximumSizeForEncoding(units, kCFStringEncodingUTF8);
        if (most < 0 || left() < kQuotes)
            return breakOff();
        const auto room = static_cast<CFIndex>(left() - kQuotes);
        CFIndex bytes = 0;
        const CFIndex converted =
            CFStringGetBytes(string, CFRangeMake(0, units), kCFStringEncodingUTF8, 0, false,
                             reinterpret_cast<UInt8 *>(m_cursor + 1), std::min(most, room), &bytes);
        // If the room was less than the most, the room may have ended the conversion.
        if (converted < units)
            return most > room ? breakOff() : KIVCS2STATUS_UNSUPPORTED_ERR;
        quote(static_cast<size_t>(bytes));
        return KIVCS2STATUS_OK;
    }

    // Puts quotes around `bytes` bytes after the cursor and its quote.
    void quote(size_t bytes)
    {
        m_cursor[0] = '"';
        m_cursor[bytes + 1] = '"';
        advance(bytes + kQuotes);
    }

    void advance(size_t bytes)
    {
        m_length += static_cast<uint32_t>(bytes);
        if (m_cursor != nullptr)
            m_cursor += bytes;
    }

    char *m_cursor;
    uint32_t m_length;
    uint32_t m_limit = std::numeric_limits<uint32_t>::max();
};

// An array or a dictionary that is being written.
struct Level
{
    CFArrayRef array; // null for a dictionary
    CFIndex count;
    CFIndex next;
    size_t firstKey; // in the stack of keys and values
};

// Queried once: a call for each value would cost as much as writing it.
struct Types
{
    CFTypeID string = CFStringGetTypeID();
    CFTypeID number = CFNumberGetTypeID();
    CFTypeID array = CFArrayGetTypeID();
    CFTypeID dictionary = CFDictionaryGetTypeID();
};

const Types &types()
{
    static const Types asked;
    return asked;
}

// Walks without recursion, so that deep nesting cannot overflow a thread's stack.
class Walk
{
public:
    explicit Walk(Text &text) : m_text{text} {}

    [[nodiscard]] KIVCS2Status write(CFTypeRef plist)
    {
        KIVCS2Status status = begin(plist);
        while (m_levels.size() > 0)
        {
            Level &top = m_levels[m_levels.size() - 1];
            if (KIVCS2_FAILED(status))
                status = abandon(status);
            else
                status = top.next < top.count ? member(top) : finish();
        }
        return status;
    }

private:
    // Writes a string or a number, opens an array or a dictionary.
    [[nodiscard]] KIVCS2Status begin(CFTypeRef value)
    {
        const CFTypeID type = value != nullptr ? CFGetTypeID(value) : 0;
        if (type == m_types.string)
            return m_text.appendQuoted(static_cast<CFStringRef>(value));
        if (type == m_types.number)
        {
            kiv::json::NumberText buffer;
            return m_text.append(kiv::json::textOf(static_cast<CFNumberRef>(value), buffer));
        }
        if (type == m_types.dictionary)
            return openDictionary(static_cast<CFDictionaryRef>(value));
        if (type == m_types.array)
            return openArray(static_cast<CFArrayRef>(value));
        return KIVCS2STATUS_OK; // Kept: other types have no text, and their entries no value
    }

    [[nodiscard]] KIVCS2Status open(const Level &level, const char (&bracket)[2])
    {
        if (m_levels.size() == KIVCS2_JSON_MAX_DEPTH)
            return KIVCS2STATUS_UNSUPPORTED_ERR;
        Level *pushed = m_levels.push(1);
        if (pushed == nullptr)
            return noMemory();
        *pushed = level;
        if (const KIVCS2Status status = m_text.appendMark(bracket); KIVCS2_FAILED(status))
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

    // A failure hidden by a dictionary must not make the measured length too short.
    [[nodiscard]] KIVCS2Status noMemory()
    {
        return m_text.measures() ? m_text.breakOff() : KIVCS2STATUS_MEMORY_ERR;
    }

    [[nodiscard]] KIVCS2Status separate(CFIndex index)
    {
        return index > 0 ? m_text.appendMark(", ") : KIVCS2STATUS_OK;
    }

    // The next member of the innermost level, which is `level` until the member opens another.
    [[nodiscard]] KIVCS2Status member(Level &level)
    {
        const CFIndex index = level.next++;
        if (level.array != nullptr)
        {
            KIV_TRY(separate(index));
            return begin(CFArrayGetValueAtIndex(level.array, index));
        }

        const void *key = m_pointers[level.firstKey + static_cast<size_t>(index)];
        const void *value = m_pointers[level.firstKey + static_cast<size_t>(level.count + index)];
        if (key == nullptr || CFGetTypeID(key) != m_types.string) [[unlikely]]
        {
            KIV_TRY(separate(index));
            return KIVCS2STATUS_UNSUPPORTED_ERR;
        }
        KIV_TRY(m_text.appendKey(static_cast<CFStringRef>(key), index == 0));
        return begin(value);
    }

    // Closes the innermost level after a failure: an array passes the failure on.
    [[nodiscard]] KIVCS2Status abandon(KIVCS2Status status)
    {
        if (m_levels[m_levels.size() - 1].array == nullptr)
            return finish(); // Kept: a dictionary closes and forgets the failure; hosts get what is there
        m_levels.pop(1);
        return status;
    }

    [[nodiscard]] KIVCS2Status finish()
    {
        const Level level = m_levels[m_levels.size() - 1];
        m_levels.pop(1);
        if (level.array != nullptr)
            return m_text.appendMark("]");
        m_pointers.pop(2 * static_cast<size_t>(level.count));
        return m_text.appendMark("}");
    }

    Text &m_text;
    Stack<Level, 16> m_levels;
    Stack<const void *, 64> m_pointers;
    const Types &m_types = types();
};
} // namespace

KIVCS2Status kivCS2JSON_createFromPlist(CFTypeRef plist, char **cursor, uint32_t *length)
{
    KIV_CHECK_AS(plist != nullptr, "(plist) != NULL", KIVCS2STATUS_PARAM_ERR);
    KIV_CHECK_AS(length != nullptr, "(length) != NULL", KIVCS2STATUS_PARAM_ERR);

    char *const start = cursor != nullptr ? *cursor : nullptr;
    Text text{start, *length};
    const KIVCS2Status status = Walk{text}.write(plist);
    // If nothing was written, the byte at the cursor does not belong to the text.
    if (!text.measures() && text.cursor() != start)
        *text.cursor() = '\0';
    *length = text.length();
    if (cursor != nullptr)
        *cursor = text.cursor();
    return status;
}
