// A caption file as the command's words read it: opened by name, read packet by packet, its faults reported.
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

/// The arguments for a file to be read.
struct ReadingArguments
{
    std::string file;
    std::string rate;   ///< empty: the file's own
    uint32_t field = 0; ///< field of an SCC file's pairs; 0: take it from the codes
    bool strict = false;
    bool bothTracks = false;
};

/// Adds the file and the options of reading it: --rate, --field, --strict, --both-tracks.
void addReadingOptions(Word &word, ReadingArguments &arguments);

/// Refuses --field and --both-tracks if no file is SCC.
void refuseIdleOptions(const ReadingArguments &arguments, bool hasSCC);

/// How a file is to be read for a word.
struct ReadingWay
{
    /// Pairs of an SCC file come on the frames on which they are sent, as a decoder needs them; otherwise as
    /// in the file. A pipe is then read to its end first.
    bool byFrame = false;
    /// With `byFrame`: the packets of an MCC file as well, but not through a pipe.
    bool placesPackets = false;
    bool mayBeEmpty = false; ///< a file without captions ends the read instead of failing
    bool tellsLines = true;  ///< report faults on standard error, a line for each cause
    OnFault onFault = {};
    std::string progress = {}; ///< the activity, for the progress line; empty: no progress line
};

/// A caption file to be read. Failures of the library become failures of the command, with their place.
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
    [[nodiscard]] std::string countingText() const; ///< the counting and its source

    /// The name used in messages, and the bytes read so far.
    [[nodiscard]] const std::string &name() const;
    [[nodiscard]] uint64_t bytes() const;

    /// Reads the next packet; returns false after the last.
    [[nodiscard]] bool next(KIVCS2CaptionPacket &packet);

    /// Returns false if packets went back in time and could not be put in order.
    [[nodiscard]] bool isInOrder() const;

    [[nodiscard]] const FoundFaults &faults() const;
    [[nodiscard]] KIVCS2CaptionFileReport report() const;

    /// Reports the faults and returns the exit code: 3 if captions were lost.
    [[nodiscard]] int finish();

    [[nodiscard]] std::string timecode(uint32_t frame) const;

    /// Returns the frame of a timecode or of a number of frames on the command line.
    [[nodiscard]] uint32_t frameOf(std::string_view text) const;

private:
    struct State;

    std::unique_ptr<State> m_state;
};

/// Returns the command's row for a counting of the library.
[[nodiscard]] const Counting &rowOf(KIVCS2CaptionCounting counting);
[[nodiscard]] KIVCS2CaptionCounting captionCounting(const Counting &row);
[[nodiscard]] uint32_t framesADay(KIVCS2CaptionCounting counting);

/// Returns the name of a kind: "SCC", "MCC".
[[nodiscard]] std::string_view kindName(KIVCS2CaptionFileKind kind);

/// Returns true if `frame` is from `from` on and before `until`, which may be past midnight.
[[nodiscard]] bool isWithin(uint32_t frame, uint32_t from, uint32_t until);

} // namespace tool

#endif
