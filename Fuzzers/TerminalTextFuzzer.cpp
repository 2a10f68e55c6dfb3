// Any bytes as a name on a terminal and in JSON: nothing that controls a terminal or turns the text round
// comes out, and plain text is unchanged.
#include "Terminal/Shown.h"

#include "Require.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace
{
// Requires UTF-8 without controls, by the bytes of its forms.
void requireHarmless(std::string_view text, bool mayEndLines)
{
    for (size_t at = 0, more = 0; at < text.size(); at += 1 + more)
    {
        const auto byte = [&](size_t next) { return static_cast<uint8_t>(text[at + next]); };
        more = byte(0) < 0x80 ? 0 : byte(0) < 0xE0 ? 1 : byte(0) < 0xF0 ? 2 : 3;
        require((byte(0) >= 0x20 && byte(0) != 0x7F) || (mayEndLines && byte(0) == '\n'));
        require(at + more < text.size() && (more == 0 || (byte(0) >= 0xC2 && byte(0) <= 0xF4)));
        for (size_t next = 1; next <= more; ++next)
            require((byte(next) & 0xC0) == 0x80);
    }
    for (const std::string_view steering : {"\xC2\x80", "\xC2\x9B", "\xC2\x9F", "\xD8\x9C"})
        require(text.find(steering) == text.npos);
    for (const char last : {'\x8E', '\x8F', '\xA8', '\xAE'})
        require(text.find(std::string{'\xE2', '\x80', last}) == text.npos);
    for (const char last : {'\xA6', '\xA9'})
        require(text.find(std::string{'\xE2', '\x81', last}) == text.npos);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text{reinterpret_cast<const char *>(data), size};
    const std::string shown = tool::visible(text);
    requireHarmless(shown, false);
    requireHarmless(tool::visibleJson(text), true);
    require(tool::visible(shown) == shown && shown.size() <= 4 * size);
    if (std::ranges::all_of(text, [](char byte) { return byte >= 0x20 && byte < 0x7F; }))
        require(shown == text && tool::visibleJson(text) == text);
    return 0;
}
