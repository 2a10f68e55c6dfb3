// The lenient text form of the project timecode: any letters read as some numbers.
#ifndef KIV_PRIVATE_TIMECODE_PROJECT_TEXT_H
#define KIV_PRIVATE_TIMECODE_PROJECT_TEXT_H

#include "Private/Timecode/Text.h"

#include <CoreFoundation/CoreFoundation.h>

#include <string_view>

namespace kiv::timecode
{
// A text read unit by unit: bytes, or a system string that keeps no bytes.
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
    // Null for a system string that keeps no bytes.
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

// One time field is a frame count; otherwise there are four. Values are cut to what the record holds: fields
// to 8 bits, the date as stored.
[[nodiscard]] TextFields splitLenientText(const Letters &letters);
} // namespace kiv::timecode

#endif
