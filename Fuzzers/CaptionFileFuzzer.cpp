// Any bytes as a caption file: read tolerantly or strictly, in both orders, decoded, and searched. Input: the
// options; then the file.
#include "Require.h"

#include "KIVCS2CaptionFile.h"
#include "KIVCS2MemoryStream.h"

#include <vector>

namespace
{
KIVCS2Status onText(const KIVCS2CaptionText *text, void *)
{
    require(text->m_textSize > 0 && text->m_cellCount > 0 && text->m_text[text->m_textSize] == '\0');
    return KIVCS2STATUS_OK;
}

struct Counts
{
    uint64_t faults = 0, lost = 0;
};

KIVCS2Status onFault(const KIVCS2CaptionFileFault *fault, void *context)
{
    auto &counts = *static_cast<Counts *>(context);
    ++counts.faults;
    counts.lost += fault->m_lost ? 1 : 0;
    require(fault->m_expected != nullptr && fault->m_foundSize < KIVCS2_CAPTION_FOUND_SIZE);
    return KIVCS2STATUS_OK;
}

void readAll(KIVCS2CaptionFile &file, bool strict, Counts &counts)
{
    KIVCS2CaptionDecoder decoder;
    require(kivCS2CaptionDecoder_init(&decoder, nullptr, nullptr, onText, nullptr) == KIVCS2STATUS_OK);
    KIVCS2CaptionPacket packet;
    KIVCS2Status status = KIVCS2STATUS_OK;
    uint64_t packets = 0;
    while (KIVCS2_SUCCEEDED(status = kivCS2CaptionFile_readPacket(&file, &packet)))
    {
        ++packets;
        require(packet.m_tripletCount <= KIVCS2_CAPTION_TRIPLETS_MAX && packet.m_line > 0);
        require(!strict || packet.m_faults == 0);
        require(packet.m_size < 4 || packet.m_size == packet.m_anc[2] + 4 || packet.m_faults != 0);
        require(kivCS2CaptionDecoder_feed(&decoder, &packet) == KIVCS2STATUS_OK);
    }
    require(kivCS2CaptionDecoder_finish(&decoder, packet.m_frame + 1) == KIVCS2STATUS_OK);
    require(kivCS2CaptionDecoder_free(&decoder) == KIVCS2STATUS_OK);
    require(packets > 0 || status != KIVCS2STATUS_EOF_ERR);
    KIVCS2CaptionFileReport report;
    require(kivCS2CaptionFile_getReport(&file, &report) == KIVCS2STATUS_OK);
    require(report.m_packets == packets && report.m_faults == counts.faults);
    require(report.m_lostLines + report.m_lostPairs <= counts.lost);
    require(!strict || counts.faults <= 1);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    Counts counts;
    KIVCS2CaptionReadOptions options{};
    options.m_strict = (data[0] & 1) != 0;
    options.m_order = data[0] >> 1 & 1;
    options.m_bothTracks = (data[0] & 4) != 0;
    options.m_counting = (data[0] & 8) != 0 ? data[0] >> 4 & 7 : 0;
    options.m_onFault = onFault;
    options.m_context = &counts;
    std::vector<uint8_t> bytes{data + 1, data + size};
    bytes.reserve(1); // a view needs a block, even of no bytes
    KIVCS2MemoryStream memory;
    require(kivCS2MemoryStream_initWithBytes(&memory, bytes.data(), bytes.size()) == KIVCS2STATUS_OK);
    KIVCS2CaptionFile file;
    require(kivCS2CaptionFile_initReading(&file, &memory.m_stream, true, &options) == KIVCS2STATUS_OK);
    readAll(file, options.m_strict, counts);
    KIVCS2CaptionPacket packet;
    for (const uint32_t frame : {uint32_t{0}, uint32_t{data[0]} * 20, UINT32_MAX})
        if (KIVCS2_SUCCEEDED(kivCS2CaptionFile_seek(&file, frame)) &&
            KIVCS2_SUCCEEDED(kivCS2CaptionFile_readPacket(&file, &packet)))
            require(packet.m_frame >= frame);
    require(kivCS2CaptionFile_free(&file) == KIVCS2STATUS_OK && memory.m_buffer == nullptr);
    return 0;
}
