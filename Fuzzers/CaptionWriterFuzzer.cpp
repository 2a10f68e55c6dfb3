// Captions written are read back the same and without a fault: captions of any bytes to MCC and on to SCC, or
// any text as SCC through MCC to SCC. The first byte selects one of them.
#include "Require.h"

#include "KIVCS2CaptionFile.h"
#include "KIVCS2MemoryStream.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace
{
using Placed = std::vector<std::pair<uint32_t, uint16_t>>;

struct Writing
{
    KIVCS2MemoryStream memory;
    KIVCS2CaptionFile file;

    Writing(KIVCS2CaptionFileKind kind, KIVCS2CaptionCounting counting, bool plain)
    {
        KIVCS2CaptionWriteOptions options{};
        options.m_plainHex = plain;
        static const KIVCS2CaptionFileHeader header{0, 0, 0, 0, 0, 0, "", "u", "fuzzer", "d", "t", "", {}};
        require(kivCS2MemoryStream_init(&memory, 4096, 4096) == KIVCS2STATUS_OK);
        require(kivCS2CaptionFile_initWriting(&file, &memory.m_stream, false, kind, counting, &options) ==
                KIVCS2STATUS_OK);
        require(kivCS2CaptionFile_writeHeader(&file, &header) == KIVCS2STATUS_OK);
    }
    std::string text()
    {
        require(kivCS2CaptionFile_finish(&file) == KIVCS2STATUS_OK);
        std::string written{reinterpret_cast<const char *>(memory.m_buffer), memory.m_size};
        require(kivCS2CaptionFile_free(&file) == KIVCS2STATUS_OK);
        require(kivCS2MemoryStream_free(&memory.m_stream) == KIVCS2STATUS_OK);
        // The comment block of MCC is always the same, and reading it would take most of the time.
        if (const size_t from = written.find("\n//"), to = written.rfind("//\n"); to != std::string::npos)
            written.erase(from, to + 2 - from);
        return written;
    }
};

std::vector<KIVCS2CaptionPacket> readAll(std::string text, uint64_t &faults,
                                         const KIVCS2CaptionReadOptions &options = {})
{
    text.reserve(1); // a view needs a block, even of no bytes
    KIVCS2MemoryStream memory;
    KIVCS2CaptionFile file;
    require(kivCS2MemoryStream_initWithBytes(&memory, text.data(), text.size()) == KIVCS2STATUS_OK);
    require(kivCS2CaptionFile_initReading(&file, &memory.m_stream, true, &options) == KIVCS2STATUS_OK);
    std::vector<KIVCS2CaptionPacket> packets;
    KIVCS2CaptionPacket packet;
    while (KIVCS2_SUCCEEDED(kivCS2CaptionFile_readPacket(&file, &packet)))
        packets.push_back(packet);
    KIVCS2CaptionFileReport report;
    require(kivCS2CaptionFile_getReport(&file, &report) == KIVCS2STATUS_OK);
    faults = report.m_faults;
    require(kivCS2CaptionFile_free(&file) == KIVCS2STATUS_OK);
    return packets;
}

constexpr uint32_t kPerDay = 2'589'408; // drop-frame; files of the other counting are shorter than a day

Placed placed(const std::vector<KIVCS2CaptionPacket> &packets)
{
    Placed found;
    for (const KIVCS2CaptionPacket &packet : packets)
    {
        KIVCS2CaptionPairs pairs;
        (void)kivCS2CaptionPacket_getPairs(&packet, &pairs); // empty if there are none
        for (uint8_t pair = 0; pair < pairs.m_count[0]; ++pair)
            if (const uint8_t *bytes = pairs.m_pairs[0][pair]; ((bytes[0] | bytes[1]) & 0x7F) != 0)
                found.emplace_back(packet.m_frame % kPerDay, static_cast<uint16_t>(bytes[0] << 8 | bytes[1]));
    }
    return found;
}
// The pairs in the order of their frames: which of two pairs over half a day apart is the earlier depends on
// the first line, and an SCC line without pairs is lost.
Placed inOrder(const std::vector<KIVCS2CaptionPacket> &packets)
{
    Placed found = placed(packets);
    std::ranges::stable_sort(found, {}, &Placed::value_type::first);
    return found;
}
// Pairs keep their frames from SCC through MCC to SCC, which are read by frame.
void throughMCC(std::string text, KIVCS2CaptionCounting counting)
{
    KIVCS2CaptionReadOptions options{};
    options.m_kind = KIVCS2CaptionFileKind_SCC;
    options.m_counting = counting;
    options.m_order = KIVCS2CaptionOrder_Frame;
    options.m_field = 1;
    uint64_t faults = 0;
    const auto packets = readAll(std::move(text), faults, options);
    Writing mcc{KIVCS2CaptionFileKind_MCC2, counting, false};
    for (const KIVCS2CaptionPacket &packet : packets)
    {
        KIVCS2CaptionPairs pairs;
        (void)kivCS2CaptionPacket_getPairs(&packet, &pairs); // empty if there are none
        require(kivCS2CaptionFile_writeCaptions(&mcc.file, packet.m_frame, &pairs, nullptr) ==
                KIVCS2STATUS_OK);
    }
    options.m_kind = KIVCS2CaptionFileKind_FindOut;
    const auto between = readAll(mcc.text(), faults, options);
    require(between.size() == packets.size() && inOrder(between) == inOrder(packets));
    Writing scc{KIVCS2CaptionFileKind_SCC, counting, false};
    for (const KIVCS2CaptionPacket &packet : between)
        require(kivCS2CaptionFile_writePacket(&scc.file, &packet) == KIVCS2STATUS_OK);
    require(inOrder(readAll(scc.text(), faults, options)) == inOrder(packets));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 5)
        return 0;
    const KIVCS2CaptionCounting counting =
        (data[0] & 1) != 0 ? KIVCS2CaptionCounting_29_97DF : KIVCS2CaptionCounting_29_97NDF;
    if ((data[0] & 4) != 0)
    {
        throughMCC({reinterpret_cast<const char *>(data) + 1, size - 1}, counting);
        return 0;
    }
    const bool plain = (data[0] & 2) != 0;
    uint32_t frame = data[1] * 100u;
    Writing mcc{KIVCS2CaptionFileKind_MCC1, counting, plain};
    Placed wanted;
    for (size_t at = 2; at + 3 <= size; at += 3)
    {
        frame += 1 + data[at];
        KIVCS2CaptionPairs pairs{};
        pairs.m_count[0] = 1;
        std::memcpy(pairs.m_pairs[0][0], data + at + 1, 2);
        KIVCS2CaptionDTVCC dtvcc{};
        dtvcc.m_count = 2u * (data[at] % 18);
        dtvcc.m_starts = data[at + 1] & ((1u << dtvcc.m_count / 2) - 1);
        std::memset(dtvcc.m_bytes, data[at + 2], dtvcc.m_count);
        require(kivCS2CaptionFile_writeCaptions(&mcc.file, frame, &pairs, &dtvcc) == KIVCS2STATUS_OK);
        if (((data[at + 1] | data[at + 2]) & 0x7F) != 0)
            wanted.emplace_back(frame, static_cast<uint16_t>(data[at + 1] << 8 | data[at + 2]));
    }
    uint64_t faults = 0;
    const auto packets = readAll(mcc.text(), faults);
    uint64_t parity = 0;
    for (const KIVCS2CaptionPacket &packet : packets)
        parity += packet.m_faults >> KIVCS2CaptionFault_Parity & 1;
    require(faults == parity && placed(packets) == wanted);

    Writing scc{KIVCS2CaptionFileKind_SCC, counting, plain};
    for (const KIVCS2CaptionPacket &packet : packets)
        require(kivCS2CaptionFile_writePacket(&scc.file, &packet) == KIVCS2STATUS_OK);
    const auto back = placed(readAll(scc.text(), faults));
    // A file of only codes of field 2 is read as a file of that field.
    require(back == wanted || back.empty());
    return 0;
}
