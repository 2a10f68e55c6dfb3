// Scaling a picture down to characters.
#include "Terminal/HalfBlocks.h"

#include "Terminal/Output.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace tool
{
namespace
{

using Colour = std::array<uint32_t, 3>;

constexpr std::string_view kShades = " .:-=+*#%@";

// The picture divided into a grid of boxes, none of which is empty.
class Boxes
{
public:
    Boxes(const PictureView &picture, size_t columns, size_t rows)
        : m_picture(picture), m_columns(columns), m_rows(rows)
    {
    }

    [[nodiscard]] Colour mean(size_t column, size_t row) const
    {
        const size_t left = column * m_picture.width / m_columns;
        const size_t right = std::max(left + 1, (column + 1) * m_picture.width / m_columns);
        const size_t top = row * m_picture.height / m_rows;
        const size_t bottom = std::max(top + 1, (row + 1) * m_picture.height / m_rows);
        std::array<uint64_t, 3> sums{};
        for (size_t y = top; y < bottom; ++y)
            for (size_t x = left; x < right; ++x)
            {
                const uint8_t *pixel = m_picture.at(x, y);
                const uint64_t alpha = m_picture.channels == 4 ? pixel[3] : 255u;
                for (size_t component = 0; component < sums.size(); ++component)
                    sums[component] += alpha * pixel[component];
            }
        const uint64_t weight = uint64_t{255} * (right - left) * (bottom - top);
        Colour colour{};
        for (size_t component = 0; component < sums.size(); ++component)
            colour[component] = static_cast<uint32_t>((sums[component] + weight / 2) / weight);
        return colour;
    }

private:
    const PictureView &m_picture;
    size_t m_columns;
    size_t m_rows;
};

void drawInColour(const Boxes &boxes, size_t columns, size_t lines)
{
    for (size_t line = 0; line < lines; ++line)
    {
        Colour shownAbove{256, 256, 256}; // not a pixel's colour, so the first is always written
        Colour shownBelow = shownAbove;
        for (size_t column = 0; column < columns; ++column)
        {
            const Colour above = boxes.mean(column, 2 * line);
            const Colour below = boxes.mean(column, 2 * line + 1);
            if (above != shownAbove)
                out().write(print("\x1b[38;2;%u;%u;%um", above[0], above[1], above[2]));
            if (below != shownBelow)
                out().write(print("\x1b[48;2;%u;%u;%um", below[0], below[1], below[2]));
            out().write("▀");
            shownAbove = above;
            shownBelow = below;
        }
        out().write("\x1b[0m\n");
    }
}

void drawPlain(const Boxes &boxes, size_t columns, size_t lines)
{
    for (size_t line = 0; line < lines; ++line)
    {
        std::string text;
        for (size_t column = 0; column < columns; ++column)
        {
            const Colour colour = boxes.mean(column, line);
            // Luma of BT.709 in thousandths.
            const uint32_t luma = (213 * colour[0] + 715 * colour[1] + 72 * colour[2]) / 1000;
            text += kShades[luma * kShades.size() / 256];
        }
        text.erase(text.find_last_not_of(' ') + 1);
        out().line(text);
    }
}

} // namespace

void drawHalfBlocks(const PictureView &picture, size_t columns, double pixelAspect)
{
    if (picture.width == 0 || picture.height == 0 || columns == 0)
        return;
    // A character is twice as high as wide, so a line of characters is two rows of squares.
    const double squares = static_cast<double>(columns) * picture.height / (picture.width * pixelAspect);
    const size_t lines = static_cast<size_t>(std::clamp(std::lround(squares / 2), 1L, 10000L));
    if (Output::hasColour())
        drawInColour(Boxes{picture, columns, 2 * lines}, columns, lines);
    else
        drawPlain(Boxes{picture, columns, lines}, columns, lines);
}

} // namespace tool
