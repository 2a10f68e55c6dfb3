// Plots: dots of braille characters, and lines and letters in pixels.
#include "Pictures/CurvePlot.h"

#include "CommandLine/Names.h"
#include "CommandLine/Numbers.h"
#include "Terminal/Output.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <utility>
#include <vector>

namespace tool
{

// clang-format off
const std::array<Curve, KIVCS2InterpolationFunctionMax> kCurves = {{
    {"Linear",         "t",                                        kivCS2InterpolationCallback_Linear},
    {"QuadraticIn",    "t^2",                                      kivCS2InterpolationCallback_QuadraticIn},
    {"QuadraticOut",   "-t^2 + 2t",                                kivCS2InterpolationCallback_QuadraticOut},
    {"QuadraticInOut", "2t^2; 2t(2 - t) - 1",                     kivCS2InterpolationCallback_QuadraticInOut},
    {"CubicIn",        "t^3",                                      kivCS2InterpolationCallback_CubicIn},
    {"CubicOut",       "1 + (t - 1)^3",                            kivCS2InterpolationCallback_CubicOut},
    {"CubicInOut",     "4t^3; 0.5(2t - 2)^3 + 1",                  kivCS2InterpolationCallback_CubicInOut},
    {"ExpIn",          "exp(k(t - 1))",                            kivCS2InterpolationCallback_ExpIn},
    {"ExpOut",         "1 - exp(-kt)",                             kivCS2InterpolationCallback_ExpOut},
    {"ExpInOut",       "0.5exp(k(2t - 1)); 1 - 0.5exp(k(1 - 2t))", kivCS2InterpolationCallback_ExpInOut},
    {"SinIn",          "1 - sin(pi/2 + pi/2 t)",                   kivCS2InterpolationCallback_SinIn},
    {"SinOut",         "sin(pi/2 t)",                              kivCS2InterpolationCallback_SinOut},
    {"SinInOut",       "0.5 - 0.5sin(pi/2 + pi t)",                kivCS2InterpolationCallback_SinInOut},
}};
// clang-format on

namespace
{

// ---- The place of a curve among all of them

constexpr uint32_t kGridColumns = 5; // the linear curve, then the families
constexpr uint32_t kGridRows = 3;    // in, out, in-out

struct Cell
{
    uint32_t column, row;
};

constexpr Cell cellOf(KIVCS2InterpolationFunction curve)
{
    return curve == KIVCS2InterpolationFunction_Linear ? Cell{0, 0} : Cell{(curve + 2) / 3, (curve - 1) % 3};
}

// ---- Characters

constexpr size_t kGridLines = 6;   // lines of a plot among others
constexpr size_t kLargeLines = 16; // lines of a single plot

// The lines of a plot, each `columns` braille characters. A character is two dots wide and four high.
std::vector<std::string> brailleOf(const Curve &curve, size_t columns, size_t lines)
{
    const size_t width = 2 * columns;
    const size_t height = 4 * lines;
    std::vector<uint8_t> dots(columns * lines);
    const auto set = [&](size_t x, size_t y)
    {
        // The bits of a character's dots, from the top, left and right.
        constexpr uint8_t kBits[4][2] = {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}};
        dots[y / 4 * columns + x / 2] |= kBits[y % 4][x % 2];
    };
    size_t before = 0;
    for (size_t x = 0; x < width; ++x)
    {
        const double value = curve.valueAt(static_cast<double>(x) / static_cast<double>(width - 1));
        const double up = std::clamp(value, 0.0, 1.0) * static_cast<double>(height - 1);
        const size_t y = height - 1 - static_cast<size_t>(std::lround(up));
        // Down to the dot next to the last one, so that a steep curve stays a line; no curve goes down.
        const size_t lowest = x > 0 && before > y + 1 ? before - 1 : y;
        for (size_t dot = y; dot <= lowest; ++dot)
            set(x, dot);
        before = y;
    }
    std::vector<std::string> text(lines);
    for (size_t line = 0; line < lines; ++line)
        for (size_t column = 0; column < columns; ++column)
        {
            const uint8_t bits = dots[line * columns + column]; // U+2800 and the bits, in UTF-8
            text[line] += "\xE2";
            text[line] += static_cast<char>(0xA0 | bits >> 6);
            text[line] += static_cast<char>(0x80 | (bits & 0x3F));
        }
    return text;
}

std::string repeat(std::string_view text, size_t times)
{
    std::string result;
    for (size_t time = 0; time < times; ++time)
        result += text;
    return result;
}

// ---- Pixels

using Colour = std::array<uint8_t, 3>;

constexpr Colour kPaper = {255, 255, 255};
constexpr Colour kGrid = {228, 228, 232};
constexpr Colour kAxis = {96, 96, 104};
constexpr Colour kDiagonal = {176, 176, 184};
constexpr Colour kInk = {32, 32, 40};
// A colour for each family, in the order of the grid's columns.
constexpr std::array<Colour, kGridColumns> kFamily = {
    {{72, 72, 80}, {24, 96, 200}, {208, 88, 16}, {16, 136, 80}, {144, 48, 168}}};

// Letters of 5 by 9 pixels, the highest bit of five on the left; the last two rows are below the base line.
struct Letter
{
    char character;
    std::array<uint8_t, 9> rows;
};
constexpr size_t kLetterWidth = 5;
constexpr size_t kLetterHeight = 7; // above the base line
// clang-format off
constexpr Letter kLetters[] = {
    {'(', {0x02, 0x04, 0x08, 0x08, 0x08, 0x04, 0x02}},
    {')', {0x08, 0x04, 0x02, 0x02, 0x02, 0x04, 0x08}},
    {'.', {0x00, 0x00, 0x00, 0x00, 0x00, 0x0C, 0x0C}},
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}},
    {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'C', {0x0E, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0E}},
    {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}},
    {'I', {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}},
    {'O', {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}},
    {'Q', {0x0E, 0x11, 0x11, 0x11, 0x15, 0x12, 0x0D}},
    {'S', {0x0F, 0x10, 0x10, 0x0E, 0x01, 0x01, 0x1E}},
    {'a', {0x00, 0x00, 0x0E, 0x01, 0x0F, 0x11, 0x0F}},
    {'b', {0x10, 0x10, 0x16, 0x19, 0x11, 0x11, 0x1E}},
    {'c', {0x00, 0x00, 0x0E, 0x11, 0x10, 0x11, 0x0E}},
    {'d', {0x01, 0x01, 0x0D, 0x13, 0x11, 0x11, 0x0F}},
    {'e', {0x00, 0x00, 0x0E, 0x11, 0x1F, 0x10, 0x0E}},
    {'f', {0x06, 0x08, 0x08, 0x1C, 0x08, 0x08, 0x08}},
    {'i', {0x04, 0x00, 0x0C, 0x04, 0x04, 0x04, 0x0E}},
    {'n', {0x00, 0x00, 0x16, 0x19, 0x11, 0x11, 0x11}},
    {'p', {0x00, 0x00, 0x1E, 0x11, 0x11, 0x11, 0x1E, 0x10, 0x10}},
    {'r', {0x00, 0x00, 0x16, 0x19, 0x10, 0x10, 0x10}},
    {'t', {0x08, 0x08, 0x1C, 0x08, 0x08, 0x09, 0x06}},
    {'u', {0x00, 0x00, 0x11, 0x11, 0x11, 0x13, 0x0D}},
    {'x', {0x00, 0x00, 0x11, 0x0A, 0x04, 0x0A, 0x11}},
};
// clang-format on

