// Caption services by their names: CC1 to CC4, T1 to T4, S1 to S63.
#ifndef KIV_TOOL_CAPTION_SERVICES_H
#define KIV_TOOL_CAPTION_SERVICES_H

#include <KIVCoreServices2/KIVCS2CaptionDecoder.h>

#include <string>
#include <string_view>
#include <vector>

namespace tool
{

[[nodiscard]] std::string serviceName(KIVCS2CaptionService service);

/// Returns the mode in words: "pop-on", "roll-up", "paint-on", "text", "window".
[[nodiscard]] std::string_view modeName(KIVCS2CaptionMode mode);

/// Returns the services of "CC1" or "CC1,S2"; all services for an empty text. Throws a usage failure for any
/// other text.
[[nodiscard]] KIVCS2CaptionServices parseServices(std::string_view text);

/// Returns the services of a set, those of CEA-608 first.
[[nodiscard]] std::vector<KIVCS2CaptionService> servicesOf(const KIVCS2CaptionServices &set);

[[nodiscard]] bool contains(const KIVCS2CaptionServices &set, KIVCS2CaptionService service);

/// Returns the names for completion.
[[nodiscard]] std::vector<std::string> serviceNames();

} // namespace tool

#endif
