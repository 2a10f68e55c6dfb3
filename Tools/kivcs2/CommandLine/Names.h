// Names as people type them: in any case, and abbreviated as far as they stay unambiguous.
#ifndef KIV_TOOL_NAMES_H
#define KIV_TOOL_NAMES_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool
{

using Names = std::vector<std::string>;

/// "A" for "a"; only ASCII letters.
[[nodiscard]] bool isEqualInAnyCase(std::string_view one, std::string_view other);

/// The index of the name that equals `wanted` in any case, or of the only name that begins with
/// `wanted`.
[[nodiscard]] std::optional<size_t> findName(const Names &names, std::string_view wanted);

/// The hint after the refusal of a name: "; did you mean "caption"?", "; it begins SinIn and SinOut", or
/// an empty text.
[[nodiscard]] std::string hint(const Names &names, std::string_view wanted);

} // namespace tool

#endif
