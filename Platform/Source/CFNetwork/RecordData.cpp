// The data of DNS records.
#include "CFNetwork/RecordData.h"

#include <string_view>
#include <strings.h>

namespace kiv::discovery
{
namespace
{
constexpr size_t kLabelMax = 63; // RFC 1035, 2.3.4
constexpr size_t kNameOctetsMax = 255;
constexpr size_t kFixedPartOfSRV = 6; // priority 2, weight 2, port 2

// Appends one label as text (RFC 1035, 5.1): its dots and backslashes follow a backslash, and bytes other
// than printing ASCII become a backslash and three decimal digits.
void appendLabel(std::string &text, std::span<const uint8_t> label)
{
    if (!text.empty())
        text += '.';
    for (const uint8_t octet : label)
    {
        if (octet == '.' || octet == '\\')
        {
            text += '\\';
            text += static_cast<char>(octet);
        }
        else if (octet > 0x20 && octet < 0x7f)
        {
            text += static_cast<char>(octet);
        }
        else
        {
            text += '\\';
            text += static_cast<char>('0' + octet / 100);
            text += static_cast<char>('0' + octet / 10 % 10);
            text += static_cast<char>('0' + octet % 10);
        }
    }
}
} // namespace

std::optional<ServerLocation> readServerLocation(std::span<const uint8_t> data)
{
    if (data.size() <= kFixedPartOfSRV || data.size() - kFixedPartOfSRV > kNameOctetsMax)
        return std::nullopt;
    ServerLocation location;
    location.port = static_cast<uint16_t>(data[4] << 8 | data[5]);
    std::span<const uint8_t> rest = data.subspan(kFixedPartOfSRV);
    while (!rest.empty())
    {
        const size_t length = rest[0];
        rest = rest.subspan(1);
        if (length == 0)
            return rest.empty() ? std::optional{std::move(location)} : std::nullopt;
        if (length > kLabelMax || length > rest.size())
            return std::nullopt;
        appendLabel(location.host, rest.first(length));
        rest = rest.subspan(length);
    }
    return std::nullopt; // no root label
}

bool isTextRecord(std::span<const uint8_t> data) noexcept
{
    while (!data.empty())
    {
        const size_t length = data[0];
        if (length >= data.size())
            return false;
        data = data.subspan(length + 1);
    }
    return true;
}

bool isLocalName(const char *name) noexcept
{
    constexpr std::string_view kLocal = "local";
    std::string_view rest = name;
    if (rest.ends_with('.'))
        rest.remove_suffix(1);
    if (rest.size() < kLocal.size())
        return false;
    const size_t start = rest.size() - kLocal.size();
    return strncasecmp(rest.data() + start, kLocal.data(), kLocal.size()) == 0 &&
           (start == 0 || rest[start - 1] == '.');
}
} // namespace kiv::discovery
