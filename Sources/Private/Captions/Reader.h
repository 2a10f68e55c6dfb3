// Reads a caption file packet by packet: header, order of lines, faults.
#ifndef KIV_PRIVATE_CAPTIONS_READER_H
#define KIV_PRIVATE_CAPTIONS_READER_H

#include "Private/Captions/Counting.h"
#include "Private/Captions/FaultLog.h"
#include "Private/Captions/LineIndex.h"
#include "Private/Captions/LineSource.h"
#include "Private/Captions/LineText.h"
#include "Private/Captions/Survey.h"

#include <optional>

namespace kiv::cc
{
class Reader
{
public:
    Reader(KIVCS2Stream *stream, const KIVCS2CaptionReadOptions &options)
        : m_options{options}, m_source{stream}, m_log{m_options}
    {
    }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    [[nodiscard]] bool canSeek() const
    {
        return m_source.canSeek();
    }
    [[nodiscard]] KIVCS2Status readHeader();
    [[nodiscard]] const KIVCS2CaptionFileHeader &header() const
    {
        return m_header;
    }
    [[nodiscard]] KIVCS2Status readPacket(KIVCS2CaptionPacket &packet);
    [[nodiscard]] KIVCS2Status seek(uint32_t frame);

    void report(KIVCS2CaptionFileReport &report) const;
    [[nodiscard]] const FaultLog &log() const
    {
        return m_log;
    }

private:
    // One caption line being read.
    struct Current
    {
        Line line;
        LineHead head;
        Notes notes;
        uint32_t frame = 0; // continues past midnight
        bool hasFrame = false;
    };

    KIVCS2Status takeHeader();
    KIVCS2Status openFile(std::string_view &text);
    KIVCS2Status takeHeaderLines();
    void surveyAgain();
    KIVCS2Status takeHeaderLine(const Line &line);
    KIVCS2Status takeFormat(std::string_view text, bool &known);
    KIVCS2Status takeKnown(std::string_view text, bool &known);
    KIVCS2Status settleCounting();
    KIVCS2Status refuse(KIVCS2CaptionFault fault, const char *expected = nullptr);

    KIVCS2Status nextLine();
    KIVCS2Status lineInFileOrder();
    KIVCS2Status lineInFrameOrder();
    KIVCS2Status listLines();
    KIVCS2Status goThroughLines(bool lists, bool &isBack);
    KIVCS2Status orderLine(Line &line, uint32_t &before, OrderedLine &ordered, bool &isCaption);
    KIVCS2Status takeLine(KIVCS2CaptionPacket &packet, bool &got);
    KIVCS2Status gatherLine();
    KIVCS2Status takeTimecode(bool &good);
    KIVCS2Status takeMCC(KIVCS2CaptionPacket &packet, bool &got);
    KIVCS2Status finishMCC(KIVCS2CaptionPacket &packet, const MCCData &data);
    [[nodiscard]] KIVCS2CaptionFault orderFault(uint32_t frame, const uint32_t (&suffix)[3]) const;
    [[nodiscard]] KIVCS2CaptionFault sequenceFault(uint16_t sequence, uint32_t ahead, bool isSameFrame) const;
    KIVCS2Status compareMCC(KIVCS2CaptionPacket &packet);
    KIVCS2Status openWords();
    KIVCS2Status checkWords(size_t from);
    KIVCS2Status placeWords();
    KIVCS2Status nextWord(KIVCS2CaptionPacket &packet, bool &got);
    KIVCS2Status usualWord(KIVCS2CaptionPacket &packet, bool &got);
    KIVCS2Status findWord(std::string_view &word, size_t &digits);
    KIVCS2Status takeWord(std::string_view word, size_t digits, KIVCS2CaptionPacket &packet, bool &got);
    void openPair(KIVCS2CaptionPacket &packet);
    void closeWords();

    KIVCS2Status lose(KIVCS2CaptionFault fault, size_t at, std::string_view found);
    KIVCS2Status loseText(std::string_view text);
    KIVCS2Status tell(KIVCS2CaptionFault fault, const Place &place, bool lost);
    KIVCS2Status tellHere(KIVCS2CaptionFault fault, size_t at, std::string_view found, bool lost);
    KIVCS2Status tellNotes(uint64_t &faults);
    KIVCS2Status endOfFile();
    KIVCS2Status failed(KIVCS2Status status);
    KIVCS2Status streamFailed(KIVCS2Status status);
    KIVCS2Status moveTo(uint32_t frame);
    KIVCS2Status passBefore(uint32_t frame);
    std::optional<uint32_t> frameOfLine(const LineHead &head);
    [[nodiscard]] uint32_t countedOn(uint32_t frame) const;
    [[nodiscard]] uint32_t ofDay(uint32_t frame) const
    {
        return frame < m_info->m_perDay ? frame : frame % m_info->m_perDay;
    }
    KIVCS2Status lastFrameOf(Line &line, const LineHead &head, uint32_t &last);
    [[nodiscard]] bool isSCC() const
    {
        return m_header.m_kind == KIVCS2CaptionFileKind_SCC;
    }
    [[nodiscard]] bool isOverMidnight(uint32_t from, uint32_t to) const
    {
        return to < from && from - to > m_info->m_perDay / 2;
    }

    KIVCS2CaptionReadOptions m_options;
    LineSource m_source;
    FaultLog m_log;
    KIVCS2CaptionFileHeader m_header{};
    KIVCS2CaptionFileReport m_report{};
    const KIVCS2CaptionCountingInfo *m_info = nullptr;
    Survey m_survey;
    uint32_t m_rateCodes = 0; // bit n: CDPs of rate code n fit the counting
    bool m_headerTaken = false, m_sawBlank = false, m_sawFormat = false, m_sawCaption = false;
    KIVCS2Status m_headerStatus = KIVCS2STATUS_OK;
    KIVCS2Status m_ended = KIVCS2STATUS_OK; // a failure that stays

    uint64_t m_firstOffset = 0; // offset of the first caption line
    uint32_t m_origin = 0;      // the first frame of the file, if m_hasOrigin
    uint32_t m_dropBefore = 0;  // after a seek: packets before this frame are skipped
    bool m_toldEnd = false;
    bool m_hasOrigin = false;
    bool m_runsOver = false; // a line of the next day was found
    bool m_dropping = false;

    Current m_current;
    std::array<char, KIVCS2_CAPTION_FOUND_SIZE> m_opening; // the start of the first line
    size_t m_openingSize = 0;
    // An MCC line without most of its blanks; holds the longest packet's line.
    std::array<char, 1024> m_gathered;

    // The words of an SCC line.
    size_t m_at = 0;           // position in the line's text
    size_t m_gone = 0;         // characters of the line before the text
    uint64_t m_lineFaults = 0; // faults of the line, for its first pair
    uint32_t m_wordFrame = 0;
    bool m_inWords = false;
    bool m_first = true; // no pair of the line was returned yet

    // The line before.
    bool m_hasLast = false;
    bool m_hasSequence = false;
    uint32_t m_lastFrame = 0; // frame of its timecode
    uint32_t m_nextFrame = 0; // frame after its last pair
    uint32_t m_lastSuffix[3] = {};
    uint16_t m_sequence = 0;

    bool m_listed = false;
    LineIndex m_index;
    LineList m_list;
    size_t m_listAt = 0;
};
} // namespace kiv::cc

#endif
