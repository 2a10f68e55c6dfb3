// Video formats by what a user calls them.
#ifndef KIV_TOOL_VIDEO_FORMATS_H
#define KIV_TOOL_VIDEO_FORMATS_H

#include <KIVCoreServices2/KIVCS2VideoFormat.h>

#include <optional>
#include <string>
#include <vector>

namespace tool
{

/// By a name, 8 Bit where it says no pixel format, or by a code "0x..."; none where the table has no such
/// row. Throws the usage failure of a code that is no number.
[[nodiscard]] std::optional<KIVCS2VideoFormatDescription> findVideoFormat(const std::string &wanted);

/// The names of all formats.
[[nodiscard]] std::vector<std::string> videoFormatNames();

/// The line that tells so.
[[nodiscard]] std::string noVideoFormat(const std::string &wanted);

} // namespace tool

#endif
