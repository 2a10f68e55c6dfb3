// kivcs2 cdp: parse, build and find caption distribution packets.
#include "Captions/Capture.h"
#include "Captions/Findings.h"
#include "Captions/OpenCaptions.h"
#include "Captions/PacketContent.h"
#include "Captions/Pairs.h"
#include "Captions/Services.h"
#include "Counting.h"
#include "Failure.h"
#include "Files/Files.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>

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
    std::string in, words, service;
    uint32_t sequence = 0, width = 0;
    bool sdi = false, atom = false, binary = false, captions = false;
};

/// The form of ancillary packets in a capture: bytes, or 10-bit words in 16-bit units; with "adf" after the
/// ancillary data flag.
struct WordForm
{
    std::string_view name;
    KIVCS2CaptionCarrier carrier;
};

constexpr std::array<WordForm, 6> kWordForms = {{{"8bit-adf", KIVCS2CaptionCarrier_8BitWithADF},
                                                 {"8bit", KIVCS2CaptionCarrier_8Bit},
                                                 {"10bit-adf", KIVCS2CaptionCarrier_10BitWithADF},
                                                 {"10bit", KIVCS2CaptionCarrier_10Bit},
                                                 {"10bit-le-adf", KIVCS2CaptionCarrier_10BitLittleWithADF},
                                                 {"10bit-le", KIVCS2CaptionCarrier_10BitLittle}}};

Names wordFormNames()
{
    Names names;
    for (const WordForm &form : kWordForms)
        names.emplace_back(form.name);
    return names;
}

constexpr size_t kAtom = KIVCS2_CAPTION_ATOM_SIZE;

// ---- Hexadecimal text ----

