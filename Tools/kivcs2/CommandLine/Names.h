// Names as people type them: in any case, and no longer than is needed to know which one is meant.
#ifndef KIV_TOOL_NAMES_H
#define KIV_TOOL_NAMES_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool
{

using Names = std::vector<std::string>;

/// "a" as "A"; letters of ASCII only.
[[nodiscard]] bool isEqualInAnyCase(std::string_view one, std::string_view other);

/// The place of the name that `wanted` is in any case, or that it is the beginning of while no other name
/// begins so.
[[nodiscard]] std::optional<size_t> findName(const Names &names, std::string_view wanted);

/// What to say behind the refusal of a name: "; did you mean "caption"?", "; it begins SinIn and SinOut", or
/// nothing.
[[nodiscard]] std::string hint(const Names &names, std::string_view wanted);

} // namespace tool

#endif