// A picture to draw on, with the origin at the upper left.
class Canvas
{
public:
    Canvas(uint32_t width, uint32_t height) : m_picture(width, height), m_line(size_t{width} * height)
    {
        fill(0, 0, width, height, kPaper);
    }

    void fill(size_t x, size_t y, size_t width, size_t height, const Colour &colour)
    {
        for (size_t row = y; row < y + height; ++row)
            for (size_t column = x; column < x + width; ++column)
                std::copy(colour.begin(), colour.end(), m_picture.at(column, row));
    }

    // A round dot of the line being drawn.
    void dot(double x, double y, double radius)
    {
        const auto first = [radius](double centre)
        { return static_cast<size_t>(std::max(0.0, std::floor(centre - radius - 1))); };
        const auto end = [radius](double centre, uint32_t size)
        { return static_cast<size_t>(std::clamp(std::ceil(centre + radius + 2), 0.0, double{1} * size)); };
        for (size_t row = first(y); row < end(y, m_picture.height()); ++row)
            for (size_t column = first(x); column < end(x, m_picture.width()); ++column)
            {
                const double distance =
                    std::hypot(static_cast<double>(column) - x, static_cast<double>(row) - y);
                float &share = m_line[row * m_picture.width() + column];
                share = std::max(share, static_cast<float>(std::clamp(radius + 0.5 - distance, 0.0, 1.0)));
            }
    }

