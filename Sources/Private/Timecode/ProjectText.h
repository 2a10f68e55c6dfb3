// The lenient text form of the project timecode: any text gives some numbers.
#ifndef KIV_PRIVATE_TIMECODE_PROJECT_TEXT_H
#define KIV_PRIVATE_TIMECODE_PROJECT_TEXT_H

#include "Private/Timecode/Text.h"

#include <CoreFoundation/CoreFoundation.h>

#include <string_view>

namespace kiv::timecode
{
// Access to the units of a text: bytes, or UTF-16 units of a system string that is not stored as ASCII.
class Letters
{
public:
    explicit Letters(std::string_view bytes) : m_bytes{bytes.data()}, m_length{bytes.size()} {}
    explicit Letters(CFStringRef string)
        : m_bytes{CFStringGetCStringPtr(string, kCFStringEncodingASCII)}, m_string{string},
          m_length{static_cast<size_t>(CFStringGetLength(string))}
    {
    }

    [[nodiscard]] size_t length() const
    {
        return m_length;
    }
    // Null for a system string that is not stored as ASCII.
    [[nodiscard]] const char *bytes() const
    {
        return m_bytes;
    }
    [[nodiscard]] char16_t operator[](size_t index) const
    {
        return m_bytes != nullptr ? static_cast<unsigned char>(m_bytes[index])
                                  : CFStringGetCharacterAtIndex(m_string, static_cast<CFIndex>(index));
    }

private:
    const char *m_bytes;
    CFStringRef m_string = nullptr;
    size_t m_length;
};

// Splits a text. A single time field is a frame count; otherwise there are four time fields, each cut to 8
// bits. The date is cut to the bits that the record stores.
[[nodiscard]] TextFields splitLenientText(const Letters &letters);
} // namespace kiv::timecode

#endif
