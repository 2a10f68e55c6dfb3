// kivcs2 codec: the table of codecs, a single codec, and four-character codes.
#include "CommandLine/Numbers.h"
#include "Failure.h"
#include "Terminal/Output.h"
#include "Words/VideoFormats.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCS2Codec.h>

#include <array>
#include <memory>
#include <optional>

namespace tool
{
namespace
{

// The library finds codecs by name and by code but has no list: these codes are looked up.
constexpr std::array<std::string_view, 23> kCodes = {
    "dvpp", "dvcp", "dvc ", "dv5p", "dv5n", "mx3p", "mx3n", "mx4p", "mx4n", "mx5p", "mx5n", "jpeg",
    "apcn", "apch", "apcs", "apco", "dvh5", "dvh6", "dvhq", "dvhp", "2vuy", "v210", "AVdn"};

constexpr std::array<uint32_t, 5> kHeights = {480, 486, 576, 720, 1080};

uint32_t pack(std::string_view characters)
{
    uint32_t code = 0;
    for (const char character : characters)
        code = code << 8 | static_cast<unsigned char>(character);
    return code;
}

// The four characters, that of the top byte first; bytes that are not ASCII become \xNN.
std::string charactersOf(uint32_t code)
{
    std::string text;
    for (const int shift : {24, 16, 8, 0})
    {
        const uint32_t byte = code >> shift & 0xFF;
        text +=
            byte >= 0x20 && byte < 0x7F ? std::string(1, static_cast<char>(byte)) : print("\\x%02x", byte);
    }
    return text;
}

// "0x61706368", "apch", or a decimal number; a shorter text is padded with spaces, as in 'dvc '.
std::optional<uint32_t> parseCode(std::string_view text)
{
    const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (!isHexadecimal && !text.empty() && text.size() <= 4)
        return pack(std::string{text} + std::string(4 - text.size(), ' '));
    const auto code = wholeNumber(text);
    return code && *code <= UINT32_MAX ? std::optional{static_cast<uint32_t>(*code)} : std::nullopt;
}

// The library's name of a code; empty for an unknown codec.
std::optional<std::string> nameOf(uint32_t code)
{
    char name[64];
    if (KIVCS2_FAILED(kivCS2Codec_getStringFromFourCC(code, name, sizeof name)))
        return std::nullopt;
    return name;
}

KIVCS2CodecDescription describe(const std::string &name, const KIVCS2VideoFormatDescription &format)
{
    KIVCS2CodecDescription description{};
    check(kivCS2Codec_getDescription(name.c_str(), &format, &description), name);
    return description;
}

uint32_t sizeAt(const std::string &name, uint32_t height)
{
    KIVCS2VideoFormatDescription format{};
    format.m_nativeHeight = height;
    return describe(name, format).m_sampleSize;
}

Json toJson(const std::string &name, uint32_t code)
{
    Json sizes = Json::object();
    for (const uint32_t height : kHeights)
        sizes[std::to_string(height)] = sizeAt(name, height);
    return {{"name", name},
            {"code", print("0x%08x", code)},
            {"characters", charactersOf(code)},
            {"sampleSizes", sizes}};
}

Names codecNames()
{
    Names names;
    for (const std::string_view characters : kCodes)
        names.push_back(nameOf(pack(characters)).value());
    return names;
}

int listCodecs(bool json)
{
    if (json)
    {
        JsonArray array;
        for (const std::string_view characters : kCodes)
            array.add(toJson(nameOf(pack(characters)).value(), pack(characters)));
        array.close();
        return kExitYes;
    }
    Table table{"Name", "Characters", "Code", ">480", ">486", ">576", ">720", ">1080 lines"};
    for (const std::string_view characters : kCodes)
    {
        const uint32_t code = pack(characters);
        const std::string name = nameOf(code).value();
        std::vector<Shown> cells = {name, std::string{characters}, print("0x%08x", code)};
        for (const uint32_t height : kHeights)
            cells.emplace_back(std::to_string(sizeAt(name, height)));
        table.add(std::move(cells));
    }
    table.print();
    return kExitYes;
}

// A codec in a video format: the sizes of its frame buffers.
int showCodec(const std::string &wanted, const std::string &formatName, bool json)
{
    uint32_t code = 0;
    std::optional<std::string> name;
    const Names names = codecNames();
    if (const auto parsed = parseCode(wanted))
        name = nameOf(code = *parsed);
    if (const auto found = findName(names, wanted); !name && found)
    {
        name = names[*found];
        check(kivCS2Codec_getFourCCFromString(name->c_str(), &code), *name);
    }
    if (!name)
    {
        const std::string nearest = hint(names, wanted);
        throw Failure(kExitNo, "no codec has the name or code \"" + wanted + "\" (" +
                                   statusText(KIVCS2STATUS_PARAM_ERR) + ")" +
                                   (nearest.empty() ? "; kivcs2 codec list has them" : nearest));
    }

    KIVCS2VideoFormatDescription format{};
    if (!formatName.empty())
    {
        const auto found = findVideoFormat(formatName);
        if (!found)
            throw Failure(kExitUsage, noVideoFormat(formatName));
        format = *found;
    }
    const KIVCS2CodecDescription description = describe(*name, format);
    const double perSecond =
        formatName.empty() ? 0 : description.m_sampleSize * format.m_frameRateInfo->m_exactRate;
    if (json)
    {
        Json object = toJson(*name, code);
        if (!formatName.empty())
            object.update({{"format", format.m_name},
                           {"sampleSize", description.m_sampleSize},
                           {"bytesPerSecond", perSecond}});
        out().json(object);
        return kExitYes;
    }
    Facts facts;
    facts.add("Name", Output::strong(*name));
    facts.add("Code", print("0x%08x '%s'", code, charactersOf(code).c_str()));
    if (formatName.empty())
        for (const uint32_t height : kHeights)
            facts.add(std::to_string(height) + " lines", count(sizeAt(*name, height), "byte"));
    else
    {
        facts.add("Format", format.m_name);
        facts.add("Largest frame", count(description.m_sampleSize, "byte"));
        facts.add("At most", print("%.1f MB a second", perSecond / 1e6));
    }
    facts.print();
    return kExitYes;
}

int unpackCodes(const std::vector<std::string> &texts, bool json)
{
    std::vector<uint32_t> codes;
    for (const std::string &text : texts)
    {
        const auto code = parseCode(text);
        if (!code)
            throw Failure(kExitUsage, "\"" + text + "\": neither four characters nor a 32-bit number");
        codes.push_back(*code);
    }
    if (json)
    {
        JsonArray array;
        for (const uint32_t code : codes)
            array.add({{"code", print("0x%08x", code)},
                       {"characters", charactersOf(code)},
                       {"swapped", charactersOf(__builtin_bswap32(code))},
                       {"name", nameOf(code) ? Json(*nameOf(code)) : Json{}}});
        array.close();
        return kExitYes;
    }
    Table table{"Code", ">Decimal", "Characters", "Swapped", "Codec"};
    for (const uint32_t code : codes)
        table.add({print("0x%08x", code), std::to_string(code), charactersOf(code),
                   charactersOf(__builtin_bswap32(code)), nameOf(code).value_or("-")});
    table.print();
    return kExitYes;
}

} // namespace

void addCodecCommand(Word &root, Context &context)
{
    Word &codec =
        root.word("codec", "Codecs: names, four-character codes, sizes of frames").group(kGroupPictures);

    Word &list = codec.word("list", "The table, with the largest frame in bytes by height");
    list.about("Bytes are the largest size of a frame: a bound for buffers, not the size of a file.");
    list.example("kivcs2 codec list");
    list.runs([&context] { return listCodecs(context.json); });

    const auto wanted = std::make_shared<std::string>();
    const auto format = std::make_shared<std::string>();
    Word &shown = codec.word("show", "One codec, by its name or code");
    shown.option("codec", *wanted, "A name, four characters, or a number")
        .required()
        .suggests("codecs", codecNames);
    shown.option("--format", *format, "In this video format (without the pixel format: 8 Bit)")
        .suggests("video formats", videoFormatNames);
    shown.about(
        "Prints the code and the largest frame in bytes by height; with --format that of one format, and\n"
        "bytes a second at its rate. Exit code 1: no codec has the name or the code.");
    shown.example("kivcs2 codec show \"ProRes 422 (HQ)\" --format 1080i25");
    shown.runs([&context, wanted, format] { return showCodec(*wanted, *format, context.json); });

    const auto codes = std::make_shared<Names>();
    Word &unpack = codec.word("unpack", "Decode codes, known ones or not");
    unpack.about(
        "A code is four characters (spaces at its end may be left out), 0x and hexadecimal digits, or a\n"
        "decimal number of five digits and more. Prints each as number and characters, in both orders of\n"
        "bytes, with the codec of the table, if any.");
    unpack.option("code", *codes, "The codes").required();
    unpack.example("kivcs2 codec unpack apcn 0x6e645641");
    unpack.runs([&context, codes] { return unpackCodes(*codes, context.json); });
}

} // namespace tool
