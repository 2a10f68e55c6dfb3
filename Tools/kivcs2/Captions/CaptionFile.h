// Caption files read line by line: every line counts, and nothing is passed over in silence.
//
// The library's look-up by timecode goes forward only, stops at the first line that does not
// decode and hands out one of several lines with the same timecode. A converter must not lose any
// of them, so the file is driven through the library's line reader and line decoders instead.
#ifndef KIV_TOOL_CAPTION_FILE_H
#define KIV_TOOL_CAPTION_FILE_H

#include "Captions/CEA608.h"
#include "Counting.h"
#include "Files/Files.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>
#include <KIVCoreServices2/KIVCS2MemoryStream.h>

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool
{

/// The lines of a text file with their numbers, read in windows: memory does not grow with the file.
class LineReader
{
public:
    explicit LineReader(const std::string &path);
    ~LineReader();
    LineReader(const LineReader &) = delete;
    LineReader &operator=(const LineReader &) = delete;

    /// Moves to the next line that is neither empty nor a comment ("//"); false at the end.
    [[nodiscard]] bool next();

    [[nodiscard]] std::string_view line() const
    {
        return {m_line.data(), m_lineLength};
    }
    [[nodiscard]] uint64_t number() const
    {
        return m_number;
    } ///< from 1
    [[nodiscard]] const Input &input() const
    {
        return m_input;
    }

private:
    bool fill();
    void countLines(size_t from, size_t to);

    Input m_input;
    std::vector<uint8_t> m_window;
    size_t m_filled = 0; ///< bytes of the window that hold input
    size_t m_whole = 0;  ///< bytes that end with a line end, or the input's end
    size_t m_taken = 0;
    bool m_atEnd = false;
    uint64_t m_lineEnds = 0; ///< in all bytes taken
    uint8_t m_lastByte = 0;  ///< the byte before the ones taken next; CR LF is one end
    KIVCS2MemoryStream m_stream{};
    std::vector<char> m_line;
    uint32_t m_lineLength = 0;
    uint64_t m_number = 0;
};

enum class CaptionFileKind
{
    SCC,
    MCC
};

/// What stands before the first caption.
struct CaptionHeader
{
    CaptionFileKind kind = CaptionFileKind::SCC;
    uint32_t version = 0; ///< MCC: 1 or 2
    const Counting *counting = nullptr;
    std::string countingReason;                  ///< how the counting was found
    std::string uuid, program, date, time, rate; ///< MCC, as in the file; empty when not there
    std::vector<std::string> others;             ///< MCC: lines that are none of these
};

/// A line that does not decode.
struct BadLine
{
    uint64_t number;
    KIVCS2Status status;
    std::string text; ///< what is wrong, in words
};

/// Reads an SCC or MCC file, which the first line tells apart, and makes its counting the one in use.
class CaptionReader
{
public:
    /// Called with every line that does not decode; it may throw to stop.
    using OnBadLine = std::function<void(const BadLine &)>;

    /// `rate` overrides what the file says; empty when it should not.
    CaptionReader(const std::string &path, const std::string &rate, OnBadLine onBadLine);
    ~CaptionReader();
    CaptionReader(const CaptionReader &) = delete;
    CaptionReader &operator=(const CaptionReader &) = delete;

    [[nodiscard]] const CaptionHeader &header() const
    {
        return m_header;
    }

    /// Moves to the next caption line; false at the end. Throws at the end of a file that has nothing behind its
    /// header: no word succeeds over nothing.
    [[nodiscard]] bool next();

    [[nodiscard]] const KIVCS2ClosedCaption &caption() const
    {
        return m_record.m_caption;
    }
    [[nodiscard]] uint64_t lineNumber() const
    {
        return m_lines.number();
    }
    [[nodiscard]] const Input &input() const
    {
        return m_lines.input();
    }

    /// Lines whose separator says another counting than the one in use.
    [[nodiscard]] uint64_t otherSeparators() const
    {
        return m_otherSeparators;
    }

private:
    void readSCCHeader(const std::string &rate);
    void readMCCHeader(const std::string &rate);
    bool decode(std::string_view line);
    bool decodeLine(std::string_view whole);
    KIVCS2Status decodeLongSCC(std::string_view line, std::string &why);
    void refuse(KIVCS2Status status, const std::string &text);

    LineReader m_lines;
    OnBadLine m_onBadLine;
    CaptionHeader m_header;
    KIVCS2MemoryStream m_unused{}; ///< the record wants a stream; lines are given to it one by one
    KIVCS2ClosedCaptionsMCCStream m_record{};
    std::string m_pendingLine; ///< the first caption line, met while reading the header
    bool m_hasPending = false;
    bool m_anyLine = false; ///< one behind the header, good or bad
    std::string m_rest;     ///< what is left of an SCC line of more pairs than a record holds
    uint32_t m_restFrames = 0;
    uint64_t m_otherSeparators = 0;
};

/// The CEA-608 pairs of one field in one packet. There is one at 29.97 frames a second; a slower
/// rate has to carry more, and the library's own extraction hands out the last of them only.
struct PairList
{
    std::array<Pair, 31> list{}; ///< cc_count has 5 bits
    uint32_t count = 0;

    [[nodiscard]] std::span<const Pair> all() const
    {
        return {list.data(), count};
    }
    /// The pair of a packet that carries at most one.
    [[nodiscard]] Pair only() const
    {
        return count > 0 ? list[0] : kNoCaption;
    }
};

/// The packet of an MCC line, taken apart and checked.
struct PacketFacts
{
    std::vector<std::string> faults; ///< in words; empty when all is right
    bool isCDP = false;              ///< 61/01, and begins with 96 69
    PairList pairs[2];               ///< by field
    uint16_t sequence = 0;
    uint8_t rateCode = 0;
    uint8_t triplets = 0;             ///< cc_count
    std::array<uint8_t, 255> bytes{}; ///< the CDP
    uint32_t size = 0;
};

/// The CDP in `cdp`, checked: lengths, sections, both counters, the checksum.
[[nodiscard]] PacketFacts inspectCDP(std::span<const uint8_t> cdp);

/// Takes the ancillary packets of MCC lines (DID to checksum) apart.
class PacketInspector
{
public:
    PacketInspector();
    ~PacketInspector();
    PacketInspector(const PacketInspector &) = delete;
    PacketInspector &operator=(const PacketInspector &) = delete;

    [[nodiscard]] PacketFacts inspect(const KIVCS2ClosedCaption &caption);

private:
    KIVCS2MemoryStream m_unused{}; ///< the record wants a stream and reads nothing from it
    KIVCS2ClosedCaptionsMCCStream m_record{};
};

/// Something found more than once: how often, and where and what it was the first time.
struct Finding
{
    uint64_t count = 0;
    std::string first;

    void add(uint64_t line, const std::string &text);
};

/// Bad lines are counted.
[[nodiscard]] CaptionReader::OnBadLine countIn(Finding &finding);

/// The first bad line ends the command; with `keepGoing` each is told and the next one read.
[[nodiscard]] CaptionReader::OnBadLine tellBadLines(const std::string &file, bool keepGoing);

} // namespace tool

#endif
