// The faults of caption files: name, status and the text expected.
#include "Private/Captions/Faults.h"

#include <array>

namespace kiv::cc
{
namespace
{
// clang-format off
constexpr std::array<FaultRow, KIVCS2CaptionFault_MAX> kFaults = {{
    {},
    {"byte-order mark",         KIVCS2STATUS_HEADER_ERR,           false, "text without a byte-order mark"},
    {"other encoding",          KIVCS2STATUS_HEADER_ERR,           true,  "ASCII or UTF-8 text"},
    {"header case",             KIVCS2STATUS_HEADER_ERR,           false, "the header as the format spells it"},
    {"blanks before header",    KIVCS2STATUS_HEADER_ERR,           false, "the header at the start of the file"},
    {"unknown header line",     KIVCS2STATUS_HEADER_ERR,           false, "a header line of the format"},
    {"long header line",        KIVCS2STATUS_HEADER_ERR,           false, "a header text of up to 255 bytes"},
    {"header missing",          KIVCS2STATUS_HEADER_ERR,           false, "the line that names the format"},
    {"not a caption file",      KIVCS2STATUS_HEADER_ERR,           true,  "an SCC or MCC file"},
    {"rate missing",            KIVCS2STATUS_FRAME_RATE_ERR,       false, "Time Code Rate= before the first caption"},
    {"unknown rate",            KIVCS2STATUS_FRAME_RATE_ERR,       false, "24, 25, 30, 30DF, 50, 60 or 60DF"},
    {"rate too late",           KIVCS2STATUS_FRAME_RATE_ERR,       false, "Time Code Rate= before the first caption"},
    {"rate disagrees",          KIVCS2STATUS_FRAME_RATE_ERR,       false, "packets and frame numbers of the file's rate"},
    {"blanks before data",      KIVCS2STATUS_NOT_FOUND_ERR,        false, "one tab between timecode and data"},
    {"blanks before timecode",  KIVCS2STATUS_NOT_FOUND_ERR,        false, "the timecode in column 1"},
    {"blanks after data",       KIVCS2STATUS_CAPTION_ERR,          false, "the end of the line"},
    {"frame separator",         KIVCS2STATUS_NOT_FOUND_ERR,        false, "\":\" or \";\" before the frames"},
    {"other counting",          KIVCS2STATUS_INVALID_TIMECODE_ERR, false, "the separator of the file's counting"},
    {"dropped number",          KIVCS2STATUS_INVALID_TIMECODE_ERR, false, "a number that drop-frame counts"},
    {"no such time",            KIVCS2STATUS_INVALID_TIMECODE_ERR, true,  "a timecode of the file's counting"},
    {"not a caption",           KIVCS2STATUS_NOT_FOUND_ERR,        true,  "HH:MM:SS:FF, a tab and data"},
    {"null byte",               KIVCS2STATUS_CAPTION_ERR,          true,  "text"},
    {"unknown character",       KIVCS2STATUS_CAPTION_ERR,          true,  "hexadecimal digits or letters of the format"},
    {"lower case",              KIVCS2STATUS_CAPTION_ERR,          false, "upper case"},
    {"four-byte U",             KIVCS2STATUS_FORMAT_ERR,           false, "U as E1 00 00"},
    {"word of two tracks",      KIVCS2STATUS_CAPTION_ERR,          false, "words of four digits"},
    {"word length",             KIVCS2STATUS_CAPTION_ERR,          true,  "words of four digits"},
    {"half byte",               KIVCS2STATUS_CAPTION_ERR,          true,  "two digits a byte"},
    {"suffix",                  KIVCS2STATUS_NOT_FOUND_ERR,        false, "a suffix \".field\" or \".field,number\" of MCC 2"},
    {"packet too long",         KIVCS2STATUS_OVERFLOW_ERR,         true,  "up to 259 bytes a packet"},
    {"data count",              KIVCS2STATUS_FORMAT_ERR,           true,  "as many bytes as the data count says"},
    {"not a CDP",               KIVCS2STATUS_FORMAT_ERR,           true,  "a caption distribution packet (96 69)"},
    {"CDP length",              KIVCS2STATUS_FORMAT_ERR,           false, "a CDP as long as it says"},
    {"section cut",             KIVCS2STATUS_FORMAT_ERR,           true,  "whole sections and a footer"},
    {"unknown section",         KIVCS2STATUS_FORMAT_ERR,           true,  "sections 71 to 74"},
    {"packet checksum",         KIVCS2STATUS_DATA_ERR,             false, "the sum of the packet's bytes"},
    {"packet checksum missing", KIVCS2STATUS_DATA_ERR,             false, "a checksum after the user data"},
    {"CDP checksum",            KIVCS2STATUS_DATA_ERR,             false, "bytes of a CDP that sum up to 0"},
    {"CDP checksum missing",    KIVCS2STATUS_DATA_ERR,             false, "a checksum after the CDP's footer"},
    {"counters",                KIVCS2STATUS_DATA_ERR,             false, "one sequence number in header and footer"},
    {"parity",                  KIVCS2STATUS_DATA_ERR,             false, "odd parity"},
    {"sequence",                KIVCS2STATUS_DATA_ERR,             false, "the sequence number that follows"},
    {"gap",                     KIVCS2STATUS_DATA_ERR,             false, "a packet for every frame that is counted"},
    {"back in time",            KIVCS2STATUS_DATA_ERR,             false, "rising timecodes"},
    {"same frame",              KIVCS2STATUS_DATA_ERR,             false, "one packet a frame"},
    {"overlap",                 KIVCS2STATUS_DATA_ERR,             false, "a line after the end of the one before"},
    {"waits too long",          KIVCS2STATUS_OVERFLOW_ERR,         true,  "pairs that find a frame within an hour"},
    {"stream failed",           KIVCS2STATUS_READ_ERR,             true,  "further bytes"},
    {"no captions",             KIVCS2STATUS_NO_DATA_ERR,          false, "caption lines"},
    {"word parity",             KIVCS2STATUS_DATA_ERR,             false, "10-bit words with their parity bits"},
    {"carrier counts",          KIVCS2STATUS_FORMAT_ERR,           false, "counts and lengths of what a carrier holds"},
    {"carrier field",           KIVCS2STATUS_DATA_ERR,             false, "a field code of 00, 10 or 11"},
}};
// clang-format on
static_assert(kFaults.back().name != nullptr);
} // namespace

const FaultRow *faultRow(KIVCS2CaptionFault fault)
{
    return fault > KIVCS2CaptionFault_None && fault < kFaults.size() ? &kFaults[fault] : nullptr;
}
} // namespace kiv::cc
