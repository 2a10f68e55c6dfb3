// Caption packets, compared with plain code that reads and builds byte by byte; caption lines, compared with
// the line readers of the standard libraries. Results are checked to be equal before timing.
#include "../Tests/Support/PlainCDP.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>
#include <KIVCoreServices2/KIVCS2FileStream.h>
#include <KIVCoreServices2/KIVCS2MemoryStream.h>

#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace
{
void require(bool holds, const char *what)
{
    if (holds)
        return;
    fprintf(stderr, "ClosedCaptionsBench: %s\n", what);
    exit(1);
}

constexpr size_t kPackets = 64; // different ones, so that the processor cannot learn the branches
constexpr uint8_t kPairs[] = {0x94, 0x20, 0x15, 0x2C};

using Packet = std::array<uint8_t, KIVCS2_CDP_SIZE>;

std::vector<Packet> makePackets()
{
    std::vector<Packet> packets(kPackets);
    for (size_t index = 0; index < kPackets; ++index)
    {
        const uint8_t pairs[] = {0x94, static_cast<uint8_t>(index), 0x15, 0x2C};
        kiv::test::buildPlainly(pairs, static_cast<uint16_t>(index * 1021), packets[index].data());
    }
    return packets;
}

void parseOurs(benchmark::State &state)
{
    const std::vector<Packet> packets = makePackets();
    uint16_t pairs[2];
    const uint32_t room = sizeof pairs;
    for (const Packet &packet : packets)
    {
        const kiv::test::PlainPairs plain = kiv::test::readPlainly(packet.data(), packet.size());
        require(kivCS2ClosedCaptions_extract608CaptionsFromSMPTE334CDP708Packet(
                    packet.data(), KIVCS2_CDP_SIZE, false, pairs, &room) == plain.status &&
                    memcmp(pairs, plain.fields, sizeof pairs) == 0,
                "other pairs than the plain reading");
    }
    size_t index = 0;
    for (auto _ : state)
    {
        const Packet &packet = packets[index++ % kPackets];
        benchmark::DoNotOptimize(kivCS2ClosedCaptions_extract608CaptionsFromSMPTE334CDP708Packet(
            packet.data(), KIVCS2_CDP_SIZE, false, pairs, &room));
        benchmark::DoNotOptimize(pairs);
    }
    state.SetItemsProcessed(state.iterations());
}

void parsePlain(benchmark::State &state)
{
    const std::vector<Packet> packets = makePackets();
    size_t index = 0;
    for (auto _ : state)
    {
        const Packet &packet = packets[index++ % kPackets];
        kiv::test::PlainPairs plain = kiv::test::readPlainly(packet.data(), packet.size());
        benchmark::DoNotOptimize(plain);
    }
    state.SetItemsProcessed(state.iterations());
}

void buildOurs(benchmark::State &state)
{
    uint16_t pairs[2];
    memcpy(pairs, kPairs, sizeof pairs);
    Packet packet;
    Packet plain;
    uint32_t size = KIVCS2_CDP_SIZE;
    kiv::test::buildPlainly(kPairs, 4711, plain.data());
    (void)kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708Packet(pairs, 4, packet.data(), &size, 4711);
    require(packet == plain, "another packet than the plain building");
    uint16_t sequenceNumber = 0;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708Packet(
            pairs, 4, packet.data(), &size, sequenceNumber++));
        benchmark::DoNotOptimize(packet);
    }
    state.SetItemsProcessed(state.iterations());
}

void buildPlain(benchmark::State &state)
{
    Packet packet;
    uint16_t sequenceNumber = 0;
    for (auto _ : state)
    {
        kiv::test::buildPlainly(kPairs, sequenceNumber++, packet.data());
        benchmark::DoNotOptimize(packet);
    }
    state.SetItemsProcessed(state.iterations());
}

// A 10-bit ancillary packet of a whole CDP; with `host` the stream has a read operation of the host.
void extractAnc(benchmark::State &state, bool host)
{
    const Packet cdp = makePackets()[1];
    std::vector<uint8_t> bytes;
    uint32_t sum = 0;
    const auto put = [&](uint8_t value)
    {
        const unsigned even = static_cast<unsigned>(__builtin_parity(value));
        const unsigned word = value | even << 8 | (even ^ 1) << 9;
        sum += word;
        bytes.push_back(static_cast<uint8_t>(word >> 8));
        bytes.push_back(static_cast<uint8_t>(word));
    };
    put(0x61);
    put(0x01);
    put(static_cast<uint8_t>(cdp.size()));
    for (const uint8_t byte : cdp)
        put(byte);
    bytes.push_back(static_cast<uint8_t>((sum >> 8 & 1) | ((~sum >> 8 & 1) << 1)));
    bytes.push_back(static_cast<uint8_t>(sum));

    KIVCS2MemoryStream memory;
    kivCS2MemoryStream_initWithBytes(&memory, bytes.data(), bytes.size());
    if (host)
        memory.m_stream.m_readBytes = [](KIVCS2Stream *stream, void *buffer, uint64_t size, uint64_t *read)
        { return kivCS2MemoryStream_readBytes(stream, buffer, size, read); };
    Packet got{};
    KIVCS2Status status = 0;
    for (auto _ : state)
    {
        uint32_t size = static_cast<uint32_t>(got.size());
        kivCS2Stream_setPosition(&memory.m_stream, 0, KIVCS2StreamPosition_Start, nullptr);
        status = kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE291MStream(
            &memory.m_stream, KIVCS2CaptionANCFormat_10Bit, false, got.data(), &size);
        benchmark::DoNotOptimize(got);
    }
    require(status == KIVCS2STATUS_OK && got == cdp, "another CDP than was packed");
    state.SetItemsProcessed(state.iterations());
}

