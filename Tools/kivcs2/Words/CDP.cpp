// kivcs2 cdp: parse, build and find caption distribution packets.
#include "Captions/OpenCaptions.h"
#include "Captions/Services.h"
#include "Counting.h"
#include "Failure.h"
#include "Files/Files.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCS2CaptionDecoder.h>
#include <KIVCoreServices2/KIVCS2CaptionFile.h>
#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>
#include <KIVCoreServices2/KIVCS2MemoryStream.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

namespace tool
{
namespace
{

using Pair = std::array<uint8_t, 2>;

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

/// How the words of an ancillary packet stand in a capture: bytes, or 16-bit big-endian units of 10 bits.
struct WordForm
{
    std::string_view name;
    size_t bytes; ///< of one word
    bool hasFlag; ///< the ancillary data flag, 000 3FF 3FF, stands in front of a packet
};

constexpr std::array<WordForm, 4> kWordForms = {
    {{"8bit-adf", 1, true}, {"8bit", 1, false}, {"10bit-adf", 2, true}, {"10bit", 2, false}}};

Names wordFormNames()
{
    Names names;
    for (const WordForm &form : kWordForms)
        names.emplace_back(form.name);
    return names;
}

constexpr size_t kAtom = KIVCS2_CAPTION_ATOM_SIZE;
constexpr size_t kHead = 3; // DID, SDID and data count in front of the user data

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

std::string hexOf(std::span<const uint8_t> bytes, const char *digits = "%02X")
{
    std::string text;
    for (const uint8_t byte : bytes)
        text += print(digits, byte); // NOLINT(clang-diagnostic-format-nonliteral)
    return text;
}

Pair pairOf(const std::string &word)
{
    const std::vector<uint8_t> bytes = word.size() == 4 ? fromHex(word, "pair") : std::vector<uint8_t>{};
    if (bytes.size() != 2)
        throw Failure(kExitMalformed, "\"" + word + "\" is not a pair of four hexadecimal digits");
    return {bytes[0], bytes[1]};
}

// ---- What is in a packet ----

/// A packet with what is read from it more than once.
struct Content
{
    KIVCS2CaptionPacket packet{};
    KIVCS2CaptionPairs pairs{};
    KIVCS2CaptionDTVCC dtvcc{};

    explicit Content(std::span<const uint8_t> bytes)
    {
        check(kivCS2CaptionPacket_parse(&packet, bytes.data(), static_cast<uint32_t>(bytes.size())),
              "the packet");
        (void)kivCS2CaptionPacket_getPairs(&packet, &pairs); // none is an answer too
        (void)kivCS2CaptionPacket_getDTVCC(&packet, &dtvcc);
    }

