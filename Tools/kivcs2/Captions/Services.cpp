// Caption services by their names: CC1 to CC4, T1 to T4, S1 to S63.
#include "Captions/Services.h"

#include "CommandLine/Numbers.h"
#include "Failure.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace tool
{
namespace
{

constexpr std::array<KIVCS2CaptionService, 8> kLine21 = {
    KIVCS2CaptionService_CC1, KIVCS2CaptionService_CC2, KIVCS2CaptionService_CC3, KIVCS2CaptionService_CC4,
    KIVCS2CaptionService_T1,  KIVCS2CaptionService_T2,  KIVCS2CaptionService_T3,  KIVCS2CaptionService_T4};

void add(KIVCS2CaptionServices &set, std::string name)
{
    std::ranges::transform(name, name.begin(),
                           [](unsigned char character)
                           { return static_cast<char>(std::toupper(character)); });
    for (size_t index = 0; index < kLine21.size(); ++index)
        if (name == serviceName(kLine21[index]))
        {
            set.m_line21 |= 1u << index;
            return;
        }
    const auto number = name.starts_with('S') ? wholeNumber(name.substr(1)) : std::nullopt;
    if (!number || *number < KIVCS2CaptionService_S1 || *number > KIVCS2CaptionService_S63)
        throw Failure(kExitUsage, "unknown caption service \"" + visible(name) +
                                      "\"; known are CC1 to CC4, T1 to T4, S1 to S63");
    set.m_dtvcc |= uint64_t{1} << *number;
}

} // namespace

std::string serviceName(KIVCS2CaptionService service)
{
    const char *const kind =
        service <= KIVCS2CaptionService_S63 ? "S" : (service < KIVCS2CaptionService_T1 ? "CC" : "T");
    return kind + std::to_string(service <= KIVCS2CaptionService_S63 ? service : service & 0xFu);
}

std::string_view modeName(KIVCS2CaptionMode mode)
{
    constexpr std::array<std::string_view, 6> kNames = {"",         "pop-on", "roll-up",
                                                        "paint-on", "text",   "window"};
    return mode < kNames.size() ? kNames[mode] : kNames[0];
}

KIVCS2CaptionServices parseServices(std::string_view text)
{
    KIVCS2CaptionServices set{};
    if (text.empty())
        return {~uint64_t{1}, 0xFFu, 0};
    for (;;)
    {
        const size_t comma = std::min(text.find(','), text.size());
        add(set, std::string{text.substr(0, comma)});
        if (comma == text.size())
            return set;
        text.remove_prefix(comma + 1);
    }
}

std::vector<KIVCS2CaptionService> servicesOf(const KIVCS2CaptionServices &set)
{
    std::vector<KIVCS2CaptionService> services;
    for (const KIVCS2CaptionService service : kLine21)
        if (contains(set, service))
            services.push_back(service);
    for (KIVCS2CaptionService service = KIVCS2CaptionService_S1; service <= KIVCS2CaptionService_S63;
         ++service)
        if (contains(set, service))
            services.push_back(service);
    return services;
}

bool contains(const KIVCS2CaptionServices &set, KIVCS2CaptionService service)
{
    if (service <= KIVCS2CaptionService_S63)
        return ((set.m_dtvcc >> service) & 1u) != 0;
    return ((set.m_line21 >> (std::ranges::find(kLine21, service) - kLine21.begin())) & 1u) != 0;
}

std::vector<std::string> serviceNames()
{
    return {"CC1", "CC2", "CC3", "CC4", "T1", "T2", "T3", "T4", "S1", "S2", "S3", "S4", "S5", "S6"};
}

} // namespace tool