    // Ends the line: its dots overlap, but every pixel takes the colour only once.
    void ink(const Colour &colour)
    {
        for (size_t index = 0; index < m_line.size(); ++index)
        {
            const float share = std::exchange(m_line[index], 0.0F);
            uint8_t *pixel = m_picture.at(index % m_picture.width(), index / m_picture.width());
            for (size_t component = 0; share > 0 && component < colour.size(); ++component)
            {
                const auto below = static_cast<float>(pixel[component]);
                pixel[component] = static_cast<uint8_t>(
                    std::lround(below + share * (static_cast<float>(colour[component]) - below)));
            }
        }
    }

    void text(size_t x, size_t y, std::string_view text, size_t scale)
    {
        for (const char character : text)
        {
            const auto *letter = std::ranges::find(kLetters, character, &Letter::character);
            for (size_t row = 0; letter != std::end(kLetters) && row < letter->rows.size(); ++row)
                for (size_t column = 0; column < kLetterWidth; ++column)
                    if ((letter->rows[row] >> (kLetterWidth - 1 - column) & 1u) != 0)
                        fill(x + column * scale, y + row * scale, scale, scale, kInk);
            x += (kLetterWidth + 1) * scale;
        }
    }

    [[nodiscard]] Picture take()
    {
        return std::move(m_picture);
    }

private:
    Picture m_picture;
    std::vector<float> m_line; // the share of each pixel that the line covers
};

// The margins around a plot of `side` pixels.
struct Frame
{
    uint32_t scale; // size of the letters
    uint32_t left, top, right, bottom;

    explicit Frame(uint32_t side) : scale(std::max(1u, side / 160))
    {
        left = 28 * scale; // "0.5"
        top = 20 * scale;  // the name
        right = 10 * scale;
        bottom = 20 * scale; // 0, 0.5, 1
    }
};

void draw(Canvas &canvas, KIVCS2InterpolationFunction index, uint32_t side, size_t x, size_t y)
{
    const Frame frame{side};
    const size_t scale = frame.scale;
    const size_t left = x + frame.left;
    const size_t top = y + frame.top;
    const size_t last = side - 1;
    for (size_t quarter = 0; quarter <= 4; ++quarter)
    {
        const size_t at = (quarter * last + 2) / 4;
        canvas.fill(left + at, top, 1, side, kGrid);
        canvas.fill(left, top + last - at, side, 1, kGrid);
    }
    canvas.fill(left, top, scale, side, kAxis);
    canvas.fill(left, top + side - scale, side, scale, kAxis);

    constexpr std::array<std::string_view, 3> kMarks = {"0", "0.5", "1"};
    for (size_t mark = 0; mark < kMarks.size(); ++mark)
    {
        const size_t at = (mark * last + 1) / 2;
        const size_t width = kMarks[mark].size() * (kLetterWidth + 1) * scale;
        canvas.text(left - width - 4 * scale,
                    top + last - at - std::min(top + last - at, kLetterHeight * scale / 2), kMarks[mark],
                    scale);
        canvas.text(left + at - width / 2, top + side + 5 * scale, kMarks[mark], scale);
    }
    canvas.text(left, y + 5 * scale, kCurves[index].name, scale);

    // Samples so close that the dots of the steepest curve, seven pixels up for one to the right, overlap.
    const uint32_t samples = 8 * side;
    const auto line = [&](double (*valueAt)(double), double radius, uint32_t dashes, const Colour &colour)
    {
        const auto reach = static_cast<double>(last);
        for (uint32_t sample = 0; sample <= samples; ++sample)
        {
            const double t = static_cast<double>(sample) / samples;
            if (sample * dashes / samples % 2 == 0)
                canvas.dot(static_cast<double>(left) + t * reach,
                           static_cast<double>(top) + (1 - valueAt(t)) * reach, radius);
        }
        canvas.ink(colour);
    };
    if (index != KIVCS2InterpolationFunction_Linear)
        line(kCurves[KIVCS2InterpolationFunction_Linear].valueAt, 0.5 * frame.scale, 39, kDiagonal);
    line(kCurves[index].valueAt, frame.scale, 0, kFamily[cellOf(index).column]);
}

} // namespace

