// Pictures of 1920x1080 and 3840x2160, compared with libyuv, libswscale, libavcodec and plain copies. Every
// kernel of the table writes to an existing buffer, as the peers do; whole operations also make their buffer.
#include <KIVCoreServices2/KIVCS2PixelBuffer.h>

#include "Private/Pixels/Colour.h"
#include "Private/Pixels/Levels.h"

#include <benchmark/benchmark.h>

#ifdef KIV_PEER_LIBYUV
#include <libyuv.h>
#endif
#ifdef KIV_PEER_SWSCALE
extern "C"
{
#include <libswscale/swscale.h>
}
#endif
#ifdef KIV_PEER_AVCODEC
extern "C"
{
#include <libavcodec/avcodec.h>
}
#endif

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace
{
struct Size
{
    size_t width;
    size_t height;
};

constexpr Size kSizes[] = {{1920, 1080}, {3840, 2160}};

// Rows at multiples of 64 bytes, as in a pixel buffer.
struct Plane
{
    Plane(size_t rowBytes, size_t rows) : stride{(rowBytes + 63) / 64 * 64}, height{rows}
    {
        memory.reset(static_cast<uint8_t *>(std::aligned_alloc(64, stride * height)));
        std::memset(memory.get(), 1, stride * height);
    }
    [[nodiscard]] uint8_t *row(size_t index) const
    {
        return memory.get() + index * stride;
    }
    [[nodiscard]] size_t size() const
    {
        return stride * height;
    }

    struct Free
    {
        void operator()(uint8_t *block) const
        {
            std::free(block);
        }
    };
    size_t stride;
    size_t height;
    std::unique_ptr<uint8_t, Free> memory;
};

void require(bool condition, const char *what)
{
    if (condition)
        return;
    std::fprintf(stderr, "%s\n", what);
    std::exit(1);
}

void fillRandom(const Plane &plane)
{
    std::mt19937_64 random{plane.size()};
    for (size_t at = 0; at + 8 <= plane.size(); at += 8)
    {
        const uint64_t bits = random();
        std::memcpy(plane.memory.get() + at, &bits, 8);
    }
}

using Run = std::function<void()>;

// The pixels per second are those of the picture that is read. Large pictures run for longer, because
// neighbours of a virtual machine disturb single runs.
void add(const std::string &name, Size size, Run run)
{
    const auto time = [=](benchmark::State &state)
    {
        for (auto _ : state)
        {
            run();
            benchmark::ClobberMemory();
        }
        state.counters["Mpx/s"] = benchmark::Counter(static_cast<double>(size.width * size.height) / 1e6,
                                                     benchmark::Counter::kIsIterationInvariantRate);
    };
    auto *const made = benchmark::RegisterBenchmark((name + "/" + std::to_string(size.width)).c_str(), time);
    if (size.width > 1920)
        made->MinTime(0.1);
}

// Adds our kernel at every level of this machine, each as an operation of its own.
void addLevels(const std::string &name, Size size, const std::function<Run(const kiv::PixelRows &)> &ours)
{
    struct Level
    {
        kiv::CpuLevel level;
        const char *suffix;
    };
    add(name + "/ours", size, ours(kiv::pixelRows()));
    for (const auto &[level, suffix] :
         {Level{kiv::CpuLevel::portable, "_portable"}, Level{kiv::CpuLevel::sse42, "_SSE42"},
          Level{kiv::CpuLevel::avx2, "_AVX2"}})
        if (level < kiv::cpuLevel())
            add(name + suffix + "/ours", size, ours(kiv::pixelRows(level)));
}

#ifdef KIV_PEER_SWSCALE
Run swscale(Size size, AVPixelFormat format, const std::shared_ptr<Plane> &from, Size target,
            const std::shared_ptr<Plane> &to)
{
    SwsContext *context = sws_getContext(static_cast<int>(size.width), static_cast<int>(size.height), format,
                                         static_cast<int>(target.width), static_cast<int>(target.height),
                                         AV_PIX_FMT_RGBA, SWS_POINT, nullptr, nullptr, nullptr);
    require(context != nullptr, "libswscale does not convert that");
    return [=]
    {
        const uint8_t *source[] = {from->row(0)};
        uint8_t *made[] = {to->row(0)};
        const int sourceStride[] = {static_cast<int>(from->stride)};
        const int madeStride[] = {static_cast<int>(to->stride)};
        sws_scale(context, source, sourceStride, 0, static_cast<int>(size.height), made, madeStride);
    };
}
#endif

// ---- 2vuy to RGBA ----

void convertRows(kiv::ConvertRow row, const Plane &from, const Plane &to, size_t width)
{
    for (size_t line = 0; line < from.height; ++line)
        row(from.row(line), to.row(line), width);
}

#ifdef KIV_PEER_LIBYUV
int strideOf(const Plane &plane)
{
    return static_cast<int>(plane.stride);
}

// The peer approximates the matrix differently and does not interpolate chroma, so compare constant chroma.
void requireSameColours(Size size)
{
    const Plane flat{size.width * 2, 1};
    const Plane theirs{size.width * 4, 1};
    const Plane own{size.width * 4, 1};
    for (size_t at = 0; at < size.width * 2; ++at)
        flat.row(0)[at] = static_cast<uint8_t>(at % 4 == 0 ? 90 : at % 4 == 2 ? 170 : 16 + at % 220);
    libyuv::UYVYToARGB(flat.row(0), strideOf(flat), theirs.row(0), strideOf(theirs),
                       static_cast<int>(size.width), 1);
    kiv::pixelRows().toBGRA601(flat.row(0), own.row(0), size.width);
    for (size_t at = 0; at + 4 < size.width * 4; ++at)
        require(std::abs(theirs.row(0)[at] - own.row(0)[at]) <= 2, "libyuv has other colours");
}

// libyuv's ARGB is B, G, R, A in memory; it converts UYVY directly only to this order.
Run libyuvToBGRA(Size size, const std::shared_ptr<Plane> &from, const std::shared_ptr<Plane> &to)
{
    return [=]
    {
        libyuv::UYVYToARGB(from->row(0), strideOf(*from), to->row(0), strideOf(*to),
                           static_cast<int>(size.width), static_cast<int>(size.height));
    };
}
#endif

// The whole operation, which makes a buffer, compared with a peer that makes one too.
void addConvertToRGBA(Size size, const std::shared_ptr<Plane> &from)
{
    CVPixelBufferRef picture = nullptr;
    require(CVPixelBufferCreateWithBytes(nullptr, size.width, size.height, kCVPixelFormatType_422YpCbCr8,
                                         from->row(0), from->stride, nullptr, nullptr, nullptr,
                                         &picture) == kCVReturnSuccess,
            "no buffer");
    add("PixelBuffer_convertToRGBA/ours", size,
        [=]
        {
            CVPixelBufferRef converted = nullptr;
            require(kivCS2PixelBuffer_convert(picture, &converted, KIVCS2PixelBuffer_Convert2vuyToRGBA) ==
                        KIVCS2STATUS_OK,
                    "no conversion");
            benchmark::DoNotOptimize(converted);
            CVPixelBufferRelease(converted);
        });
#ifdef KIV_PEER_LIBYUV
    const size_t stride = size.width * 4;
    add("PixelBuffer_convertToRGBA/libyuv", size,
        [=]
        {
            auto *converted = static_cast<uint8_t *>(std::malloc(stride * size.height));
            libyuv::UYVYToARGB(from->row(0), strideOf(*from), converted, static_cast<int>(stride),
                               static_cast<int>(size.width), static_cast<int>(size.height));
            benchmark::DoNotOptimize(converted);
            std::free(converted);
        });
#endif
}

void addToRGBA(Size size)
{
    const auto from = std::make_shared<Plane>(size.width * 2, size.height);
    const auto to = std::make_shared<Plane>(size.width * 4, size.height);
    fillRandom(*from);
    addLevels("Pixels_2vuyToRGBA", size,
              [=](const kiv::PixelRows &rows) -> Run
              { return [=, row = rows.toRGBA601] { convertRows(row, *from, *to, size.width); }; });
#ifdef KIV_PEER_LIBYUV
    requireSameColours(size);
    const Run libyuv = libyuvToBGRA(size, from, to);
    add("Pixels_2vuyToRGBA/libyuv", size, libyuv);
    add("Pixels_2vuyToRGBA_AVX2/libyuv", size, libyuv);
    add("Pixels_2vuyToRGBA/libyuv_RGBA", size, // a second call puts the bytes into our order
        [=]
        {
            libyuv();
            libyuv::ARGBToABGR(to->row(0), strideOf(*to), to->row(0), strideOf(*to),
                               static_cast<int>(size.width), static_cast<int>(size.height));
        });
#endif
#ifdef KIV_PEER_SWSCALE
    add("Pixels_2vuyToRGBA/swscale", size, swscale(size, AV_PIX_FMT_UYVY422, from, size, to));
#endif
    add("Pixels_2vuyToRGBA/memcpy", size, // copies as many bytes as the conversion writes
        [=]
        {
            std::memcpy(to->row(0), to->row(0) + to->size() / 2, to->size() / 2);
            std::memcpy(to->row(0) + to->size() / 2, to->row(0), to->size() / 2);
        });
    addConvertToRGBA(size, from);
}

// Two lines fit the first-level cache, so this times the arithmetic and not memory.
void addLinesToRGBA(Size size)
{
    const auto from = std::make_shared<Plane>(size.width * 2, size.height);
    const auto to = std::make_shared<Plane>(size.width * 4, size.height);
    fillRandom(*from);
    addLevels("Pixels_2vuyToRGBA_cached", size,
              [=](const kiv::PixelRows &rows) -> Run
              { return [=, row = rows.toRGBA601] { convertRows(row, *from, *to, size.width); }; });
#ifdef KIV_PEER_LIBYUV
    add("Pixels_2vuyToRGBA_cached/libyuv", size, libyuvToBGRA(size, from, to));
#endif
}

// ---- v210 to 2vuy ----

// The simplest loop: takes the components one by one, and reads a word when it is needed.
void plainV210(const uint8_t *from, uint8_t *to, size_t width)
{
    uint32_t word = 0;
    unsigned left = 0;
    for (size_t at = 0; at < width * 2; ++at)
    {
        if (left == 0)
        {
            std::memcpy(&word, from, 4);
            from += 4;
            left = 3;
        }
        to[at] = static_cast<uint8_t>(word >> 2);
        word >>= 10;
        --left;
    }
}

void addV210(Size size)
{
    const auto from = std::make_shared<Plane>((size.width + 47) / 48 * 128, size.height);
    const auto to = std::make_shared<Plane>(size.width * 2, size.height);
    fillRandom(*from);
    const auto ours = [=](const kiv::PixelRows &rows) -> Run
    { return [=, row = rows.v210To2vuy] { convertRows(row, *from, *to, size.width); }; };
    std::vector<uint8_t> expected(size.width * 2);
    plainV210(from->row(1), expected.data(), size.width);
    for (const auto level :
         {kiv::CpuLevel::portable, kiv::CpuLevel::sse42, kiv::CpuLevel::avx2, kiv::CpuLevel::avx512})
        if (level <= kiv::cpuLevel())
        {
            ours(kiv::pixelRows(level))();
            require(std::equal(expected.begin(), expected.end(), to->row(1)), "v210 differs");
        }
    addLevels("Pixels_v210To2vuy", size, ours);
    const Run plain = [=]
    {
        for (size_t line = 0; line < size.height; ++line)
            plainV210(from->row(line), to->row(line), size.width);
    };
    add("Pixels_v210To2vuy/plain", size, plain);
    add("Pixels_v210To2vuy_AVX2/plain", size, plain);
    add("Pixels_v210To2vuy/memcpy", size, [=] { std::memcpy(to->row(0), from->row(0), to->size()); });
#ifdef KIV_PEER_AVCODEC
    // The peer's decoder only makes planes of 10 bits: less work, but more bytes to write.
    AVCodecContext *decoder = avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_V210));
    require(decoder != nullptr, "no decoder of v210");
    decoder->width = static_cast<int>(size.width);
    decoder->height = static_cast<int>(size.height);
    decoder->thread_count = 1;
    require(avcodec_open2(decoder, nullptr, nullptr) == 0, "no decoder of v210");
    AVPacket *packet = av_packet_alloc();
    AVFrame *frame = av_frame_alloc();
    require(packet != nullptr && frame != nullptr, "no memory");
    packet->data = from->row(0);
    packet->size = static_cast<int>(from->size());
    add("Pixels_v210To2vuy/avcodec", size,
        [=]
        {
            require(avcodec_send_packet(decoder, packet) == 0 && avcodec_receive_frame(decoder, frame) == 0,
                    "v210 was not decoded");
            av_frame_unref(frame);
        });