    [[nodiscard]] bool isCDP() const
    {
        return (packet.m_flags & KIVCS2CaptionPacketFlag_CDP) != 0;
    }
    /// The user data, as many as are there.
    [[nodiscard]] std::span<const uint8_t> cdp() const
    {
        if (packet.m_size < kHead)
            return {};
        return {packet.m_anc + kHead, std::min<size_t>(packet.m_anc[2], packet.m_size - kHead)};
    }
    [[nodiscard]] std::span<const uint8_t[2]> field(size_t field) const
    {
        return {pairs.m_pairs[field], pairs.m_count[field]};
    }
    [[nodiscard]] std::span<const uint8_t> bytes708() const
    {
        return {dtvcc.m_bytes, dtvcc.m_count};
    }
    [[nodiscard]] std::span<const KIVCS2CaptionServiceEntry> services() const
    {
        return {packet.m_services, packet.m_serviceCount};
    }
    [[nodiscard]] std::vector<KIVCS2CaptionFault> faults() const
    {
        std::vector<KIVCS2CaptionFault> list;
        for (KIVCS2CaptionFault fault = 1; fault < KIVCS2CaptionFault_MAX; ++fault)
            if ((packet.m_faults >> fault & 1u) != 0)
                list.push_back(fault);
        return list;
    }
};

std::string describe(const uint8_t (&pair)[2])
{
    char text[KIVCS2_CAPTION_DESCRIPTION_SIZE] = "";
    (void)kivCS2CaptionDecoder_describePair(pair[0], pair[1], text); // leaves it empty for an empty pair
    return text[0] == '\0' ? "empty" : text;
}

Json toJson(const Content &content)
{
    const KIVCS2CaptionPacket &packet = content.packet;
    const auto pairs = [&content](size_t field)
    {
        Json list = Json::array();
        for (const auto &pair : content.field(field))
            list.push_back({{"pair", hexOf(pair, "%02x")}, {"words", describe(pair)}});
        return list;
    };
    Json services = Json::array();
    for (const KIVCS2CaptionServiceEntry &entry : content.services())
        services.push_back({{"service", serviceName(entry.m_service)},
                            {"language", entry.m_language},
                            {"easyReader", entry.m_easyReader != 0},
                            {"wide", entry.m_wide != 0}});
    Json starts = Json::array();
    for (uint32_t byte = 0; byte < content.dtvcc.m_count; byte += 2)
        if ((content.dtvcc.m_starts >> byte / 2 & 1u) != 0)
            starts.push_back(byte);
    Json faults = Json::array();
    for (const KIVCS2CaptionFault fault : content.faults())
        faults.push_back({{"fault", kivCS2CaptionFile_getFaultName(fault)},
                          {"status", statusText(kivCS2CaptionFile_getFaultStatus(fault))}});
    const bool hasTime = (packet.m_flags & KIVCS2CaptionPacketFlag_HasTimeCode) != 0;
    return {{"bytes", content.cdp().size()},
            {"did", packet.m_did},
            {"sdid", packet.m_sdid},
            {"frameRateCode", packet.m_rateCode},
            {"framesPerSecond", cdpRateName(packet.m_rateCode)},
            {"sequence", packet.m_sequence},
            {"triplets", packet.m_tripletCount},
            {"timeCode", hasTime ? Json(hexOf(packet.m_timeCode)) : Json()},
            {"field1", pairs(0)},
            {"field2", pairs(1)},
            {"cea708", {{"hex", hexOf(content.bytes708())}, {"packetStarts", starts}}},
            {"services", services},
            {"faults", faults}};
}

std::string pairsText(std::span<const uint8_t[2]> list)
{
    std::string text;
    for (const auto &pair : list)
        text += (text.empty() ? "" : " ") + hexOf(pair, "%02x");
    return text.empty() ? "none" : text;
}

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
    const auto flag = [&](uint8_t bit, const char *name)
    {
        return (cdp[4] & bit) != 0 ? std::string{", "} + name : std::string{};
    };
    Facts facts;
    facts.add("Header", print("%zu bytes, %s frames a second, sequence %u", cdp.size(),
                              std::string{cdpRateName(packet.m_rateCode)}.c_str(), packet.m_sequence) +
                            flag(0x80, "time code") + flag(0x40, "caption data") +
                            flag(0x20, "service information") + flag(0x02, "caption service active"));
    if ((packet.m_flags & KIVCS2CaptionPacketFlag_HasTimeCode) != 0)
        facts.add("Time code", hexOf(packet.m_timeCode));
    const unsigned line21 = content.pairs.m_count[0] + content.pairs.m_count[1];
    const unsigned digital = content.dtvcc.m_count / 2;
    facts.add("Triplets", print("%u: %u CEA-608, %u CEA-708, %u empty", packet.m_tripletCount, line21,
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
        for (const auto &pair : content.field(field))
            table.add({std::to_string(field + 1), hexOf(pair, "%02x"), describe(pair)});
        if (content.field(field).empty())
            table.add({std::to_string(field + 1), "none"});
    }
    table.print();
}

/// The causes that were met, each with its number and its first place.
class Causes
{
public:
    /// `where` is empty for the one packet there is.
    void add(const Content &content, const std::string &where)
    {
        for (const KIVCS2CaptionFault fault : content.faults())
            if (m_causes[fault].count++ == 0)
                m_causes[fault].first = where;
    }

    /// One line a cause on standard error.
    void tell(const std::string &name) const
    {
        for (KIVCS2CaptionFault fault = 1; fault < KIVCS2CaptionFault_MAX; ++fault)
        {
            const Cause &cause = m_causes[fault];
            if (cause.count == 0)
                continue;
            const std::string places =
                cause.first.empty() ? "" : ": " + count(cause.count, "packet") + ", first " + cause.first;
            note(name + ": " + kivCS2CaptionFile_getFaultName(fault) + places + " (" +
                 statusText(kivCS2CaptionFile_getFaultStatus(fault)) + ")");
        }
    }

private:
    struct Cause
    {
        uint64_t count = 0;
        std::string first;
    };
    std::array<Cause, KIVCS2CaptionFault_MAX> m_causes;
};

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
    pairs.m_count[0] = pairs.m_count[1] = 1;
    std::ranges::copy(pairOf(arguments.field1), pairs.m_pairs[0][0]);
    std::ranges::copy(pairOf(arguments.field2), pairs.m_pairs[1][0]);
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

/// Prints the packets found, a row or an object each.
class Findings
{
public:
    explicit Findings(bool json)
    {
        if (json)
            m_array.emplace();
    }

