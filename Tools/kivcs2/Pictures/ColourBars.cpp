// The patterns as tables, and their colours as the components of each pixel layout.
#include "Pictures/ColourBars.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace tool
{
namespace
{

// R, G and B, 0 for black and 1 for white.
struct Colour
{
    double red, green, blue;
};

constexpr Colour grey(double level)
{
    return {level, level, level};
}

struct Cell
{
    uint32_t width; // in 168ths of the line, into which all patterns divide
    Colour left;
    Colour right; // if different from the left one: a ramp
};

constexpr Cell plain(uint32_t width, Colour colour)
{
    return {width, colour, colour};
}

struct Band
{
    uint32_t height; // in 12ths of the picture
    std::span<const Cell> cells;
};

constexpr size_t kWidths = 168;
constexpr uint32_t kHeights = 12;

constexpr Colour kBlack = grey(0);
constexpr Colour kWhite = grey(1);
constexpr Colour kWhite75 = grey(0.75);
constexpr Colour kYellow75 = {0.75, 0.75, 0};
constexpr Colour kCyan75 = {0, 0.75, 0.75};
constexpr Colour kGreen75 = {0, 0.75, 0};
constexpr Colour kMagenta75 = {0.75, 0, 0.75};
constexpr Colour kRed75 = {0.75, 0, 0};
constexpr Colour kBlue75 = {0, 0, 0.75};

// Colour without luma, outside the range of RGB: 20 IRE of subcarrier on the axes I and Q of NTSC, which
// are at 33 degrees to V and U. With black at 7.5 IRE white is 92.5 above it.
constexpr Colour kMinusI = {-0.20670, 0.05881, 0.23929};
constexpr Colour kPlusQ = {0.13423, -0.13994, 0.36848};

// The PLUGE of EG 1: 4 IRE below black and above it.
constexpr double kFourIRE = 4 / 92.5;

constexpr std::array kEbu75 = {plain(21, kWhite),   plain(21, kYellow75),  plain(21, kCyan75),
                               plain(21, kGreen75), plain(21, kMagenta75), plain(21, kRed75),
                               plain(21, kBlue75),  plain(21, kBlack)};
constexpr std::array kEbu100 = {plain(21, kWhite),    plain(21, {1, 1, 0}), plain(21, {0, 1, 1}),
                                plain(21, {0, 1, 0}), plain(21, {1, 0, 1}), plain(21, {1, 0, 0}),
                                plain(21, {0, 0, 1}), plain(21, kBlack)};

// SMPTE EG 1: the bars, their blue parts backwards, and -I, white, +Q and the PLUGE.
constexpr std::array kEG1Bars = {plain(24, kWhite75), plain(24, kYellow75),  plain(24, kCyan75),
                                 plain(24, kGreen75), plain(24, kMagenta75), plain(24, kRed75),
                                 plain(24, kBlue75)};
constexpr std::array kEG1Reverse = {plain(24, kBlue75), plain(24, kBlack),  plain(24, kMagenta75),
                                    plain(24, kBlack),  plain(24, kCyan75), plain(24, kBlack),
                                    plain(24, kWhite75)};
constexpr std::array kEG1Pluge = {plain(30, kMinusI),       plain(30, kWhite),         plain(30, kPlusQ),
                                  plain(30, kBlack),        plain(8, grey(-kFourIRE)), plain(8, kBlack),
                                  plain(8, grey(kFourIRE)), plain(24, kBlack)};

// SMPTE RP 219, with 100 % white and black at its optional places.
constexpr std::array kRP219Bars = {plain(21, grey(0.4)), plain(18, kWhite75), plain(18, kYellow75),
                                   plain(18, kCyan75),   plain(18, kGreen75), plain(18, kMagenta75),
                                   plain(18, kRed75),    plain(18, kBlue75),  plain(21, grey(0.4))};
constexpr std::array kRP219White = {plain(21, {0, 1, 1}), plain(18, kWhite), plain(108, kWhite75),
                                    plain(21, {0, 0, 1})};
constexpr std::array kRP219Ramp = {plain(21, {1, 1, 0}), plain(18, kBlack), Cell{90, kBlack, kWhite},
                                   plain(18, kWhite), plain(21, {1, 0, 0})};
constexpr std::array kRP219Pluge = {plain(21, grey(0.15)), plain(27, kBlack),     plain(36, kWhite),
                                    plain(15, kBlack),     plain(6, grey(-0.02)), plain(6, kBlack),
                                    plain(6, grey(0.02)),  plain(6, kBlack),      plain(6, grey(0.04)),
                                    plain(18, kBlack),     plain(21, grey(0.15))};

constexpr std::array kEbu75Bands = {Band{12, kEbu75}};
constexpr std::array kEbu100Bands = {Band{12, kEbu100}};
constexpr std::array kEG1Bands = {Band{8, kEG1Bars}, Band{1, kEG1Reverse}, Band{3, kEG1Pluge}};
constexpr std::array kRP219Bands = {Band{7, kRP219Bars}, Band{1, kRP219White}, Band{1, kRP219Ramp},
                                    Band{3, kRP219Pluge}};

constexpr bool isWhole(std::span<const Band> bands)
{
    uint32_t height = 0;
    for (const Band &band : bands)
    {
        uint32_t width = 0;
        for (const Cell &cell : band.cells)
            width += cell.width;
        if (width != kWidths)
            return false;
        height += band.height;
    }
    return height == kHeights;
}

struct Pattern
{
    std::string_view name;
    std::span<const Band> bands;
};

constexpr std::array kPatterns = {Pattern{"SMPTE EG 1", kEG1Bands}, Pattern{"SMPTE RP 219", kRP219Bands},
                                  Pattern{"EBU 100/0/75/0", kEbu75Bands},
                                  Pattern{"EBU 100/0/100/0", kEbu100Bands}};
static_assert(std::ranges::all_of(kPatterns, isWhole, &Pattern::bands));

constexpr uint32_t kLinesOfStandardDefinition = 576;

const Pattern &patternFor(BarPattern pattern, uint32_t height)
{
    switch (pattern)
    {
    case BarPattern::Ebu75:
        return kPatterns[2];
    case BarPattern::Ebu100:
        return kPatterns[3];
    case BarPattern::Smpte:
        break;
    }
    return kPatterns[height <= kLinesOfStandardDefinition ? 0 : 1];
}

// The colour of every pixel of a line.
std::vector<Colour> coloursOf(const Band &band, uint32_t width)
{
    const size_t pairs = (size_t{width} + 1) / 2;
    std::vector<Colour> colours(2 * pairs);
    uint32_t passed = 0;
    for (const Cell &cell : band.cells)
    {
        const auto edge = [pairs](size_t place) { return (2 * pairs * place + kWidths) / (2 * kWidths) * 2; };
        const size_t begin = edge(passed);
        passed += cell.width;
        const size_t end = edge(passed);
        const auto part = [&](size_t x)
        { return (static_cast<double>(x - begin) + 0.5) / static_cast<double>(end - begin); };
        for (size_t x = begin; x < end; ++x)
            colours[x] = {std::lerp(cell.left.red, cell.right.red, part(x)),
                          std::lerp(cell.left.green, cell.right.green, part(x)),
                          std::lerp(cell.left.blue, cell.right.blue, part(x))};
    }
    return colours;
}

// Luma and colour differences by the factors of red and blue.
struct Components
{
    uint32_t luma, blue, red;

    Components(const Colour &colour, Matrix matrix, uint32_t bits)
    {
        const double ofRed = matrix == Matrix::BT601 ? 0.299 : 0.2126;
        const double ofBlue = matrix == Matrix::BT601 ? 0.114 : 0.0722;
        const double y = ofRed * colour.red + (1 - ofRed - ofBlue) * colour.green + ofBlue * colour.blue;
        const double unit = bits == 10 ? 4 : 1; // the levels are those of 8 bits
        const auto rounded = [](double value) { return static_cast<uint32_t>(std::lround(value)); };
        luma = rounded(unit * (16 + 219 * y));
        blue = rounded(unit * (128 + 112 * (colour.blue - y) / (1 - ofBlue)));
        red = rounded(unit * (128 + 112 * (colour.red - y) / (1 - ofRed)));
    }
};

void writeRGB(const std::vector<Colour> &colours, const PixelLayout &pixels, uint32_t width, uint8_t *row)
{
    const auto byte = [](double value)
    { return static_cast<uint8_t>(std::lround(255 * std::clamp(value, 0.0, 1.0))); };
    for (uint32_t x = 0; x < width; ++x, row += pixels.blockBytes)
    {
        if (pixels.blockBytes == 4)
            row[pixels.component[3]] = 255;
        row[pixels.component[0]] = byte(colours[x].red);
        row[pixels.component[1]] = byte(colours[x].green);
        row[pixels.component[2]] = byte(colours[x].blue);
    }
}

// Chroma is sited on the even pixel; a last odd pixel has its own pair.
void write422(const std::vector<Colour> &colours, Matrix matrix, const PixelLayout &pixels, uint8_t *row)
{
    const bool tenBits = pixels.type == kCVPixelFormatType_422YpCbCr10;
    std::vector<uint32_t> components;
    for (size_t x = 0; x < colours.size(); x += 2)
    {
        const Components even{colours[x], matrix, tenBits ? 10u : 8u};
        const Components odd{colours[x + 1], matrix, tenBits ? 10u : 8u};
        components.insert(components.end(), {even.blue, even.luma, even.red, odd.luma});
    }
    if (!tenBits)
    {
        // Cb Y Cr Y; with luma first the neighbours are swapped.
        const size_t swapped = pixels.type == kCVPixelFormatType_422YpCbCr8_yuvs ? 1 : 0;
        for (size_t index = 0; index < components.size(); ++index)
            row[index ^ swapped] = static_cast<uint8_t>(components[index]);
        return;
    }
    components.resize((components.size() + 2) / 3 * 3); // three components in each word
    for (size_t index = 0; index < components.size(); index += 3, row += 4)
    {
        const uint32_t word = components[index] | components[index + 1] << 10 | components[index + 2] << 20;
        for (uint32_t byte = 0; byte < 4; ++byte)
            row[byte] = static_cast<uint8_t>(word >> 8 * byte);
    }
}

} // namespace

std::string_view barPatternName(BarPattern pattern, uint32_t height)
{
    return patternFor(pattern, height).name;
}

Frame colourBars(BarPattern pattern, Matrix matrix, const PixelLayout &pixels, uint32_t width,
                 uint32_t height)
{
    Frame frame{pixels, width, height};
    const LockedPixels rows{frame.buffer.get()};
    uint32_t passed = 0;
    for (const Band &band : patternFor(pattern, height).bands)
    {
        const uint32_t top = height * passed / kHeights;
        passed += band.height;
        const uint32_t bottom = height * passed / kHeights;
        const std::vector<Colour> colours = coloursOf(band, width);
        for (uint32_t row = top; row < bottom; ++row)
        {
            // Every row of the band is its first one.
            std::memset(rows.row(row), 0, rows.rowBytes());
            if (row > top)
                std::memcpy(rows.row(row), rows.row(top), rows.rowBytes());
            else if (pixels.isRGB())
                writeRGB(colours, pixels, width, rows.row(row));
            else
                write422(colours, matrix, pixels, rows.row(row));
        }
    }
    return frame;
}

} // namespace tool