#endif
}

// ---- Scaling ----

void addScale(Size size, Size scale)
{
    const auto from = std::make_shared<Plane>(size.width * 4, size.height);
    const auto to = std::make_shared<Plane>(scale.width * 4, scale.height);
    fillRandom(*from);
    const std::string argument = std::to_string(scale.width);
    const auto ours = [=](const kiv::PixelRows &rows) -> Run
    {
        return [=, row = rows.sample32]
        {
            const uint64_t step = size.width * 65536 / scale.width;
            const uint64_t yStep = size.height * 65536 / scale.height;
            for (size_t line = 0; line < scale.height; ++line)
                row(from->row(line * yStep >> 16), size.width, to->row(line), scale.width, 0, step);
        };
    };
    const std::string name = "Pixels_scale" + argument;
    addLevels(name, size, ours);
#ifdef KIV_PEER_LIBYUV
    const Run libyuv = [=]
    {
        libyuv::ARGBScale(from->row(0), static_cast<int>(from->stride), static_cast<int>(size.width),
                          static_cast<int>(size.height), to->row(0), static_cast<int>(to->stride),
                          static_cast<int>(scale.width), static_cast<int>(scale.height), libyuv::kFilterNone);
    };
    add(name + "/libyuv", size, libyuv);
    add(name + "_AVX2/libyuv", size, libyuv);
#endif
    add(name + "/memcpy", size, // reads and writes what is written
        [=] { std::memcpy(to->row(0), from->row(0), to->size()); });
#ifdef KIV_PEER_SWSCALE
    add(name + "/swscale", size, swscale(size, AV_PIX_FMT_RGBA, from, scale, to));
#endif

    const auto video = std::make_shared<Plane>(size.width * 2, size.height);
    fillRandom(*video);
    const auto rgb = std::make_shared<Plane>(scale.width * 3, scale.height);
    const auto scaleVideo = [=](const kiv::PixelRows &rows) -> Run
    {
        return [=, row = rows.sample2vuyTo24]
        {
            const uint64_t step = size.width * 65536 / scale.width;
            const uint64_t yStep = size.height * 65536 / scale.height;
            for (size_t line = 0; line < scale.height; ++line)
                row(video->row(line * yStep >> 16), size.width, rgb->row(line), scale.width, 0, step);
        };
    };
    addLevels("Pixels_scale2vuy" + argument, size, scaleVideo);
    if (kiv::cpuLevel() >= kiv::CpuLevel::avx2) // the bar of the level below
        add("Pixels_scale2vuy" + argument + "_SSE42/avx2", size,
            scaleVideo(kiv::pixelRows(kiv::CpuLevel::avx2)));
}

