// CRC-32, compared with libdeflate, ISA-L and zlib; every result is checked to be equal before timing.
#include <KIVCoreServices2/KIVCS2Base.h>

#include <benchmark/benchmark.h>

#if KIV_PEER_DEFLATE
#include <libdeflate.h>
#endif
#if KIV_PEER_ISAL
#include <isa-l/crc.h>
#endif
#if KIV_PEER_ZLIB
#include <zlib.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace
{
using Crc = uint32_t (*)(const uint8_t *data, uint32_t length);

uint32_t ours(const uint8_t *data, uint32_t length)
{
    uint32_t crc = 0;
    (void)kivCS2Utils_calcCRC32(data, length, &crc);
    return crc;
}

// A host's own record with the standard table, which every call checks.
uint32_t oursByRecord(const uint8_t *data, uint32_t length)
{
    static KIVCS2CRC32Param param{};
    return ~kivCSUtils_updateCRC32(&param, 0xFFFFFFFFu, data, length);
}

#if KIV_PEER_DEFLATE
uint32_t libdeflate(const uint8_t *data, uint32_t length)
{
    return libdeflate_crc32(0, data, length);
}
#endif
#if KIV_PEER_ISAL
uint32_t isal(const uint8_t *data, uint32_t length)
{
    return crc32_gzip_refl(0, data, length);
}
#endif
#if KIV_PEER_ZLIB
uint32_t zlib(const uint8_t *data, uint32_t length)
{
    return static_cast<uint32_t>(crc32(0, data, length));
}
#endif

const std::vector<uint8_t> &sample()
{
    static const std::vector<uint8_t> bytes = []
    {
        std::mt19937 random{1};
        std::vector<uint8_t> made(size_t{64} << 20);
        for (uint8_t &byte : made)
            byte = static_cast<uint8_t>(random());
        return made;
    }();
    return bytes;
}

void run(benchmark::State &state, Crc crc)
{
    const auto length = static_cast<uint32_t>(state.range(0));
    const uint8_t *data = sample().data();
    if (crc(data, length) != ours(data, length))
    {
        std::fprintf(stderr, "CRC-32 of %u bytes differs\n", length);
        std::exit(1);
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(crc(data, length));
    state.SetBytesProcessed(state.iterations() * int64_t{length});
}

void add(const char *name, Crc crc)
{
    for (const int64_t length : {82, 1500, 4096, 65536, 1 << 20, 64 << 20})
        benchmark::RegisterBenchmark(name, run, crc)->Arg(length);
}
} // namespace

int main(int argc, char **argv)
{
    (void)kivCS2_initWithTaskServer(false);
    add("CRC32/ours", ours);
    add("CRC32_record/ours", oursByRecord);
#if KIV_PEER_DEFLATE
    add("CRC32/libdeflate", libdeflate);
#endif
#if KIV_PEER_ISAL
    add("CRC32/isal", isal);
#endif
#if KIV_PEER_ZLIB
    add("CRC32/zlib", zlib);
#endif
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
