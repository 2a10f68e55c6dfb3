// Retiming captions to another rate, compared with reading their MCC file. The packets are in memory, so that
// retiming is timed without reading.
#include "Support/CaptionFiles.h"

#include <KIVCoreServices2/KIVCS2CaptionFile.h>
#include <KIVCoreServices2/KIVCS2CaptionRetime.h>

#include <vector>

namespace
{
using namespace kiv::bench;

constexpr size_t kPackets = 50'000; // 33 minutes at 25 frames a second

// Reads the first packets of the file, and keeps them if the caller wants them.
void read(std::vector<KIVCS2CaptionPacket> *kept)
{
    KIVCS2FileStream stream;
    KIVCS2CaptionFile file;
    KIVCS2CaptionReadOptions options{};
    options.m_counting = KIVCS2CaptionCounting_25;
    require(KIVCS2_SUCCEEDED(kivCS2FileStream_init(&stream, files().mcc.c_str(), "rb")) &&
                KIVCS2_SUCCEEDED(kivCS2CaptionFile_initReading(&file, &stream.m_stream, true, &options)),
            "no reader");
    KIVCS2CaptionPacket packet;
    for (size_t count = 0; count < kPackets; ++count)
    {
        require(KIVCS2_SUCCEEDED(kivCS2CaptionFile_readPacket(&file, &packet)), "the file is short");
        benchmark::DoNotOptimize(packet);
        if (kept != nullptr)
            kept->push_back(packet);
    }
    (void)kivCS2CaptionFile_free(&file);
}

const std::vector<KIVCS2CaptionPacket> &source()
{
    static const std::vector<KIVCS2CaptionPacket> packets = []
    {
        std::vector<KIVCS2CaptionPacket> made;
        read(&made);
        return made;
    }();
    return packets;
}

KIVCS2Status onPacket(const KIVCS2CaptionPacket *packet, void *)
{
    benchmark::DoNotOptimize(packet->m_anc[0]);
    return KIVCS2STATUS_OK;
}

void retime(KIVCS2CaptionCounting to)
{
    const KIVCS2CaptionRetimeOptions options{KIVCS2CaptionCounting_25, to, 0, 0, 0, 0, {}};
    KIVCS2CaptionRetime record;
    KIVCS2CaptionRetimeReport report{};
    require(KIVCS2_SUCCEEDED(kivCS2CaptionRetime_init(&record, &options, onPacket, nullptr)), "no retimer");
    for (const KIVCS2CaptionPacket &packet : source())
        (void)kivCS2CaptionRetime_feed(&record, &packet); // a refused packet is missing below
    require(KIVCS2_SUCCEEDED(kivCS2CaptionRetime_finish(&record, &report)) &&
                report.m_pairsIn[0] == kPackets && report.m_pairsOut[0] == kPackets &&
                report.m_bytesIn == kPackets * 6 && report.m_bytesOut == kPackets * 6,
            "captions are lost");
    (void)kivCS2CaptionRetime_free(&record);
}

// Items are packets of the source.
template <class Run>
void row(const std::string &name, Run run)
{
    benchmark::RegisterBenchmark(name.c_str(),
                                 [run](benchmark::State &state)
                                 {
                                     (void)source();
                                     for (auto _ : state)
                                         run();
                                     state.SetItemsProcessed(state.iterations() *
                                                             static_cast<int64_t>(kPackets));
                                 })
        ->Unit(benchmark::kMillisecond);
}
} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    for (const KIVCS2CaptionCounting to :
         {uint32_t{KIVCS2CaptionCounting_23_98}, uint32_t{KIVCS2CaptionCounting_29_97DF},
          uint32_t{KIVCS2CaptionCounting_59_94DF}})
    {
        const std::string rate = kivCS2CaptionCounting_name(to);
        row("CaptionRetime/ours/" + rate, [to] { retime(to); });
        row("CaptionRetime/reading/" + rate, [] { read(nullptr); });
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