// ---- Clearing and deinterlacing ----

void addFill(Size size)
{
    CVPixelBufferRef picture = nullptr;
    require(CVPixelBufferCreate(nullptr, size.width, size.height, kCVPixelFormatType_32ARGB, nullptr,
                                &picture) == kCVReturnSuccess,
            "no buffer");
    CVPixelBufferLockBaseAddress(picture, 0);
    auto *base = static_cast<uint8_t *>(CVPixelBufferGetBaseAddress(picture));
    const size_t stride = CVPixelBufferGetBytesPerRow(picture);
    add("PixelBuffer_clear/ours", size,
        [=] { benchmark::DoNotOptimize(kivCS2PixelBuffer_clear(picture, KIVCS2PixelBuffer_ClearGrey)); });
    add("PixelBuffer_clear/memset", size, [=] { std::memset(base, 128, stride * size.height); });
    add("PixelBuffer_deinterlace/ours", size,
        [=] { benchmark::DoNotOptimize(kivCS2PixelBuffer_deinterlace(picture)); });
    add("PixelBuffer_deinterlace/memcpy", size,
        [=]
        {
            for (size_t row = 0; row + 1 < size.height; row += 2)
                std::memcpy(base + (row + 1) * stride, base + row * stride, stride);
        });
}
} // namespace

int main(int argc, char **argv)
{
    for (const Size size : kSizes)
    {
        addToRGBA(size);
        addV210(size);
        addFill(size);
    }
    addLinesToRGBA({1920, 2});
    addScale(kSizes[0], {960, 540});
    addScale(kSizes[0], {1280, 720});
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
