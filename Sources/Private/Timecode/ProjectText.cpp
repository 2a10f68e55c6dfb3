// Splits lenient timecode text. No text is refused and nothing is allocated.
#include "Private/Timecode/ProjectText.h"

#include <algorithm>

namespace kiv::timecode
{
namespace
{
struct Piece
{
    size_t begin;
    size_t end;
};

// Stores the first pieces between the separators of `whole` and returns the number of all pieces.
template <size_t Size>
size_t split(const Letters &letters, Piece whole, char16_t separator, std::array<Piece, Size> &pieces)
{
    size_t count = 0;
    Piece piece{whole.begin, whole.begin};
    for (;; ++piece.end)
    {
        if (piece.end < whole.end && letters[piece.end] != separator)
            continue;
        if (count < Size)
            pieces[count] = piece;
        ++count;
        if (piece.end == whole.end)
            return count;
        piece.begin = piece.end + 1;
    }
}

// As CFStringGetIntValue(): white space, one sign, digits; the nearest 32-bit value.
int32_t numberOf(const Letters &letters, Piece piece)
{
    size_t at = piece.begin;
    while (at < piece.end && (letters[at] == u' ' || (letters[at] >= u'\t' && letters[at] <= u'\r')))
        ++at;
    const bool negative = at < piece.end && letters[at] == u'-';
    if (negative || (at < piece.end && letters[at] == u'+'))
        ++at;
    constexpr int64_t kBeyond = int64_t{1} << 31; // the magnitude of the smallest value
    int64_t value = 0;
    for (; at < piece.end && letters[at] >= u'0' && letters[at] <= u'9'; ++at)
        value = std::min(value * 10 + (letters[at] - u'0'), kBeyond);
    return static_cast<int32_t>(negative ? -value : std::min(value, kBeyond - 1));
}

void splitDate(const Letters &letters, Piece whole, TextFields &fields)
{
    std::array<Piece, 3> pieces;
    if (split(letters, whole, u'.', pieces) != pieces.size())
        return;
    const auto value = [&](size_t index) { return static_cast<uint32_t>(numberOf(letters, pieces[index])); };
    fields.hasDate = true;
    fields.date = dateOfFields(value(0), value(1), value(2));
}

void splitTime(const Letters &letters, Piece whole, TextFields &fields)
{
    std::array<Piece, kMaxTimeFields> pieces;
    const size_t count = split(letters, whole, u':', pieces);
    if (count == 1)
    {
        fields.timeFields = 1;
        fields.time[0] = static_cast<uint32_t>(numberOf(letters, pieces[0]));
        return;
    }
    size_t known = count == kMaxTimeFields ? kMaxTimeFields : 2;
    if (count == 3)
    {
        std::array<Piece, 2> last;
        known = 2 + std::min(split(letters, pieces[2], u';', last), last.size());
        std::copy(last.begin(), last.end(), pieces.begin() + 2);
    }
    fields.timeFields = kMaxTimeFields;
    for (size_t index = 0; index < known; ++index)
        fields.time[index] = static_cast<uint8_t>(numberOf(letters, pieces[index]));
}
// "10:00:00:00" and "10:00:00;00", the form of most texts.
bool splitPlainTime(const char *bytes, TextFields &fields)
{
    for (size_t field = 0; field < kMaxTimeFields; ++field)
    {
        const auto tens = static_cast<uint32_t>(bytes[3 * field]) - '0';
        const auto units = static_cast<uint32_t>(bytes[3 * field + 1]) - '0';
        if (tens > 9 || units > 9)
            return false;
        fields.time[field] = tens * 10 + units;
    }
    fields.timeFields = kMaxTimeFields;
    return bytes[2] == ':' && bytes[5] == ':' && (bytes[8] == ':' || bytes[8] == ';');
}
} // namespace

TextFields splitLenientText(const Letters &letters)
{
    constexpr size_t kPlainLength = std::string_view{"10:00:00:00"}.size();
    TextFields fields{};
    if (letters.length() == kPlainLength && letters.bytes() != nullptr &&
        splitPlainTime(letters.bytes(), fields)) [[likely]]
        return fields;
    fields = {};
    const Piece whole{0, letters.length()};
    std::array<Piece, 2> parts;
    const bool dated = split(letters, whole, u' ', parts) == parts.size();
    if (dated)
        splitDate(letters, parts[0], fields);
    splitTime(letters, parts[dated ? 1 : 0], fields);
    return fields;
}
} // namespace kiv::timecode
