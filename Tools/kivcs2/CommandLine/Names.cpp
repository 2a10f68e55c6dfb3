// Finds names by their beginnings, and the nearest one to a mistyped name.
#include "CommandLine/Names.h"

#include "Terminal/Shown.h"

#include <algorithm>

namespace tool
{
namespace
{

constexpr size_t kMostBeginnings = 6; // names that a hint lists
constexpr size_t kLongest = 64;       // characters of a mistyped name that is compared

char lower(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool begins(std::string_view name, std::string_view with)
{
    return name.size() >= with.size() && isEqualInAnyCase(name.substr(0, with.size()), with);
}

// The number of letters to insert, remove, replace or swap with the next one (optimal string alignment).
size_t distance(std::string_view one, std::string_view other)
{
    std::vector<size_t> before(other.size() + 1), above(other.size() + 1), row(other.size() + 1);
    for (size_t column = 0; column <= other.size(); ++column)
        above[column] = column;
    for (size_t line = 1; line <= one.size(); ++line)
    {
        row[0] = line;
        for (size_t column = 1; column <= other.size(); ++column)
        {
            const char left = lower(one[line - 1]), right = lower(other[column - 1]);
            row[column] = std::min(
                {above[column] + 1, row[column - 1] + 1, above[column - 1] + (left != right ? 1 : 0)});
            if (line > 1 && column > 1 && left == lower(other[column - 2]) && right == lower(one[line - 2]))
                row[column] = std::min(row[column], before[column - 2] + 1);
        }
        before.swap(above);
        above.swap(row);
    }
    return above[other.size()];
}

Names beginning(const Names &names, std::string_view wanted)
{
    Names found;
    if (!wanted.empty())
        std::ranges::copy_if(names, std::back_inserter(found),
                             [wanted](const std::string &name) { return begins(name, wanted); });
    return found;
}

} // namespace

bool isEqualInAnyCase(std::string_view one, std::string_view other)
{
    return std::ranges::equal(one, other, {}, lower, lower);
}

std::optional<size_t> findName(const Names &names, std::string_view wanted)
{
    const auto same = std::ranges::find_if(names, [wanted](const std::string &name)
                                           { return isEqualInAnyCase(name, wanted); });
    if (same != names.end())
        return static_cast<size_t>(same - names.begin());
    const Names found = beginning(names, wanted);
    if (found.size() != 1)
        return std::nullopt;
    return static_cast<size_t>(std::ranges::find(names, found.front()) - names.begin());
}

std::string hint(const Names &names, std::string_view wanted)
{
    Names found = beginning(names, wanted);
    if (found.size() > 1)
    {
        std::string text = "; it begins ";
        for (size_t index = 0; index < found.size() && index < kMostBeginnings; ++index)
            text += (index == 0 ? "" : ", ") + found[index];
        return text + (found.size() > kMostBeginnings ? " and others" : "");
    }
    if (wanted.size() > kLongest || names.empty())
        return "";
    const auto nearest = std::ranges::min_element(
        names, {}, [wanted](const std::string &name) { return distance(wanted, name); });
    const size_t most = std::max<size_t>(1, wanted.size() / 3);
    return distance(wanted, *nearest) <= most ? "; did you mean \"" + *nearest + "\"?" : "";
}

} // namespace tool