    void add(size_t offset, const Content &content)
    {
        ++m_found;
        m_faulty += content.packet.m_faults != 0 ? 1 : 0;
        m_causes.add(content, "at byte " + std::to_string(offset));
        if (m_array)
        {
            Json value = toJson(content);
            value["offset"] = offset;
            m_array->add(value);
            return;
        }
        std::string result;
        for (const KIVCS2CaptionFault fault : content.faults())
        {
            result += result.empty() ? "" : ", ";
            result += kivCS2CaptionFile_getFaultName(fault);
        }
        m_table.add({std::to_string(offset), std::to_string(content.cdp().size()),
                     std::string{cdpRateName(content.packet.m_rateCode)},
                     std::to_string(content.packet.m_sequence), std::to_string(content.packet.m_tripletCount),
                     pairsText(content.field(0)), pairsText(content.field(1)),
                     std::to_string(content.dtvcc.m_count), result.empty() ? "ok" : result});
    }

    int close(const std::string &name)
    {
        if (m_array)
            m_array->close();
        else if (m_found > 0)
            m_table.print();
        m_causes.tell(name);
        if (m_found == 0)
            note(name + ": no caption distribution packet");
        return m_found == 0 ? kExitNo : m_faulty > 0 ? kExitMalformed : kExitYes;
    }

private:
    std::optional<JsonArray> m_array;
    Table m_table{">Offset", ">Bytes",  ">Frames/s",      ">Sequence", ">Triplets",
                  "Field 1", "Field 2", ">CEA-708 bytes", "Result"};
    Causes m_causes;
    uint64_t m_found = 0, m_faulty = 0;
};

/// The words of a capture; a word of 10 bits counts with its low 8.
class CapturedWords
{
public:
    CapturedWords(std::span<const uint8_t> bytes, const WordForm &form) : m_bytes(bytes), m_form(form) {}

    /// Words from byte `at` on, as many as are there and at most as many as a packet has.
    [[nodiscard]] std::vector<uint8_t> from(size_t at) const
    {
        std::vector<uint8_t> words;
        for (; words.size() < KIVCS2_CAPTION_ANC_SIZE && at + m_form.bytes <= m_bytes.size();
             at += m_form.bytes)
            words.push_back(m_bytes[at + m_form.bytes - 1]);
        return words;
    }

    /// Whether a caption packet begins at byte `at`: DID 61, SDID 01, a count and the mark of a CDP.
    [[nodiscard]] bool beginsPacket(size_t at) const
    {
        const auto is = [&](size_t word, uint8_t value)
        {
            const size_t byte = at + word * m_form.bytes + m_form.bytes - 1;
            return byte < m_bytes.size() && m_bytes[byte] == value;
        };
        return is(0, 0x61) && is(1, 0x01) && is(3, 0x96) && is(4, 0x69);
    }

    /// Whether the ancillary data flag stands at byte `at`.
    [[nodiscard]] bool hasFlag(size_t at) const
    {
        constexpr std::array<uint8_t, 3> kFlag8 = {0, 0xFF, 0xFF};
        constexpr std::array<uint8_t, 6> kFlag10 = {0, 0, 3, 0xFF, 3, 0xFF};
        const std::span<const uint8_t> rest = m_bytes.subspan(at);
        const std::span<const uint8_t> flag =
            m_form.bytes == 1 ? std::span<const uint8_t>{kFlag8} : std::span<const uint8_t>{kFlag10};
        return rest.size() >= flag.size() && std::ranges::equal(rest.first(flag.size()), flag);
    }

private:
    std::span<const uint8_t> m_bytes;
    const WordForm &m_form;
};

// Packets one behind the other, with anything between them: if there is none, the next word is tried. A
// packet that is damaged or cut is found too.
void findIn291M(std::span<const uint8_t> bytes, const WordForm &form, Findings &findings)
{
    const CapturedWords words{bytes, form};
    const size_t flag = form.hasFlag ? 3 * form.bytes : 0;
    Progress progress{"searching"};
    for (size_t at = 0; at < bytes.size();)
    {
        progress.at(at, bytes.size());
        if (!words.beginsPacket(at + flag) || (form.hasFlag && !words.hasFlag(at)))
        {
            at += form.bytes;
            continue;
        }
        std::vector<uint8_t> packet = words.from(at + flag);
        packet.resize(std::min<size_t>(packet.size(), packet[2] + kHead + 1));
        const Content content{packet};
        findings.add(at, content);
        // A damaged count leads into the next packet.
        at += content.packet.m_faults == 0 ? flag + packet.size() * form.bytes : form.bytes;
    }
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
            findings.add(at, Content{std::span{cdp}.first(size)});
        at = end;
    }
}

int find(const Arguments &arguments, bool json)
{
    const auto form = std::ranges::find(kWordForms, arguments.words, &WordForm::name);
    if (form == kWordForms.end())
        throw Failure(kExitUsage, "unknown word format \"" + visible(arguments.words) +
                                      "\"; known are 8bit, 8bit-adf, 10bit, 10bit-adf");
    std::vector<uint8_t> bytes = readWhole(arguments.file);
    Findings findings{json};
    if (arguments.in == "436m")
        findIn436M(bytes, place(arguments.file, 0), findings);
    else
        findIn291M(bytes, *form, findings);
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
