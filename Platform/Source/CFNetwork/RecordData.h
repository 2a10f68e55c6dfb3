// The data of DNS records from the network; none of their bytes can be trusted.
#ifndef KIV_PLATFORM_RECORD_DATA_H
#define KIV_PLATFORM_RECORD_DATA_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace kiv::discovery
{
// RFC 1035, 3.2.2; RFC 2782; RFC 3596.
constexpr uint16_t kTypeA = 1;
constexpr uint16_t kTypeTXT = 16;
constexpr uint16_t kTypeAAAA = 28;
constexpr uint16_t kTypeSRV = 33;

struct ServerLocation
{
    uint16_t port = 0;
    std::string host; // as text, with special bytes of labels escaped; "": no host

    bool operator==(const ServerLocation &) const = default;
};

// SRV data (RFC 2782) with an uncompressed name; empty if bytes are
// missing or left over. Throws std::bad_alloc.
[[nodiscard]] std::optional<ServerLocation> readServerLocation(std::span<const uint8_t> data);

// Returns true for TXT data as in RFC 1035, 3.3.14: texts, each after its length, and nothing left over.
[[nodiscard]] bool isTextRecord(std::span<const uint8_t> data) noexcept;

// Returns true if a name belongs to multicast DNS: "local" is its last label.
[[nodiscard]] bool isLocalName(const char *name) noexcept;
} // namespace kiv::discovery

#endif