std::vector<std::string> curveNames()
{
    std::vector<std::string> names;
    names.reserve(std::size(kCurves));
    for (const Curve &curve : kCurves)
        names.emplace_back(curve.name);
    return names;
}

std::optional<KIVCS2InterpolationFunction> findCurve(std::string_view text)
{
    if (const auto number = wholeNumber(text))
        return *number < kCurves.size() ? std::optional{static_cast<KIVCS2InterpolationFunction>(*number)}
                                        : std::nullopt;

    std::string plain{text};
    std::erase(plain, '-');
    const auto found = findName(curveNames(), plain);
    return found ? std::optional{static_cast<KIVCS2InterpolationFunction>(*found)} : std::nullopt;
}

void printCurve(KIVCS2InterpolationFunction curve, size_t columns)
{
    constexpr size_t kMargin = 5; // "0.5 ┤"
    const size_t width = std::max(columns, kMargin + 10) - kMargin;
    const auto lines = brailleOf(kCurves[curve], width, kLargeLines);
    out().line("    " + Output::strong(kCurves[curve].name) + "  " + std::string{kCurves[curve].formula});
    for (size_t line = 0; line < lines.size(); ++line)
    {
        const char *mark = line == 0                 ? "1.0 ┤"
                           : line == kLargeLines / 2 ? "0.5 ┤"
                           : line == kLargeLines - 1 ? "0.0 ┤"
                                                     : "    │";
        out().line(mark + lines[line]);
    }
    out().line("    └" + repeat("─", width));
    out().line("     0" + std::string(width - 2, ' ') + "1");
}

void printCurves(size_t columns)
{
    constexpr size_t kBetween = 3; // the axis and two spaces
    const size_t width = std::max<size_t>(columns / kGridColumns, kBetween + 6) - kBetween;
    for (uint32_t row = 0; row < kGridRows; ++row)
    {
        // Title, plot and axis of every plot in the row, side by side.
        std::vector<Shown> text(kGridLines + 2);
        for (uint32_t column = 0; column < kGridColumns; ++column)
        {
            const uint32_t index = column == 0 ? 0 : 3 * column - 2 + row;
            const bool isEmpty = column == 0 && row > 0;
            const auto plot = brailleOf(kCurves[index], width, kGridLines);
            const std::string title{kCurves[index].name.substr(0, width + 1)};
            const std::string blank(width + 1, ' ');
            const std::string gap = column + 1 < kGridColumns ? "  " : "";
            text[0] += isEmpty ? Shown{blank + gap}
                               : Output::strong(title) + std::string(width + 1 - title.size(), ' ') + gap;
            for (size_t line = 0; line < plot.size(); ++line)
                text[line + 1] += (isEmpty ? blank : "│" + plot[line]) + gap;
            text.back() += (isEmpty ? blank : "└" + repeat("─", width)) + gap;
        }
        for (Shown &line : text)
        {
            line.trimEnd();
            out().line(line);
        }
    }
}

Picture pictureOf(KIVCS2InterpolationFunction curve, uint32_t side)
{
    const Frame frame{side};
    Canvas canvas{frame.left + side + frame.right, frame.top + side + frame.bottom};
    draw(canvas, curve, side, 0, 0);
    return canvas.take();
}

Picture pictureOfCurves(uint32_t side)
{
    const Frame frame{side};
    const uint32_t width = frame.left + side + frame.right;
    const uint32_t height = frame.top + side + frame.bottom;
    Canvas canvas{kGridColumns * width, kGridRows * height};
    for (KIVCS2InterpolationFunction curve = 0; curve < kCurves.size(); ++curve)
    {
        const Cell cell = cellOf(curve);
        draw(canvas, curve, side, size_t{cell.column} * width, size_t{cell.row} * height);
    }
    return canvas.take();
}

} // namespace tool
