// Video formats by the names that users type.
#ifndef KIV_TOOL_VIDEO_FORMATS_H
#define KIV_TOOL_VIDEO_FORMATS_H

#include <KIVCoreServices2/KIVCS2VideoFormat.h>

#include <optional>
#include <string>
#include <vector>

namespace tool
{

/// Returns the format with a name or a code "0x...", or an empty value if the table has no such row. A name
/// without a pixel format means 8 Bit. Throws a usage failure for a code that is not a number.
[[nodiscard]] std::optional<KIVCS2VideoFormatDescription> findVideoFormat(const std::string &wanted);

/// Returns the names of all formats.
[[nodiscard]] std::vector<std::string> videoFormatNames();

/// Returns the line that reports an unknown format.
[[nodiscard]] std::string noVideoFormat(const std::string &wanted);

} // namespace tool

#endif
