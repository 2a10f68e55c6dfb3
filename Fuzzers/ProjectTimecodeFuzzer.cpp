// Lenient timecode text, from bytes or a system string: read as by splitting system strings, and the archived
// text of the result is read back. The first byte selects the rate.
#include "Require.h"

#include "KIVProjectTimecode.h"
#include "Private/Support/CFRef.h"

#include <KIVLogger/KIVLogger.h>

#include <algorithm>

namespace
{
using StringRef = kiv::CFRef<CFStringRef>;

StringRef stringOf(std::string_view text)
{
    return StringRef{CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8 *>(text.data()),
                                             static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8,
                                             false)};
}

// The pieces of a text, as strings of the array that holds them.
class Pieces
{
public:
    Pieces(CFStringRef text, const char *separator)
        : m_pieces{CFStringCreateArrayBySeparatingStrings(nullptr, text, stringOf(separator).get())}
    {
    }
    CFIndex count() const
    {
        return CFArrayGetCount(m_pieces.get());
    }
    CFStringRef operator[](CFIndex index) const
    {
        return static_cast<CFStringRef>(CFArrayGetValueAtIndex(m_pieces.get(), index));
    }
    uint8_t value(CFIndex index) const
    {
        return static_cast<uint8_t>(index < count() ? CFStringGetIntValue((*this)[index]) : 0);
    }

private:
    kiv::CFRef<CFArrayRef> m_pieces;
};

// The same parse with string objects, step by step as documented.
KIVProjectTimecode parsedByPieces(CFStringRef text)
{
    KIVProjectTimecode timecode;
    const Pieces parts{text, " "};
    const bool dated = parts.count() == 2;
    if (dated)
    {
        const Pieces date{parts[0], "."};
        if (date.count() == 3)
            timecode.setCS2Timecode(static_cast<uint64_t>(static_cast<uint16_t>(CFStringGetIntValue(date[2])))
                                        << 48 |
                                    static_cast<uint64_t>(static_cast<uint8_t>(date.value(1) - 1)) << 40 |
                                    static_cast<uint64_t>(static_cast<uint8_t>(date.value(0) - 1)) << 32);
    }
    const Pieces time{parts[dated ? 1 : 0], ":"};
    if (time.count() == 1)
    {
        timecode.setFramesSinceMidnight(static_cast<uint32_t>(CFStringGetIntValue(time[0])));
        return timecode;
    }
    uint8_t seconds = 0;
    uint8_t frames = 0;
    if (time.count() == 4)
    {
        seconds = time.value(2);
        frames = time.value(3);
    }
    else if (time.count() == 3)
    {
        const Pieces last{time[2], ";"};
        seconds = last.value(0);
        frames = last.value(1);
    }
    timecode.setHours(time.value(0), time.value(1), seconds, frames, 0);
    return timecode;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    KLSetEnabled(false); // most inputs do not name a frame
    KIVProjectTimecode::setFrameRate(std::min<uint32_t>(data[0], KIVCS2FrameRate_59_94));
    const std::string_view text{reinterpret_cast<const char *>(data + 1), size - 1};

    const auto timecode = KIVProjectTimecode::timecodeWithString(text);
    if (const StringRef string = stringOf(text))
    {
        require(timecode == KIVProjectTimecode::timecodeWithString(string.get()));
        require(timecode == parsedByPieces(string.get()));
    }

    char buffer[KIVProjectTimecode::kTextSize];
    require(!timecode.debugDescription(buffer, sizeof buffer).empty());
    require(!timecode.SMPTERepresentation(buffer, sizeof buffer).empty());
    const std::string_view archived = timecode.XMLRepresentation(buffer, sizeof buffer);
    require(KIVProjectTimecode::timecodeWithString(archived) == timecode);
    return 0;
}
