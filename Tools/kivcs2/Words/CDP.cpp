// kivcs2 cdp: parse, build and find caption distribution packets.
#include "Captions/CaptionFile.h"
#include "Captions/CaptionPacket.h"
#include "Failure.h"
#include "Files/Files.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

namespace tool
{
namespace
{

struct Arguments
{
    std::string file = "-";
    std::string hexText;
    std::string field1 = "8080", field2 = "8080";
    std::string rate = "29.97";
    std::string output = "-";
    std::string in, words = "8bit";
    uint32_t sequence = 0;
    bool sdi = false, atom = false, binary = false;
};

struct WordFormat
{
    std::string_view name;
    KIVCS2CaptionANCFormat format;
    uint32_t bytes; ///< of one word
    uint32_t flagWords;
};

constexpr std::array<WordFormat, 4> kWordFormats = {{{"8bit-adf", KIVCS2CaptionANCFormat_8BitWithADF, 1, 3},
                                                     {"8bit", KIVCS2CaptionANCFormat_8Bit, 1, 0},
                                                     {"10bit-adf", KIVCS2CaptionANCFormat_10BitWithADF, 2, 3},
                                                     {"10bit", KIVCS2CaptionANCFormat_10Bit, 2, 0}}};

Names wordFormNames()
{
    Names names;
    for (const WordFormat &format : kWordFormats)
        names.emplace_back(format.name);
    return names;
}

constexpr size_t kAtom = KIVCS2_CAPTION_ATOM_SIZE;

int hexDigit(uint8_t character)
{
    if (character >= '0' && character <= '9')
        return character - '0';
    const auto lower = static_cast<uint8_t>(character | 0x20u);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::vector<uint8_t> fromHex(std::span<const uint8_t> text, const std::string &name)
{
    std::vector<uint8_t> bytes;
    int high = -1;
    size_t at = 0;
    if (text.size() >= 2 && text[0] == '0' && (text[1] | 0x20u) == 'x')
        at = 2;
    for (; at < text.size(); ++at)
    {
        if (std::strchr(" \t\r\n", text[at]) != nullptr && text[at] != 0)
            continue;
        const int digit = hexDigit(text[at]);
        if (digit < 0)
            throw Failure(kExitMalformed, Where{name},
                          "neither a packet nor hexadecimal text: \"" +
                              visible({reinterpret_cast<const char *>(&text[at]), 1}) + "\" at byte " +
                              std::to_string(at));
        if (high < 0)
            high = digit;
        else
        {
            bytes.push_back(static_cast<uint8_t>(high << 4 | digit));
            high = -1;
        }
    }
    if (high >= 0)
        throw Failure(kExitMalformed, Where{name}, "an odd number of hexadecimal digits");
    return bytes;
}

bool hasAtom(std::span<const uint8_t> bytes)
{
    return bytes.size() >= kAtom && std::memcmp(bytes.data() + 4, "ccdp", 4) == 0;
}

bool beginsPacket(std::span<const uint8_t> bytes)
{
    return hasAtom(bytes) || (bytes.size() >= 2 && bytes[0] == 0x96 && bytes[1] == 0x69);
}

std::string hexOf(std::span<const uint8_t> bytes)
{
    std::string text;
    for (const uint8_t byte : bytes)
        text += print("%02X", byte);
    return text;
}

Json toJson(const PacketFacts &facts)
{
    const auto pairs = [&facts](size_t field)
    {
        Json list = Json::array();
        for (const Pair pair : facts.pairs[field].all())
            list.push_back({{"pair", hex(pair)}, {"words", describe(pair)}, {"text", textOf(pair)}});
        return list;
    };
    return {{"bytes", facts.size},
            {"frameRateCode", facts.rateCode},
            {"framesPerSecond", cdpRateName(facts.rateCode)},
            {"sequence", facts.sequence},
            {"triplets", facts.triplets},
            {"field1", pairs(0)},
            {"field2", pairs(1)},
            {"faults", facts.faults}};
}

std::string pairsText(const PairList &list)
{
    std::string text;
    for (const Pair pair : list.all())
        text += (text.empty() ? "" : " ") + hex(pair);
    return text.empty() ? "none" : text;
}

// A section that stands at `at`: the row's name and content, and where the next one begins; 0 when none can follow.
struct SectionRow
{
    const char *name;
    std::string content;
    size_t next;
};

SectionRow captionSection(std::span<const uint8_t> cdp, size_t at)
{
    const size_t triplets = cdp[at + 1] & 0x1Fu;
    size_t valid608 = 0, valid708 = 0, empty = 0;
    size_t next = at + 2;
    for (size_t index = 0; index < triplets && next + 3 <= cdp.size(); ++index, next += 3)
    {
        const bool valid = (cdp[next] & 4u) != 0;
        (!valid ? empty : (cdp[next] & 3u) < 2 ? valid608 : valid708) += 1;
    }
    return {"cc_data",
            print("%zu triplets: %zu CEA-608, %zu CEA-708, %zu empty", triplets, valid608, valid708, empty),
            next};
}

SectionRow serviceSection(std::span<const uint8_t> cdp, size_t at)
{
    const size_t services = cdp[at + 1] & 0x0Fu;
    std::string text = count(services, "service");
    for (size_t index = 0; index < services && at + 2 + index * 7 + 7 <= cdp.size(); ++index)
    {
        const auto service = cdp.subspan(at + 2 + index * 7, 7);
        std::string language;
        for (const uint8_t character : service.subspan(1, 3))
            language += character > ' ' && character < 0x7F ? static_cast<char>(character) : ' ';
        text += (service[4] & 0x80u) != 0 ? ", CEA-708" : ", line 21";
        if (language != "   ")
            text += " language " + language;
    }
    return {"services", text, at + 2 + services * 7};
}

SectionRow sectionAt(std::span<const uint8_t> cdp, size_t at)
{
    const uint8_t id = cdp[at];
    if (id == 0x71 && at + 5 <= cdp.size())
        return {"time code", hexOf(cdp.subspan(at + 1, 4)), at + 5};
    if (id == 0x72)
        return captionSection(cdp, at);
    if (id == 0x73)
        return serviceSection(cdp, at);
    if (id == 0x74 && at + 4 <= cdp.size())
        return {"footer", print("sequence %u, checksum %02X", cdp[at + 1] << 8 | cdp[at + 2], cdp[at + 3]),
                at + 4};
    return {"unknown", print("id %02X", id), 0};
}

// The sections one by one, as far as they are whole.
void printSections(const PacketFacts &facts)
{
    const std::span<const uint8_t> whole{facts.bytes.data(), facts.size};
    const auto cdp = whole.first(std::min<size_t>(whole[2], whole.size()));
    Table table{">Offset", "Section", "Content"};
    const auto flag = [&](uint8_t bit, const char *name)
    {
        return (whole[4] & bit) != 0 ? std::string{", "} + name : std::string{};
    };
    table.add({"0", "header",
               print("%u bytes, %s frames a second, sequence %u", whole[2],
                     std::string{cdpRateName(facts.rateCode)}.c_str(), facts.sequence) +
                   flag(0x80, "time code") + flag(0x40, "caption data") + flag(0x20, "service information") +
                   flag(0x02, "caption service active")});
    for (size_t at = 7; at != 0 && at + 1 < cdp.size();)
    {
        const SectionRow row = sectionAt(cdp, at);
        table.add({std::to_string(at), row.name, row.content});
        at = row.next;
    }
    table.print();
}

void printPairs(const PacketFacts &facts)
{
    Table table{">Field", "Pair", "Meaning"};
    for (size_t field = 0; field < 2; ++field)
    {
        for (const Pair pair : facts.pairs[field].all())
            table.add({std::to_string(field + 1), hex(pair), describe(pair)});
        if (facts.pairs[field].count == 0)
            table.add({std::to_string(field + 1), "none"});
    }
    table.print();
}

int parse(const Arguments &arguments, bool json)
{
    const std::string name = arguments.hexText.empty() ? place(arguments.file, 0) : "--hex";
    std::vector<uint8_t> bytes;
    if (!arguments.hexText.empty())
        bytes = fromHex(
            {reinterpret_cast<const uint8_t *>(arguments.hexText.data()), arguments.hexText.size()}, name);
    else
    {
        bytes = readWhole(arguments.file);
        if (!beginsPacket(bytes))
            bytes = fromHex(bytes, name);
    }
    std::span<const uint8_t> cdp{bytes};
    const bool atom = hasAtom(cdp);
    if (atom)
        cdp = cdp.subspan(kAtom);
    const PacketFacts facts = inspectCDP(cdp);
    if (json)
    {
        Json value = toJson(facts);
        value["atom"] = atom;
        out().json(value);
    }
    else if (facts.isCDP)
    {
        printSections(facts);
        out().line("");
        printPairs(facts);
    }
    if (facts.faults.empty())
        return kExitYes;
    std::string text;
    for (const std::string &fault : facts.faults)
        text += (text.empty() ? "" : "; ") + fault;
    throw Failure(kExitMalformed, Where{name}, text + " (" + statusText(KIVCS2STATUS_DATA_ERR) + ")");
}

int build(const Arguments &arguments, bool json)
{
    const Counting &counting = countingFor(arguments.rate, std::nullopt);
    const BuiltCDP cdp = buildCDP(parsePair(arguments.field1), parsePair(arguments.field2),
                                  static_cast<uint16_t>(arguments.sequence), counting, arguments.sdi);
    const size_t before = arguments.atom ? kAtom : 0;
    std::vector<uint8_t> bytes(before + cdp.size);
    std::ranges::copy(cdp.span(), bytes.begin() + static_cast<std::ptrdiff_t>(before));
    if (arguments.atom)
    {
        uint8_t *at = bytes.data();
        check(kivCS2ClosedCaptions_writeQuickTimeAtom(&at, static_cast<uint32_t>(kAtom + cdp.size)), "atom");
    }
    std::string text = hexOf(bytes) + "\n";
    if (json)
    {
        if (arguments.binary)
            throw Failure(kExitUsage, "--binary writes bytes and --json writes JSON: give one of them");
        Json value = toJson(inspectCDP(cdp.span()));
        value["hex"] = hexOf(bytes);
        text = jsonText(value, 2) + "\n";
    }
    OutputFile file{arguments.output};
    file.write(arguments.binary ? std::span<const uint8_t>{bytes}
                                : std::span{reinterpret_cast<const uint8_t *>(text.data()), text.size()});
    file.commit();
    return kExitYes;
}

/// Prints the packets found, a row or an object each.
class Findings
{
public:
    explicit Findings(bool json)
    {
        if (json)
            m_array.emplace();
    }

    void add(size_t offset, std::span<const uint8_t> cdp)
    {
        const PacketFacts facts = inspectCDP(cdp);
        ++m_found;
        m_faulty += facts.faults.empty() ? 0 : 1;
        if (m_array)
        {
            Json value = toJson(facts);
            value["offset"] = offset;
            m_array->add(value);
            return;
        }
        m_table.add({std::to_string(offset), std::to_string(cdp.size()),
                     std::string{cdpRateName(facts.rateCode)}, std::to_string(facts.sequence),
                     std::to_string(facts.triplets), pairsText(facts.pairs[0]), pairsText(facts.pairs[1]),
                     facts.faults.empty() ? "ok" : facts.faults.front()});
    }

    int close(const std::string &name)
    {
        if (m_array)
            m_array->close();
        else if (m_found > 0)
            m_table.print();
        if (m_found == 0)
            note(name + ": no caption distribution packet");
        return m_found == 0 ? kExitNo : m_faulty > 0 ? kExitMalformed : kExitYes;
    }

private:
    std::optional<JsonArray> m_array;
    Table m_table{">Offset", ">Bytes", ">Frames/s", ">Sequence", ">Triplets", "Field 1", "Field 2", "Result"};
    uint64_t m_found = 0, m_faulty = 0;
};

// Packets one behind the other, with anything between them: where none is, the next word is tried.
void findIn291M(std::vector<uint8_t> &bytes, const WordFormat &format, Findings &findings)
{
    if (bytes.empty())
        return;
    KIVCS2MemoryStream stream{};
    check(kivCS2MemoryStream_initWithBytes(&stream, bytes.data(), bytes.size()), "packet stream");
    const size_t wordBytes = format.bytes;
    const size_t head = (format.flagWords + 3u) * wordBytes; // flag, DID, SDID, DC
    Progress progress{"searching"};
    for (size_t at = 0; at + head <= bytes.size();)
    {
        // A look at DID and SDID first: most places hold no packet.
        const size_t did = at + format.flagWords * wordBytes + (wordBytes - 1);
        const size_t dc = did + 2 * wordBytes;
        progress.at(at, bytes.size());
        const size_t next = at + head + (static_cast<size_t>(bytes[dc]) + 1) * wordBytes;
        if (bytes[did] != 0x61 || bytes[did + wordBytes] != 0x01 || next > bytes.size())
        {
            at += wordBytes;
            continue;
        }
        std::array<uint8_t, 256> cdp{};
        uint32_t size = cdp.size();
        check(kivCS2Stream_setPosition(&stream.m_stream, static_cast<int64_t>(at), KIVCS2StreamPosition_Start,
                                       nullptr),
              "packet stream");
        const KIVCS2Status status = kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE291MStream(
            &stream.m_stream, format.format, false, cdp.data(), &size);
        if (KIVCS2_FAILED(status))
        {
            at += wordBytes;
            continue;
        }
        findings.add(at, {cdp.data(), size});
        at = next;
    }
    (void)kivCS2MemoryStream_close(&stream.m_stream); // a view: there is nothing to lose
}

uint32_t bigEndian(std::span<const uint8_t> bytes)
{
    uint32_t value = 0;
    for (const uint8_t byte : bytes)
        value = value << 8 | byte;
    return value;
}

// Frames of wrapped data one behind the other; each gives its first packet.
void findIn436M(std::vector<uint8_t> &bytes, const std::string &name, Findings &findings)
{
    constexpr size_t kLineHeader = 14;
    for (size_t at = 0; at < bytes.size();)
    {
        size_t end = at + 2;
        const uint32_t lines = end <= bytes.size() ? bigEndian(std::span{bytes}.subspan(at, 2)) : 0;
        for (uint32_t line = 0; line < lines && end <= bytes.size(); ++line)
        {
            if (end + kLineHeader > bytes.size())
            {
                end = bytes.size() + 1;
                break;
            }
            const auto header = std::span{bytes}.subspan(end, kLineHeader);
            const uint64_t payload =
                static_cast<uint64_t>(bigEndian(header.subspan(6, 4))) * bigEndian(header.subspan(10, 4));
            end = payload > bytes.size() ? bytes.size() + 1 : end + kLineHeader + payload;
        }
        if (end > bytes.size())
            throw Failure(KIVCS2STATUS_FORMAT_ERR, Where{name},
                          "the frame at byte " + std::to_string(at) + " is cut short");
        KIVCS2MemoryStream stream{};
        check(kivCS2MemoryStream_initWithBytes(&stream, bytes.data() + at, end - at), "wrapped data");
        std::array<uint8_t, 256> cdp{};
        uint32_t size = cdp.size();
        const KIVCS2Status status = kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE436MStream(
            &stream.m_stream, false, cdp.data(), &size);
        (void)kivCS2MemoryStream_close(&stream.m_stream); // a view: there is nothing to lose
        if (KIVCS2_SUCCEEDED(status))
            findings.add(at, {cdp.data(), size});
        at = end;
    }
}

int find(const Arguments &arguments, bool json)
{
    const auto format = std::ranges::find(kWordFormats, arguments.words, &WordFormat::name);
    if (format == kWordFormats.end())
        throw Failure(kExitUsage, "unknown word format \"" + visible(arguments.words) +
                                      "\"; known are 8bit, 8bit-adf, 10bit, 10bit-adf");
    std::vector<uint8_t> bytes = readWhole(arguments.file);
    Findings findings{json};
    if (arguments.in == "436m")
        findIn436M(bytes, place(arguments.file, 0), findings);
    else
        findIn291M(bytes, *format, findings);
    return findings.close(place(arguments.file, 0));
}

void addParseWord(Word &cdp, Context &context)
{
    const auto arguments = std::make_shared<Arguments>();
    Word &word = cdp.word("parse", "Take a packet apart (exit 3: something is wrong in it)");
    word.option("file", arguments->file, "Binary or hexadecimal text; - is standard input").isFile();
    word.option("--hex", arguments->hexText, "The packet itself, in hexadecimal").excludes("file");
    word.example("kivcs2 cdp build --field1 942c | kivcs2 cdp parse -");
    word.runs([&context, arguments] { return parse(*arguments, context.json); });
}

void addBuildWord(Word &cdp, Context &context)
{
    const auto arguments = std::make_shared<Arguments>();
    Word &word = cdp.word("build", "Make a packet from CEA-608 pairs");
    word.option("--field1", arguments->field1, "Pair of field 1, four hexadecimal digits");
    word.option("--field2", arguments->field2, "Pair of field 2");
    word.option("--sequence", arguments->sequence, {0, 65535}, "Sequence number");
    word.option("--rate", arguments->rate, "Frame rate of the packet").suggests("rates", rateNames);
    word.flag("--sdi", arguments->sdi, "With a second service descriptor, language eng");
    word.flag("--atom", arguments->atom, "With a QuickTime atom header in front");
    word.flag("--binary", arguments->binary, "Write bytes, not hexadecimal text");
    word.option("-o,--output", arguments->output, "Where to write; - is standard output").isTarget();
    word.example("kivcs2 cdp build --field1 942c --rate 29.97 --sequence 7");
    word.runs([&context, arguments] { return build(*arguments, context.json); });
}

void addFindWord(Word &cdp, Context &context)
{
    const auto arguments = std::make_shared<Arguments>();
    Word &word = cdp.word("find", "List the packets in captured ancillary data (exit 1: none)");
    word.option("file", arguments->file, "A file; - is standard input").required().isFile();
    word.option("--in", arguments->in, "291m: ancillary packets; 436m: wrapped data")
        .required()
        .among({"291m", "436m"});
    word.option("--words", arguments->words,
                "291m: 8bit, 8bit-adf, 10bit (16-bit big-endian units), 10bit-adf")
        .suggests("word forms", wordFormNames);
    word.example("kivcs2 cdp find capture.bin --in 291m --words 10bit");
    word.runs([&context, arguments] { return find(*arguments, context.json); });
}

} // namespace

void addCDPCommand(Word &root, Context &context)
{
    Word &cdp = root.word("cdp", "Caption distribution packets (SMPTE 334-2): parse, build, find");
    cdp.group(kGroupCaptions);
    addParseWord(cdp, context);
    addBuildWord(cdp, context);
    addFindWord(cdp, context);
}

} // namespace tool
