// A caption file as the words of the command read it: opened by name, read packet by packet, its faults told.
#ifndef KIV_TOOL_OPEN_CAPTIONS_H
#define KIV_TOOL_OPEN_CAPTIONS_H

#include "Captions/Faults.h"
#include "CommandLine/CommandLine.h"
#include "Counting.h"

#include <KIVCoreServices2/KIVCS2CaptionFile.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tool
{

/// What the command line says about a file that is read.
struct ReadingArguments
{
    std::string file;
    std::string rate;   ///< empty: the file's own
    uint32_t field = 0; ///< of an SCC file's pairs; 0: what its codes say
    bool strict = false;
    bool bothTracks = false;
};

/// The file and the options of reading it: --rate, --field, --strict, --both-tracks.
void addReadingOptions(Word &word, ReadingArguments &arguments);

/// Refuses --field and --both-tracks if no file is SCC.
void refuseIdleOptions(const ReadingArguments &arguments, bool hasSCC);

/// How a word wants a file read.
struct ReadingWay
{
    /// The pairs of an SCC file on the frames they go out on, for what follows a programme; otherwise as they
    /// stand in the file. A pipe is read whole for it.
    bool byFrame = false;
    /// With `byFrame`: the packets of an MCC file as well, but not through a pipe.
    bool placesPackets = false;
    bool mayBeEmpty = false; ///< a file without captions ends the read instead of failing
    bool tellsLines = true;  ///< faults are told on standard error, a line a cause
    OnFault onFault = {};
    std::string progress = {}; ///< what is being done, for the line of progress; empty: none
};

/// A caption file that is being read. Failures of the library become failures of the command, with the place.
class CaptionSource
{
public:
    /// Reads the header.
    CaptionSource(const ReadingArguments &arguments, ReadingWay way);
    ~CaptionSource();
    CaptionSource(const CaptionSource &) = delete;
    CaptionSource &operator=(const CaptionSource &) = delete;

    [[nodiscard]] const KIVCS2CaptionFileHeader &header() const;
    [[nodiscard]] bool isSCC() const
    {
        return header().m_kind == KIVCS2CaptionFileKind_SCC;
    }
    [[nodiscard]] const Counting &counting() const;
    [[nodiscard]] std::string countingText() const; ///< with the reason

    /// The name for messages, and the bytes read so far.
    [[nodiscard]] const std::string &name() const;
    [[nodiscard]] uint64_t bytes() const;

    /// The next packet; false behind the last.
    [[nodiscard]] bool next(KIVCS2CaptionPacket &packet);

    /// False if packets went back in time, and nothing could place them.
    [[nodiscard]] bool isInOrder() const;

    [[nodiscard]] const FoundFaults &faults() const;
    [[nodiscard]] KIVCS2CaptionFileReport report() const;

    /// Tells the faults; the exit code: 3 if something was lost.
    [[nodiscard]] int finish();

    [[nodiscard]] std::string timecode(uint32_t frame) const;

    /// The frame of a timecode or a number of frames on the command line.
    [[nodiscard]] uint32_t frameOf(std::string_view text) const;

private:
    struct State;

    std::unique_ptr<State> m_state;
};

/// The row of a counting of the library.
[[nodiscard]] const Counting &rowOf(KIVCS2CaptionCounting counting);
[[nodiscard]] KIVCS2CaptionCounting captionCounting(const Counting &row);
[[nodiscard]] uint32_t framesADay(KIVCS2CaptionCounting counting);

/// "SCC", "MCC".
[[nodiscard]] std::string_view kindName(KIVCS2CaptionFileKind kind);

/// Whether a frame is shown from `from` until `until`, which may be behind midnight.
[[nodiscard]] bool isWithin(uint32_t frame, uint32_t from, uint32_t until);

} // namespace tool

#endif
