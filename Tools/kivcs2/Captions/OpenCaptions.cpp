// A caption file as the command's words read it.
#include "Captions/OpenCaptions.h"

#include "Files/Files.h"
#include "Terminal/Output.h"

#include <KIVCoreServices2/KIVCS2MemoryStream.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace tool
{
namespace
{

constexpr size_t kHead = size_t{64} * 1024;     // the reader decides on this much text
constexpr size_t kMostKept = size_t{256} << 20; // bytes of a pipe that must be read more than once

/// An input with the library's stream interface. While `keeps` is set, the bytes read from a pipe are kept,
/// so that it can be read from its start again.
struct InputStream
{
    KIVCS2Stream stream{}; ///< the first member: the library passes it to the callbacks
    Input input;
    std::vector<uint8_t> kept;
    size_t at = 0;       ///< position in `kept`
    size_t most = kHead; ///< reading ends here while `keeps` is set
    bool keeps = false;
    bool isWhole = false; ///< `kept` has the whole pipe
    std::exception_ptr failure;

    explicit InputStream(const std::string &path) : input(path)
    {
        stream.m_readBytes = read;
        if (input.isRegularFile())
            stream.m_setPosition = move;
    }

    void beginAgain()
    {
        if (input.isRegularFile())
            input.moveTo(0);
        at = 0;
        keeps = false;
    }

    /// Reads a pipe to its end, so that it can be read in any order.
    void readWhole()
    {
        if (input.isRegularFile())
            return;
        for (size_t count = 1; count > 0;)
        {
            if (kept.size() >= kMostKept)
                throw Failure(KIVCS2STATUS_OVERFLOW_ERR, Where{input.name()},
                              "more than 256 MiB of SCC through a pipe; give it as a file");
            const size_t before = kept.size();
            kept.resize(before + kHead);
            count = input.readSome(std::span{kept}.subspan(before));
            kept.resize(before + count);
        }
        isWhole = true;
        stream.m_setPosition = move;
    }

private:
    static KIVCS2Status read(KIVCS2Stream *stream, void *buffer, uint64_t size, uint64_t *count)
    {
        auto &self = *reinterpret_cast<InputStream *>(stream);
        const std::span room{static_cast<uint8_t *>(buffer), static_cast<size_t>(size)};
        try
        {
            *count = self.take(room);
            return KIVCS2STATUS_OK;
        }
        catch (...)
        {
            self.failure = std::current_exception(); // no exception crosses the library
            *count = 0;
            return KIVCS2STATUS_READ_ERR;
        }
    }

    size_t take(std::span<uint8_t> room)
    {
        if (at < kept.size())
        {
            const size_t count = std::min(room.size(), kept.size() - at);
            std::memcpy(room.data(), kept.data() + at, count);
            at += count;
            return count;
        }
        if (isWhole)
            return 0;
        if (!keeps || input.isRegularFile())
            return input.readSome(room);
        const size_t count = input.readSome(room.first(std::min(room.size(), most - kept.size())));
        kept.insert(kept.end(), room.begin(), room.begin() + static_cast<ptrdiff_t>(count));
        at = kept.size();
        return count;
    }

    static KIVCS2Status move(KIVCS2Stream *stream, int64_t offset, KIVCS2StreamPosition mode,
                             int64_t *position)
    {
        auto &self = *reinterpret_cast<InputStream *>(stream);
        const uint64_t here = self.isWhole ? self.at : self.input.position();
        const int64_t to = (mode == KIVCS2StreamPosition_Current ? static_cast<int64_t>(here) : 0) + offset;
        if (mode == KIVCS2StreamPosition_End || to < 0)
            return KIVCS2STATUS_UNSUPPORTED_ERR;
        try
        {
            if (self.isWhole)
                self.at = std::min(static_cast<size_t>(to), self.kept.size());
            else if (static_cast<uint64_t>(to) != here)
                self.input.moveTo(static_cast<uint64_t>(to));
        }
        catch (...)
        {
            self.failure = std::current_exception();
            return KIVCS2STATUS_READ_ERR;
        }
        if (position != nullptr)
            *position = to;
        return KIVCS2STATUS_OK;
    }
};

/// A library file that frees itself.
struct OpenFile
{
    KIVCS2CaptionFile file{};

    OpenFile() = default;
    ~OpenFile()
    {
        (void)kivCS2CaptionFile_free(&file);
    }
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;
};

// Returns true for "29.97" and "59.94": with them the file decides if numbers are dropped.
bool leavesDropOpen(std::string_view rate)
{
    return rate == "29.97" || rate == "59.94";
}

std::string reasonText(const KIVCS2CaptionFileHeader &header)
{
    switch (header.m_reason)
    {
    case KIVCS2CaptionReason_Caller:
        return "from --rate";
    case KIVCS2CaptionReason_Header:
        return std::string{"Time Code Rate="} + header.m_rate;
    case KIVCS2CaptionReason_Packets:
        return "from the packets";
    default:
        return rowOf(header.m_counting).drop ? "because of \";\"" : "because of \":\"";
    }
}

} // namespace

struct CaptionSource::State
{
    ReadingWay way;
    InputStream input;
    FoundFaults faults;
    OpenFile reader;
    KIVCS2CaptionFileHeader header{};
    std::optional<Progress> progress;
    uint64_t read = 0; ///< the highest offset
    bool isPlaced = false;

    State(const ReadingArguments &arguments, ReadingWay how)
        : way(std::move(how)), input(arguments.file), faults(input.input.name(), way.onFault)
    {
        if (!way.progress.empty())
            progress.emplace(way.progress);
        KIVCS2CaptionReadOptions options{};
        options.m_field = arguments.field;
        options.m_strict = arguments.strict;
        options.m_bothTracks = arguments.bothTracks;
        options.m_onFault = FoundFaults::take;
        options.m_context = &faults;
        settle(arguments, options);
        check(kivCS2CaptionFile_initReading(&reader.file, &input.stream, false, &options),
              input.input.name());
        done(kivCS2CaptionFile_readHeader(&reader.file, &header));
        if (header.m_counting == KIVCS2CaptionCounting_FindOut) // no rate, and no caption that needs one
            header.m_counting = KIVCS2CaptionCounting_29_97NDF;
    }

    // Finds out what must be known before the file is read. Reports no faults: the read does that.
    void settle(const ReadingArguments &arguments, KIVCS2CaptionReadOptions &options)
    {
        const Counting *named = arguments.rate.empty() ? nullptr : &countingFor(arguments.rate, std::nullopt);
        bool isSCC = false;
        if (way.byFrame || leavesDropOpen(arguments.rate))
        {
            const KIVCS2CaptionFileHeader found = probe();
            isSCC = found.m_kind == KIVCS2CaptionFileKind_SCC;
            if (leavesDropOpen(arguments.rate) && found.m_counting != KIVCS2CaptionCounting_FindOut)
                named = &countingFor(arguments.rate, rowOf(found.m_counting).drop ? ';' : ':');
        }
        if (named != nullptr)
            options.m_counting = captionCounting(*named);
        if (!way.byFrame || (!isSCC && !(way.placesPackets && input.input.isRegularFile())))
            return;
        input.readWhole();
        options.m_order = KIVCS2CaptionOrder_Frame;
        isPlaced = true;
    }

    KIVCS2CaptionFileHeader probe()
    {
        KIVCS2CaptionFileHeader found{};
        OpenFile file;
        input.keeps = true;
        if (KIVCS2_SUCCEEDED(kivCS2CaptionFile_initReading(&file.file, &input.stream, false, nullptr)))
            (void)kivCS2CaptionFile_readHeader(&file.file, &found); // unknown values stay open
        input.beginAgain();
        return found;
    }

    // Throws the failure that stopped the library.
    void done(KIVCS2Status status)
    {
        if (!KIVCS2_FAILED(status))
            return;
        faults.rethrow();
        const KIVCS2CaptionFileFault *const end = faults.endOf(status);
        if (way.tellsLines)
            faults.tell(end != nullptr ? end->m_fault : KIVCS2CaptionFault{KIVCS2CaptionFault_None});
        if (input.failure)
            std::rethrow_exception(input.failure);
        const std::string &name = input.input.name();
        if (status == KIVCS2STATUS_NO_DATA_ERR)
            throw Failure(status, Where{name}, "holds no captions");
        if (end == nullptr)
            throw Failure(status, Where{name}, "cannot be read");
        throw Failure(status, Where{name, end->m_line},
                      sentence(*end) + (status == KIVCS2STATUS_FRAME_RATE_ERR ? " (--rate gives one)" : ""));
    }
};

CaptionSource::CaptionSource(const ReadingArguments &arguments, ReadingWay way)
    : m_state(std::make_unique<State>(arguments, std::move(way)))
{
}

CaptionSource::~CaptionSource() = default;

const KIVCS2CaptionFileHeader &CaptionSource::header() const
{
    return m_state->header;
}

const Counting &CaptionSource::counting() const
{
    return rowOf(header().m_counting);
}

std::string CaptionSource::countingText() const
{
    return std::string{counting().title} + " (" + reasonText(header()) + ")";
}

const std::string &CaptionSource::name() const
{
    return m_state->input.input.name();
}

uint64_t CaptionSource::bytes() const
{
    return m_state->read;
}

bool CaptionSource::next(KIVCS2CaptionPacket &packet)
{
    const KIVCS2Status status = kivCS2CaptionFile_readPacket(&m_state->reader.file, &packet);
    const Input &input = m_state->input.input;
    m_state->read = std::max(m_state->read, input.position());
    if (status == KIVCS2STATUS_EOF_ERR || (status == KIVCS2STATUS_NO_DATA_ERR && m_state->way.mayBeEmpty))
        return false;
    m_state->done(status);
    if (m_state->progress)
        m_state->progress->at(m_state->read, input.size());
    return true;
}

bool CaptionSource::isInOrder() const
{
    return m_state->isPlaced || faults().count(KIVCS2CaptionFault_BackInTime) == 0;
}

const FoundFaults &CaptionSource::faults() const
{
    return m_state->faults;
}

KIVCS2CaptionFileReport CaptionSource::report() const
{
    KIVCS2CaptionFileReport report{};
    check(kivCS2CaptionFile_getReport(&m_state->reader.file, &report), name());
    return report;
}

int CaptionSource::finish()
{
    if (m_state->way.tellsLines)
        m_state->faults.tell();
    return m_state->faults.lost() > 0 ? kExitMalformed : kExitYes;
}

std::string CaptionSource::timecode(uint32_t frame) const
{
    std::array<char, KIVCS2_CAPTION_TIMECODE_SIZE> text{};
    check(kivCS2CaptionCounting_textFromFrame(header().m_counting, frame, text.data()), "timecode");
    return text.data();
}

uint32_t CaptionSource::frameOf(std::string_view text) const
{
    const std::string shown = "\"" + visible(text) + "\": ";
    uint32_t frame = 0;
    if (text.find_first_not_of("0123456789") == std::string_view::npos && !text.empty())
    {
        const auto number = text.size() < 10 ? std::stoul(std::string{text}) : uint64_t{UINT32_MAX};
        if (number >= framesADay(header().m_counting))
            throw Failure(kExitMalformed, shown + "more frames than a day of the file has");
        return static_cast<uint32_t>(number);
    }
    std::string digits; // "1:2:3:4" with two digits a field
    for (std::string_view rest = text; digits.size() < KIVCS2_CAPTION_TIMECODE_SIZE;)
    {
        const size_t end = std::min(rest.find_first_of(":;"), rest.size());
        digits += (end == 1 ? "0" : "") + std::string{rest.substr(0, end)};
        if (end == rest.size())
            break;
        digits += ':';
        rest.remove_prefix(end + 1);
    }
    bool exists = true;
    const KIVCS2Status status =
        kivCS2CaptionCounting_frameFromText(header().m_counting, digits.c_str(), &frame, &exists);
    const bool isForm = digits.size() + 1 == KIVCS2_CAPTION_TIMECODE_SIZE &&
                        digits.find_first_not_of("0123456789:") == std::string::npos && digits[2] == ':' &&
                        digits[5] == ':' && digits[8] == ':';
    if (!isForm)
        throw Failure(kExitMalformed,
                      shown + "not a timecode; HH:MM:SS:FF, HH:MM:SS;FF or a number of frames is");
    if (KIVCS2_FAILED(status) || !exists)
        throw Failure(KIVCS2STATUS_INVALID_TIMECODE_ERR,
                      shown + "names no frame at " + std::string{counting().title});
    return frame;
}

void addReadingOptions(Word &word, ReadingArguments &arguments)
{
    word.option("file", arguments.file, "An SCC or MCC file; - is standard input").required().isFile();
    word.option("--rate", arguments.rate, "Count at this rate instead of that of the file")
        .suggests("rates", rateNames);
    word.option("--field", arguments.field, {1, 2},
                "The field of an SCC file's pairs, 1 or 2; without it the field of the codes");
    word.flag("--strict", arguments.strict, "Stop at the first fault");
    word.flag("--both-tracks", arguments.bothTracks,
              "Of SCC words with 8 digits take the second track too, into the other field");
}

void refuseIdleOptions(const ReadingArguments &arguments, bool hasSCC)
{
    if (!hasSCC && arguments.field != 0)
        throw Failure(kExitUsage, "--field is only for an SCC file");
    if (!hasSCC && arguments.bothTracks)
        throw Failure(kExitUsage, "--both-tracks is only for an SCC file");
}

const Counting &rowOf(KIVCS2CaptionCounting counting)
{
    const char *const name = kivCS2CaptionCounting_name(counting);
    const auto row =
        std::ranges::find(countings(), std::string_view{name != nullptr ? name : ""}, &Counting::name);
    if (row == countings().end())
        throw Failure(KIVCS2STATUS_FRAME_RATE_ERR, "a counting that the command does not know");
    return *row;
}

KIVCS2CaptionCounting captionCounting(const Counting &row)
{
    KIVCS2CaptionCounting counting = KIVCS2CaptionCounting_23_98;
    while (counting < KIVCS2CaptionCounting_MAX && kivCS2CaptionCounting_name(counting) != row.name)
        ++counting;
    return counting;
}

uint32_t framesADay(KIVCS2CaptionCounting counting)
{
    KIVCS2CaptionCountingInfo info{};
    check(kivCS2CaptionCounting_getInfo(counting, &info), "counting");
    return info.m_perDay;
}

std::string_view kindName(KIVCS2CaptionFileKind kind)
{
    constexpr std::array<std::string_view, KIVCS2CaptionFileKind_MAX> kNames = {"",    "SCC", "MCC",
                                                                                "MCC", "SRT", "WebVTT"};
    return kNames[std::min<size_t>(kind, kNames.size() - 1)];
}

bool isWithin(uint32_t frame, uint32_t from, uint32_t until)
{
    return from <= until ? from <= frame && frame < until : frame >= from || frame < until;
}

} // namespace tool
