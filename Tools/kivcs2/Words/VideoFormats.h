// Video formats by the names that users type.
#ifndef KIV_TOOL_VIDEO_FORMATS_H
#define KIV_TOOL_VIDEO_FORMATS_H

#include <KIVCoreServices2/KIVCS2VideoFormat.h>

#include <optional>
#include <string>
#include <vector>

namespace tool
{

/// The format of a name, 8 Bit if the name has no pixel format, or of a code "0x..."; empty if the table has
/// no such row. Throws a usage failure for a code that is not a number.
[[nodiscard]] std::optional<KIVCS2VideoFormatDescription> findVideoFormat(const std::string &wanted);

/// The names of all formats.
[[nodiscard]] std::vector<std::string> videoFormatNames();

/// The line that reports an unknown format.
[[nodiscard]] std::string noVideoFormat(const std::string &wanted);

} // namespace tool

#endif
