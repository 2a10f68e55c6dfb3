// kivcs2 crc, kivcs2 str and kivcs2 status.
#include "CommandLine/Numbers.h"
#include "Failure.h"
#include "Files/Files.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCS2String.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <optional>

namespace tool
{
namespace
{

constexpr size_t kBlock = size_t{64} * 1024;

struct EncodingRow
{
    std::string_view name;
    KIVCS2StringEncoding code;
    uint32_t unit;         ///< bytes
    std::string_view mark; ///< the byte-order mark
    bool marked;
};

using namespace std::string_view_literals;

constexpr std::array<EncodingRow, 8> kEncodings = {{
    {"ascii", KIVCS2StringEncoding_ASCII, 1, ""sv, false},
    {"filesystem", KIVCS2StringEncoding_FileSystem, 1, ""sv, false},
    {"utf8", KIVCS2StringEncoding_UTF8, 1, "\xEF\xBB\xBF"sv, true},
    {"utf16be", KIVCS2StringEncoding_UTF16BE, 2, "\xFE\xFF"sv, true},
    {"utf16le", KIVCS2StringEncoding_UTF16LE, 2, "\xFF\xFE"sv, true},
    {"utf32be", KIVCS2StringEncoding_UTF32BE, 4, "\x00\x00\xFE\xFF"sv, true},
    {"utf32le", KIVCS2StringEncoding_UTF32LE, 4, "\xFF\xFE\x00\x00"sv, true},
    {"latin1", KIVCS2StringEncoding_ISOLatin1, 1, ""sv, false},
}};

Names encodingNames()
{
    Names names{"auto"};
    for (const EncodingRow &row : kEncodings)
        names.emplace_back(row.name);
    return names;
}

Names statusNames()
{
    Names names;
    for (const StatusRow &row : statusTable())
        names.emplace_back(row.name.substr(sizeof "KIVCS2STATUS_" - 1));
    return names;
}

const EncodingRow &encoding(std::string name)
{
    std::erase(name, '-');
    const Names names = encodingNames();
    if (const auto found = findName(names, name); found && *found > 0) // after "auto"
        return kEncodings[*found - 1];
    throw Failure(kExitUsage, "unknown encoding \"" + visible(name) +
                                  "\"; known are ascii, filesystem, utf8, utf16be, utf16le, utf32be, "
                                  "utf32le, latin1" +
                                  hint(names, name));
}

// The encoding named by the byte-order mark. FF FE 00 00 is UTF-32 here, because it is far more often
// UTF-32 than UTF-16 text that begins with a zero character; the library detects UTF-16.
const EncodingRow *detect(std::span<const uint8_t> bytes, uint32_t &markLength)
{
    KIVCS2StringEncoding found = 0;
    markLength = 0;
    const auto length = static_cast<uint32_t>(std::min<size_t>(bytes.size(), 4));
    if (length == 0 || KIVCS2_FAILED(kivCS2String_detectEncoding(bytes.data(), length, &found, &markLength)))
        return nullptr;
    if (found == KIVCS2StringEncoding_UTF16LE && length == 4 && bytes[2] == 0 && bytes[3] == 0)
    {
        found = KIVCS2StringEncoding_UTF32LE;
        markLength = 4;
    }
    return &*std::ranges::find(kEncodings, found, &EncodingRow::code);
}

int detectCommand(const std::string &path, bool json)
{
    std::array<uint8_t, 4> head{};
    Input input{path};
    const size_t length = input.read(head);
    uint32_t mark = 0;
    const EncodingRow *row = detect({head.data(), length}, mark);
    if (json)
        out().json({{"file", input.name()},
                    {"encoding", row != nullptr ? Json(row->name) : Json(nullptr)},
                    {"markBytes", mark}});
    else if (row != nullptr)
        out().line(std::string{row->name} + ", by a byte-order mark of " + count(mark, "byte"));
    else
        out().line("no byte-order mark");
    return row != nullptr ? kExitYes : kExitNo;
}

struct FreeText
{
    void operator()(char *text) const
    {
        (void)kivCS2String_freeCString(text);
    } // not null: cannot fail
};
using Text = std::unique_ptr<char, FreeText>;

std::vector<uint8_t> convertBytes(std::span<const uint8_t> bytes, const EncodingRow &from,
                                  const EncodingRow &to, const std::string &name)
{
    char *text = nullptr;
    uint32_t length = 0;
    const KIVCS2Status status = kivCS2String_convertCString(bytes.data(), static_cast<uint32_t>(bytes.size()),
                                                            from.code, &text, to.code, &length);
    const Text guard{text};
    if (status == KIVCS2STATUS_MEMORY_ERR)
        // The strict reader's status for bytes that the encoding does not allow.
        throw Failure(kExitMalformed, Where{name},
                      "not valid " + std::string{from.name} + " (" + statusText(status) + ")");
    check(status, name + ": no character converts to " + std::string{to.name});
    uint32_t terminator = 0;
    check(kivCS2String_getNullTerminatorLength(to.code, &terminator), "terminator");
    const auto *first = reinterpret_cast<const uint8_t *>(text);
    return {first, first + (length - std::min(length, terminator))};
}

struct Conversion
{
    std::string path = "-";
    std::string from = "auto";
    std::string to = "utf8";
    std::string output = "-";
    bool mark = false;
};

int convertCommand(const Conversion &conversion)
{
    const std::vector<uint8_t> source = readWhole(conversion.path);
    const std::string name = place(conversion.path, 0);
    const EncodingRow &to = encoding(conversion.to);
    uint32_t mark = 0;
    const EncodingRow *found = detect(source, mark);
    const EncodingRow *from = found;
    if (conversion.from != "auto")
        from = &encoding(conversion.from);
    else if (from == nullptr)
        from = &encoding("utf8");
    std::span<const uint8_t> body{source};
    if (found == from)
        body = body.subspan(mark);
    if (body.size() % from->unit != 0)
        throw Failure(kExitMalformed, Where{name},
                      count(body.size(), "byte") + " are not a whole " + std::string{from->name} +
                          " characters");

    std::vector<uint8_t> result;
    if (conversion.mark)
        result.assign(to.mark.begin(), to.mark.end());
    if (!body.empty())
    {
        const std::vector<uint8_t> text = convertBytes(body, *from, to, name);
        // The library stops at the first character that the target lacks, with success: convert the
        // result back and compare. A path may be composed on the way.
        if (to.code != KIVCS2StringEncoding_FileSystem && from->code != KIVCS2StringEncoding_FileSystem)
        {
            const std::vector<uint8_t> back =
                text.empty() ? std::vector<uint8_t>{} : convertBytes(text, to, *from, name);
            if (!std::ranges::equal(back, body))
            {
                const auto differs = std::ranges::mismatch(back, body);
                throw Failure(kExitMalformed, Where{name},
                              "the character at byte " + std::to_string(differs.in2 - body.begin()) +
                                  " has no place in " + std::string{to.name});
            }
        }
        result.insert(result.end(), text.begin(), text.end());
    }
    OutputFile file{conversion.output};
    file.write(result);
    file.commit();
    return kExitYes;
}

int checksum(const std::vector<std::string> &paths, bool json)
{
    Table table{"CRC-32", ">Bytes", "File"};
    std::optional<JsonArray> array;
    if (json)
        array.emplace();
    KIVCS2CRC32Param crcTable{};
    kivCS2Utils_initCRC32Table(&crcTable);
    crcTable.m_tableBuilt = 1;
    std::vector<uint8_t> block(kBlock);
    int code = kExitYes;
    const auto sum = [&](const std::string &path)
    {
        Input input{path};
        Progress progress{input.name()};
        uint32_t crc = 0xFFFFFFFFu;
        while (const size_t length = input.read(block))
        {
            crc = kivCSUtils_updateCRC32(&crcTable, crc, block.data(), static_cast<uint32_t>(length));
            progress.at(input.position(), input.size());
        }
        const std::string text = print("%08x", ~crc);
        if (array)
            array->add({{"file", input.name()}, {"bytes", input.position()}, {"crc32", text}});
        else
            table.add({text, std::to_string(input.position()), path});
    };
    bool any = false;
    for (const std::string &path : paths)
        try
        {
            sum(path);
            any = true;
        }
        catch (const Failure &failure)
        {
            note(failure.what()); // the other files still get their lines
            if (array)
                array->add(failure.json());
            code = failure.code();
        }
    if (array)
        array->close();
    else if (any)
        table.print();
    return code;
}

const StatusRow *findStatus(const std::string &wanted)
{
    const auto rows = statusTable();
    if (const auto value = wholeNumber(wanted))
    {
        const auto row = std::ranges::find(rows, *value, &StatusRow::value);
        return row == rows.end() ? nullptr : &*row;
    }
    std::string name = wanted;
    std::ranges::transform(name, name.begin(),
                           [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    const auto row = std::ranges::find_if(
        rows, [&](const StatusRow &candidate)
        { return candidate.name == name || candidate.name.substr(sizeof "KIVCS2STATUS_" - 1) == name; });
    return row == rows.end() ? nullptr : &*row;
}

Json toJson(const StatusRow &row)
{
    return {{"value", print("0x%08x", row.value)},
            {"name", row.name},
            {"meaning", row.meaning},
            {"exitCode", static_cast<int>(exitCodeFor(row.value))}};
}

int status(const std::string &wanted, bool json)
{
    if (wanted.empty())
    {
        if (json)
        {
            JsonArray array;
            for (const StatusRow &row : statusTable())
                array.add(toJson(row));
            array.close();
            return kExitYes;
        }
        Table table{"Value", "Name", "Meaning", ">Exit code"};
        for (const StatusRow &row : statusTable())
            table.add({print("0x%08x", row.value), std::string{row.name}, std::string{row.meaning},
                       std::to_string(exitCodeFor(row.value))});
        table.print();
        return kExitYes;
    }
    const StatusRow *row = findStatus(wanted);
    if (row == nullptr)
    {
        throw Failure(kExitNo, "there is no status \"" + visible(wanted) + "\"; kivcs2 status lists them" +
                                   hint(statusNames(), wanted));
    }
    if (json)
        out().json(toJson(*row));
    else
        out().line(Output::strong(statusText(row->value)) + "  " + std::string{row->meaning});
    return kExitYes;
}

} // namespace

void addChecksumCommand(Word &root, Context &context)
{
    const auto paths = std::make_shared<Names>();
    Word &word = root.word("crc", "CRC-32 (IEEE 802.3) of files").group(kGroupTexts);
    word.option("files", *paths, "Files; - is standard input").required().isFile();
    word.about(
        "Prints the CRC in hexadecimal, the bytes and the name of each file. A file that cannot be read is\n"
        "reported, the others are still done, and the exit code is its own.");
    word.example("kivcs2 crc programme.scc programme.mcc");
    word.runs([&context, paths] { return checksum(*paths, context.json); });
}

void addTextCommand(Word &root, Context &context)
{
    Word &str = root.word("str", "Text files: detect and convert encodings").group(kGroupTexts);

    const auto path = std::make_shared<std::string>();
    Word &detection = str.word("detect", "Name the encoding by the byte-order mark (exit 1: none)");
    detection.option("file", *path, "A file; - is standard input").required().isFile();
    detection.about(
        "Knows the marks of UTF-8, and of UTF-16 and UTF-32 in both orders of bytes; the text itself is\n"
        "not examined. Exit code 1: there is no mark.");
    detection.example("kivcs2 str detect marked.txt");
    detection.runs([&context, path] { return detectCommand(*path, context.json); });

    const auto conversion = std::make_shared<Conversion>();
    Word &converting = str.word("convert", "Write a text in another encoding");
    converting.about("Encodings: ascii, filesystem, utf8, utf16be, utf16le, utf32be, utf32le, latin1.\n"
                     "A character that the target cannot hold is an error, exit code 3: nothing is\n"
                     "dropped.");
    converting.option("file", conversion->path, "A file; - is standard input").required().isFile();
    converting.option("-o,--output", conversion->output, "Where to write; - is standard output").isTarget();
    converting.option("--from", conversion->from, "Encoding of the file; auto reads the mark, else utf8")
        .suggests("encodings", encodingNames);
    converting.option("--to", conversion->to, "Encoding to write")
        .required()
        .suggests("encodings", encodingNames);
    converting.flag("--mark", conversion->mark, "Write a byte-order mark first");
    converting.example("kivcs2 str convert text.txt --to utf16le --mark -o wide.txt");
    converting.runs([conversion] { return convertCommand(*conversion); });
}

void addStatusCommand(Word &root, Context &context)
{
    const auto wanted = std::make_shared<std::string>();
    Word &word = root.word("status", "What a status of the library means").group(kGroupItself);
    word.option("status", *wanted, "A value (0x8000000b) or a name (CAPTION_ERR); without it all")
        .suggests("statuses", statusNames);
    word.about(
        "Prints name, value and meaning, as the header KIVCS2Base.h has them, of one status or of all.\n"
        "The error lines of this command end with such a name. Exit code 1: there is no such status.");
    word.example("kivcs2 status 0x8000000b");
    word.runs([&context, wanted] { return status(*wanted, context.json); });
}

} // namespace tool