// 50 MB of caption lines: a timecode and a packet in hexadecimal, of 40 to 120 characters.
const std::string &captionText()
{
    static const std::string text = []
    {
        constexpr size_t kSize = 50'000'000;
        std::string all;
        all.reserve(kSize + 128);
        for (unsigned line = 0; all.size() < kSize; ++line)
        {
            char timecode[16];
            snprintf(timecode, sizeof timecode, "%02u:%02u:%02u:%02u\t", line / 108000 % 24, line / 1800 % 60,
                     line / 30 % 60, line % 30);
            all += timecode;
            all.append(28 + line * 37 % 81, "T52S524F67"[line % 10]);
            all += '\n';
        }
        return all;
    }();
    return text;
}

struct TextFile
{
    std::string path = "/tmp/ClosedCaptionsBench.XXXXXX";

    TextFile()
    {
        const int descriptor = mkstemp(path.data());
        require(descriptor >= 0, "no temporary file");
        FILE *file = fdopen(descriptor, "w");
        fwrite(captionText().data(), 1, captionText().size(), file);
        fclose(file);
    }
    ~TextFile()
    {
        remove(path.c_str());
    }
};

const std::string &captionFile()
{
    static const TextFile file;
    return file.path;
}

size_t countLines(KIVCS2Stream *stream)
{
    char line[1024];
    size_t bytes = 0;
    for (uint32_t size = sizeof line; KIVCS2_SUCCEEDED(kivCS2ClosedCaptions_readLine(stream, line, &size));
         size = sizeof line)
        bytes += size + 1;
    return bytes;
}

void finish(benchmark::State &state, size_t bytes)
{
    require(bytes == captionText().size(), "lines are missing");
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
}

void linesOfMemory(benchmark::State &state)
{
    const std::string &text = captionText();
    size_t bytes = 0;
    for (auto _ : state)
    {
        KIVCS2MemoryStream memory;
        kivCS2MemoryStream_initWithBytes(&memory, const_cast<char *>(text.data()), text.size());
        bytes = countLines(&memory.m_stream);
        kivCS2MemoryStream_free(&memory.m_stream);
    }
    finish(state, bytes);
}

void linesOfFile(benchmark::State &state)
{
    const std::string &path = captionFile();
    size_t bytes = 0;
    for (auto _ : state)
    {
        KIVCS2FileStream file;
        kivCS2FileStream_init(&file, path.c_str(), "r");
        bytes = countLines(&file.m_stream);
        kivCS2FileStream_free(&file.m_stream);
    }
    finish(state, bytes);
}

void linesOfHostStream(benchmark::State &state)
{
    const std::string &text = captionText();
    size_t bytes = 0;
    for (auto _ : state)
    {
        KIVCS2MemoryStream memory;
        kivCS2MemoryStream_initWithBytes(&memory, const_cast<char *>(text.data()), text.size());
        memory.m_stream.m_readBytes = [](KIVCS2Stream *stream, void *buffer, uint64_t size, uint64_t *read)
        { return kivCS2MemoryStream_readBytes(stream, buffer, size, read); };
        bytes = countLines(&memory.m_stream);
        kivCS2MemoryStream_free(&memory.m_stream);
    }
    finish(state, bytes);
}

void linesByGetline(benchmark::State &state, bool fromFile)
{
    const std::string &path = captionFile();
    size_t bytes = 0;
    for (auto _ : state)
    {
        std::string line;
        bytes = 0;
        const auto count = [&](std::istream &&stream)
        {
            while (std::getline(stream, line))
                bytes += line.size() + 1;
        };
        if (fromFile)
            count(std::ifstream{path});
        else
        {
            state.PauseTiming(); // do not time the copy into the stream
            std::istringstream text{captionText()};
            state.ResumeTiming();
            count(std::move(text));
        }
    }
    finish(state, bytes);
}

void linesByFgets(benchmark::State &state)
{
    const std::string &path = captionFile();
    size_t bytes = 0;
    for (auto _ : state)
    {
        FILE *file = fopen(path.c_str(), "r");
        bytes = 0;
        for (char line[1024]; fgets(line, sizeof line, file) != nullptr;)
            bytes += strlen(line);
        fclose(file);
    }
    finish(state, bytes);
}

BENCHMARK(parseOurs)->Name("CDP_parse/ours");
BENCHMARK(parsePlain)->Name("CDP_parse/plain");
BENCHMARK(buildOurs)->Name("CDP_build/ours");
BENCHMARK(buildPlain)->Name("CDP_build/plain");
BENCHMARK_CAPTURE(extractAnc, ours, false)->Name("ANC_extract10Bit/ours");
BENCHMARK_CAPTURE(extractAnc, host, true)->Name("ANC_extract10Bit/host-stream");
BENCHMARK(linesOfMemory)->Name("CaptionLines_memory/ours")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(linesByGetline, memory, false)
    ->Name("CaptionLines_memory/getline")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(linesOfHostStream)->Name("CaptionLines_memory/host-stream")->Unit(benchmark::kMillisecond);
BENCHMARK(linesOfFile)->Name("CaptionLines_file/ours")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(linesByGetline, file, true)
    ->Name("CaptionLines_file/getline")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(linesByFgets)->Name("CaptionLines_file/fgets")->Unit(benchmark::kMillisecond);
} // namespace

BENCHMARK_MAIN();
