// kivcs2 format and kivcs2 rate: the tables of video formats and frame rates.
#include "CommandLine/Numbers.h"
#include "Counting.h"
#include "Failure.h"
#include "Terminal/Output.h"
#include "Words/VideoFormats.h"
#include "Words/Words.h"

#include <algorithm>
#include <array>
#include <memory>

namespace tool
{
namespace
{

constexpr std::array kInterlaceNames = {"upper field first", "lower field first", "progressive",
                                        "segmented frame"};
constexpr std::array kLinkNames = {"none", "level A", "level B"};
constexpr std::array kAspectNames = {"4:3", "16:9"};
constexpr std::array kPixelNames = {"8 Bit", "10 Bit", "RGBA"};

template <size_t N>
std::string name(const std::array<const char *, N> &names, uint32_t index)
{
    return index < N ? names[index] : std::to_string(index);
}

std::string size(uint32_t width, uint32_t height)
{
    return std::to_string(width) + " x " + std::to_string(height);
}

std::string fraction(uint32_t numerator, uint32_t denominator)
{
    return denominator == 1 ? std::to_string(numerator)
                            : std::to_string(numerator) + "/" + std::to_string(denominator);
}

// The library finds formats by code and by property but has no list, so all combinations of the
// code's fields are looked up.
std::vector<KIVCS2VideoFormatDescription> allFormats()
{
    std::vector<KIVCS2VideoFormatDescription> formats;
    for (uint32_t width = 0; width < 6; ++width)
        for (uint32_t height = 0; height < 5; ++height)
            for (uint32_t rest = 0; rest < 0x30000u; ++rest)
            {
                // dual link 2 bits, interlace 2, rate 3, pixel aspect 4, frame aspect 1; 3 pixel formats
                const uint32_t link = rest / 0x10000u;
                const uint32_t low = rest % 0x10000u;
                for (uint32_t pixel = 0; pixel < 3; ++pixel)
                {
                    const uint32_t code = width << 28 | height << 24 | link << 20 | pixel << 16 | low;
                    if ((low & 0xC80Eu) != 0 || (low >> 4 & 15u) > 11)
                        break;
                    const KIVCS2VideoFormatDefinition *definition = nullptr;
                    if (KIVCS2_FAILED(kivCS2VideoFormat_findDefinition(code, &definition)))
                        continue;
                    KIVCS2VideoFormatDescription description{};
                    check(kivCS2VideoFormat_getDescription(code, &description), "format");
                    formats.push_back(description);
                }
            }
    return formats;
}

KIVCS2VideoFormat codeOf(const KIVCS2VideoFormatDescription &description)
{
    KIVCS2VideoFormat code = 0;
    check(kivCS2VideoFormat_getFormatForName(description.m_name, &code), description.m_name);
    return code;
}

Json toJson(const KIVCS2VideoFormatDescription &format)
{
    return {{"name", format.m_name},
            {"code", print("0x%08x", codeOf(format))},
            {"native", {{"width", format.m_nativeWidth}, {"height", format.m_nativeHeight}}},
            {"display", {{"width", format.m_displayWidth}, {"height", format.m_displayHeight}}},
            {"framesPerSecond", format.m_frameRateInfo->m_exactRate},
            {"frameRateCode", format.m_frameRate},
            {"interlace", name(kInterlaceNames, format.m_interlaceMode)},
            {"pixelFormat", name(kPixelNames, format.m_pixelFormat)},
            {"frameAspect", name(kAspectNames, format.m_frameAspect)},
            {"pixelAspect", {format.m_hSpacing, format.m_vSpacing}},
            {"dualLink", name(kLinkNames, format.m_sdiDualLinkMode)},
            {"cleanAperture",
             {{"width", {format.m_cleanAperture.m_widthNumerator, format.m_cleanAperture.m_widthDenominator}},
              {"height",
               {format.m_cleanAperture.m_heightNumerator, format.m_cleanAperture.m_heightDenominator}}}}};
}

void printFormat(const KIVCS2VideoFormatDescription &format)
{
    Facts facts;
    facts.add("Name", Output::strong(format.m_name));
    facts.add("Code", print("0x%08x", codeOf(format)));
    facts.add("Native size", size(format.m_nativeWidth, format.m_nativeHeight) + " pixels");
    facts.add("Display size", size(format.m_displayWidth, format.m_displayHeight) + " pixels");
    facts.add("Frame rate", print("%.6g frames a second (rate code %u)", format.m_frameRateInfo->m_exactRate,
                                  format.m_frameRate));
    facts.add("Interlace", name(kInterlaceNames, format.m_interlaceMode));
    facts.add("Pixel format", name(kPixelNames, format.m_pixelFormat));
    facts.add("Frame aspect", name(kAspectNames, format.m_frameAspect));
    facts.add("Pixel aspect", print("%u:%u", format.m_hSpacing, format.m_vSpacing));
    facts.add("SDI dual link", name(kLinkNames, format.m_sdiDualLinkMode));
    const auto &aperture = format.m_cleanAperture;
    facts.add("Clean aperture", fraction(aperture.m_widthNumerator, aperture.m_widthDenominator) + " x " +
                                    fraction(aperture.m_heightNumerator, aperture.m_heightDenominator) +
                                    " pixels");
    facts.print();
}

int showFormat(const std::string &wanted, bool json)
{
    const auto format = findVideoFormat(wanted);
    if (!format)
    {
        throw Failure(kExitNo, noVideoFormat(wanted));
    }
    if (json)
        out().json(toJson(*format));
    else
        printFormat(*format);
    return kExitYes;
}

int listFormats(bool json)
{
    const auto formats = allFormats();
    if (json)
    {
        JsonArray array;
        for (const auto &format : formats)
            array.add(toJson(format));
        array.close();
        return kExitYes;
    }
    Table table{"Name", "Code", "Native", "Display", ">Frames/s", "Interlace", "Aspect", "Dual link"};
    for (const auto &format : formats)
        table.add({format.m_name, print("0x%08x", codeOf(format)),
                   size(format.m_nativeWidth, format.m_nativeHeight),
                   size(format.m_displayWidth, format.m_displayHeight),
                   print("%.2f", format.m_frameRateInfo->m_exactRate),
                   name(kInterlaceNames, format.m_interlaceMode), name(kAspectNames, format.m_frameAspect),
                   name(kLinkNames, format.m_sdiDualLinkMode)});
    table.print();
    return kExitYes;
}

int showRates(const std::string &wanted, bool json)
{
    std::vector<const Counting *> rows;
    if (!wanted.empty() && wanted != "29.97" && wanted != "59.94")
        rows.push_back(&countingFor(wanted, std::nullopt));
    else
        for (const Counting &counting : countings())
            if (wanted.empty() || counting.name.starts_with(wanted))
                rows.push_back(&counting);

    Table table{"Rate", ">Frames/s", ">Frames/day", "Dropped", ">Frame lasts", ">CDP code", "MCC rate"};
    JsonArray *array = nullptr;
    std::optional<JsonArray> opened;
    if (json)
        array = &opened.emplace();
    for (const Counting *counting : rows)
    {
        use(*counting);
        uint32_t framesPerDay = 0;
        (void)kivCS2Timecode_getFramesPerDay(&framesPerDay); // always succeeds
        const double lasts = exactSeconds(1, *counting) * 1000.0;
        if (array != nullptr)
            array->add({{"rate", counting->name},
                        {"numerator", counting->numerator},
                        {"denominator", counting->denominator},
                        {"framesPerDay", framesPerDay},
                        {"dropFrame", counting->drop},
                        {"milliseconds", lasts},
                        {"cdpCode", counting->cdpCode},
                        {"mccRate", counting->mccText}});
        else
            table.add(
                {std::string{counting->name}, fraction(counting->numerator, counting->denominator),
                 std::to_string(framesPerDay),
                 counting->drop ? print("%u a minute", counting->code == KIVCS2FrameRate_29_97 ? 2u : 4u)
                                : "none",
                 print("%.3f ms", lasts), std::to_string(counting->cdpCode), std::string{counting->mccText}});
    }
    if (array != nullptr)
        array->close();
    else
        table.print();
    return kExitYes;
}

constexpr std::string_view kEightBit = " 8 Bit";

Names eightBitNames()
{
    Names names;
    for (const std::string &name : videoFormatNames())
        if (name.ends_with(kEightBit))
            names.push_back(name);
    return names;
}

// The table's name for a typed one: in any case, without the pixel format for 8 Bit, or an unambiguous
// beginning. Any other text stays unchanged.
std::string fullName(const std::string &wanted)
{
    const Names all = videoFormatNames();
    const std::string eightBit = wanted + std::string{kEightBit};
    for (const std::string &text : {wanted, eightBit})
        if (const auto same = std::ranges::find_if(all, [&text](const std::string &name)
                                                   { return isEqualInAnyCase(name, text); });
            same != all.end())
            return *same;
    for (const Names &names : {all, eightBitNames()})
        if (const auto found = findName(names, wanted))
            return names[*found];
    return wanted;
}

// The pixel format is optional, so a name is also compared without it.
std::string nearestFormat(const std::string &wanted)
{
    Names names = eightBitNames();
    if (wanted.find(' ') == std::string::npos)
        for (std::string &name : names)
            name.erase(name.size() - kEightBit.size());
    const std::string text = hint(names, wanted);
    return text.empty() ? "; kivcs2 format lists them" : text;
}

bool isCode(const std::string &wanted)
{
    return wanted.starts_with("0x") || wanted.starts_with("0X");
}

} // namespace

std::optional<KIVCS2VideoFormatDescription> findVideoFormat(const std::string &wanted)
{
    KIVCS2VideoFormat code = 0;
    if (isCode(wanted))
    {
        const auto number = hexadecimalNumber(wanted);
        if (!number || *number > UINT32_MAX)
            throw Failure(kExitUsage, "\"" + visible(wanted) + "\": not a 32-bit format code");
        code = static_cast<KIVCS2VideoFormat>(*number);
    }
    else if (KIVCS2_FAILED(kivCS2VideoFormat_getFormatForName(fullName(wanted).c_str(), &code)))
        return std::nullopt;
    KIVCS2VideoFormatDescription description{};
    if (KIVCS2_FAILED(kivCS2VideoFormat_getDescription(code, &description)))
        return std::nullopt;
    return description;
}

std::vector<std::string> videoFormatNames()
{
    std::vector<std::string> names;
    for (const auto &format : allFormats())
        names.emplace_back(format.m_name);
    return names;
}

std::string noVideoFormat(const std::string &wanted)
{
    const std::string status = " (" + statusText(KIVCS2STATUS_VIDEO_FORMAT_ERR) + ")";
    return isCode(wanted)
               ? "no video format has the code " + visible(wanted) + status
               : "no video format is named \"" + visible(wanted) + "\"" + status + nearestFormat(wanted);
}

void addFormatCommand(Word &root, Context &context)
{
    const auto wanted = std::make_shared<std::string>();
    Word &word = root.word("format", "Video formats: the table, or one format").group(kGroupPictures);
    word.option("format", *wanted, "A name (without the pixel format: 8 Bit) or a code; without it all")
        .suggests("video formats", videoFormatNames);
    word.about(
        "Prints the 32-bit code, sizes in pixels, frames a second, order of the fields, and clean aperture\n"
        "of a format, or a line for each of the 75. Exit code 1: no format has the name or the code.");
    word.example("kivcs2 format \"1080i25 10 Bit\"");
    word.example("kivcs2 format 0x54102601");
    word.runs([&context, wanted]
              { return wanted->empty() ? listFormats(context.json) : showFormat(*wanted, context.json); });
}

void addRateCommand(Word &root, Context &context)
{
    const auto wanted = std::make_shared<std::string>();
    Word &word = root.word("rate", "Frame rates and how they count").group(kGroupPictures);
    word.option("rate", *wanted, "One rate; without it all").suggests("rates", rateNames);
    word.about(
        "Prints the exact frames a second, frames a day, the numbers that drop-frame counting leaves out,\n"
        "the length of a frame in milliseconds, and the codes of CDP and MCC. 29.97 and 59.94 have two "
        "rows.");
    word.example("kivcs2 rate 29.97");
    word.runs([&context, wanted] { return showRates(*wanted, context.json); });
}

} // namespace tool