int hexDigit(uint8_t character)
{
    if (character >= '0' && character <= '9')
        return character - '0';
    const auto lower = static_cast<uint8_t>(character | 0x20u);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::vector<uint8_t> fromHex(std::string_view text, const std::string &name)
{
    std::vector<uint8_t> bytes;
    int high = -1;
    for (size_t at = text.starts_with("0x") || text.starts_with("0X") ? 2 : 0; at < text.size(); ++at)
    {
        if (std::string_view{" \t\r\n"}.find(text[at]) != std::string_view::npos)
            continue;
        const int digit = hexDigit(static_cast<uint8_t>(text[at]));
        if (digit < 0)
            throw Failure(kExitMalformed, Where{name},
                          "neither a packet nor hexadecimal text: \"" + visible(text.substr(at, 1)) +
                              "\" at byte " + std::to_string(at));
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

// ---- A packet for people ----

std::string servicesText(const Content &content)
{
    std::string text;
    for (const KIVCS2CaptionServiceEntry &entry : content.services())
    {
        text += (text.empty() ? "" : ", ") + serviceName(entry.m_service);
        if (entry.m_language[0] != '\0')
            text += std::string{" language "} + entry.m_language;
        text += entry.m_easyReader != 0 ? " (easy reader)" : "";
        text += entry.m_wide != 0 ? " (16:9)" : "";
    }
    return text.empty() ? "none" : text;
}

void printFacts(const Content &content)
{
    const KIVCS2CaptionPacket &packet = content.packet;
    const std::span<const uint8_t> cdp = content.cdp();
    const auto flag = [&](uint8_t bit, const char *name) { return (cdp[4] & bit) != 0 ? name : ""; };
    Facts facts;
    facts.add("Header", print("%zu bytes, %s frames a second, sequence %u", cdp.size(),
                              std::string{cdpRateName(packet.m_rateCode)}.c_str(), packet.m_sequence) +
                            flag(0x80, ", time code") + flag(0x40, ", caption data") +
                            flag(0x20, ", service information") + flag(0x02, ", caption service active"));
    if ((packet.m_flags & KIVCS2CaptionPacketFlag_HasTimeCode) != 0)
        facts.add("Time code", hexOf(packet.m_timeCode));
    const size_t line21 = content.fields[0].size() + content.fields[1].size();
    const unsigned digital = content.dtvcc.m_count / 2;
    facts.add("Triplets", print("%u: %zu CEA-608, %u CEA-708, %zu empty", packet.m_tripletCount, line21,
                                digital, packet.m_tripletCount - line21 - digital));
    if (digital > 0)
        facts.add("CEA-708", hexOf(content.bytes708()));
    facts.add("Services", servicesText(content));
    facts.print();
}

void printPairs(const Content &content)
{
    Table table{">Field", "Pair", "Meaning"};
    for (size_t field = 0; field < 2; ++field)
    {
        for (const CaptionPair pair : content.fields[field])
            table.add({std::to_string(field + 1), pair.hex(), pair.words()});
        if (content.fields[field].empty())
            table.add({std::to_string(field + 1), "none"});
    }
    table.print();
}

// ---- parse ----

bool hasAtom(std::span<const uint8_t> bytes)
{
    return bytes.size() >= kAtom && std::memcmp(bytes.data() + 4, "ccdp", 4) == 0;
}

bool beginsPacket(std::span<const uint8_t> bytes)
{
    return hasAtom(bytes) || (bytes.size() >= 2 && ((bytes[0] == 0x96 && bytes[1] == 0x69) ||
                                                    (bytes[0] == 0x61 && bytes[1] == 0x01)));
}

std::vector<uint8_t> packetBytes(const Arguments &arguments, const std::string &name)
{
    if (!arguments.hexText.empty())
        return fromHex(arguments.hexText, name);
    std::vector<uint8_t> bytes = readWhole(arguments.file);
    if (!beginsPacket(bytes))
        bytes = fromHex({reinterpret_cast<const char *>(bytes.data()), bytes.size()}, name);
    return bytes;
}

int parse(const Arguments &arguments, bool json)
{
    const std::string name = arguments.hexText.empty() ? place(arguments.file, 0) : "--hex";
    const std::vector<uint8_t> bytes = packetBytes(arguments, name);
    const bool atom = hasAtom(bytes);
    if (bytes.size() <= (atom ? kAtom : 0))
        throw Failure(kExitMalformed, Where{name}, "no bytes of a packet");
    const Content content{std::span{bytes}.subspan(atom ? kAtom : 0)};
    if (json)
    {
        Json value = toJson(content);
        value["atom"] = atom;
        out().json(value);
    }
    else if (content.isCDP())
    {
        printFacts(content);
        out().line("");
        printPairs(content);
    }
    Causes causes;
    causes.add(content, {});
    causes.tell(name);
    if (!content.isCDP() && content.packet.m_faults == 0)
        note(name + ": an ancillary packet of another kind, without captions");
    return content.isCDP() && content.packet.m_faults == 0 ? kExitYes : kExitMalformed;
}

// ---- build ----

KIVCS2CaptionPacket buildPacket(const Arguments &arguments)
{
    KIVCS2CaptionPairs pairs{};
    const std::array<CaptionPair, 2> fields = {parseCaptionPair(arguments.field1),
                                               parseCaptionPair(arguments.field2)};
    for (size_t field = 0; field < fields.size(); ++field)
    {
        // The library adds the empty pairs that the rate requires.
        pairs.m_count[field] = ((fields[field].first | fields[field].second) & 0x7F) != 0;
        pairs.m_pairs[field][0][0] = fields[field].first;
        pairs.m_pairs[field][0][1] = fields[field].second;
    }
    constexpr std::array<KIVCS2CaptionServiceEntry, 2> kBoth = {
        {{KIVCS2CaptionService_CC1, "", 0, 0, {}}, {KIVCS2CaptionService_S1, "eng", 0, 0, {}}}};
    KIVCS2CaptionPacket packet;
    check(kivCS2CaptionPacket_build(&packet, captionCounting(countingFor(arguments.rate, std::nullopt)),
                                    static_cast<uint16_t>(arguments.sequence), &pairs, nullptr,
                                    arguments.sdi ? kBoth.data() : nullptr, kBoth.size()),
          "the packet");
    return packet;
}

int build(const Arguments &arguments, bool json)
{
    if (json && arguments.binary)
        throw Failure(kExitUsage, "--binary writes bytes and --json writes JSON: give one of them");
    const KIVCS2CaptionPacket packet = buildPacket(arguments);
    const Content content{{packet.m_anc, packet.m_size}};
    const size_t before = arguments.atom ? kAtom : 0;
    std::vector<uint8_t> bytes(before + content.cdp().size());
    std::ranges::copy(content.cdp(), bytes.begin() + static_cast<std::ptrdiff_t>(before));
    if (arguments.atom)
    {
        uint8_t *at = bytes.data();
        check(kivCS2ClosedCaptions_writeQuickTimeAtom(&at, static_cast<uint32_t>(bytes.size())), "atom");
    }
    std::string text = hexOf(bytes) + "\n";
    if (json)
    {
        Json value = toJson(content);
        value["hex"] = hexOf(bytes);
        text = jsonText(value, 2) + "\n";
    }
    OutputFile file{arguments.output};
    file.write(arguments.binary ? std::span<const uint8_t>{bytes}
                                : std::span{reinterpret_cast<const uint8_t *>(text.data()), text.size()});
    file.commit();
    Causes causes;
    causes.add(content, {});
    causes.tell("the pairs");
    return kExitYes;
}

// ---- find ----

KIVCS2CaptionCarrier carrierOf(const Arguments &arguments)
{
    if (arguments.in == "436m")
        return KIVCS2CaptionCarrier_436M;
    if (arguments.in == "v210")
        return KIVCS2CaptionCarrier_V210Luma;
    if (arguments.in == "rtp")
        return KIVCS2CaptionCarrier_RTP;
    const std::string words = arguments.words.empty() ? "8bit" : arguments.words;
    const auto form = std::ranges::find(kWordForms, words, &WordForm::name);
    if (form != kWordForms.end())
        return form->carrier;
    std::string known;
    for (const WordForm &row : kWordForms)
        known += (known.empty() ? "" : ", ") + std::string{row.name};
    throw Failure(kExitUsage, "unknown word format \"" + visible(words) + "\"; known are " + known);
}

std::string findRefusal(const Arguments &arguments)
{
    const bool isRows = arguments.in == "v210";
    if (isRows && arguments.width == 0)
        return "--in v210 needs --width, the samples of a row";
    if (!isRows && arguments.width != 0)
        return "--width is of --in v210";
    if (!arguments.words.empty() && arguments.in != "291m")
        return "--words is of --in 291m";
    if (!arguments.service.empty() && !arguments.captions)
        return "--service is of --captions";
    return {};
}

int find(const Arguments &arguments, bool json)
{
    Capture capture{arguments.file, carrierOf(arguments), arguments.width};
    Findings findings{{arguments.in, arguments.service, arguments.captions, json}};
    Progress progress{"searching " + capture.input().name()};
    CapturedPacket found;
    capture.onProgress = [&] { progress.at(capture.input().position(), capture.input().size()); };
    while (capture.next(found))
        findings.add(found);
    return findings.close(capture);
}

void addParseWord(Word &cdp, Context &context)
{
    const auto arguments = std::make_shared<Arguments>();
    Word &word = cdp.word("parse", "Decode a packet (exit 3: it has a fault)");
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
    word.option("--in", arguments->in,
                "291m: ancillary packets; 436m: wrapped data; v210: rows of pixels; rtp: payloads (RFC 8331)")
        .required()
        .among({"291m", "436m", "v210", "rtp"});
    word.option("--words", arguments->words,
                "291m: 8bit (default), 8bit-adf, 10bit (16-bit big-endian units), 10bit-adf, 10bit-le "
                "(little-endian), 10bit-le-adf")
        .suggests("word forms", wordFormNames);
    word.option("--width", arguments->width, {1, 16384}, "v210: samples of a row; 720 is SD");
    word.flag("--captions", arguments->captions, "The captions as a viewer sees them");
    word.option("--service", arguments->service,
                "With --captions, only these services: CC1, T1, S1, or several with commas")
        .suggests("services", serviceNames);
    word.about(
        "v210: of HD luma and chroma are searched, of SD (720) every sample. rtp: one payload, or each\n"
        "after its length in 16 bits, high byte first (RFC 4571). Captions are timed by the CDPs' time\n"
        "codes, without them from 0 on. Exit codes: 0, 1 no packet, 3 damaged or cut data.");
    word.refuses([arguments] { return findRefusal(*arguments); });
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
