// Raw frames: files of pictures that follow each other without headers, one frame in memory at a time.
#ifndef KIV_TOOL_RAW_FRAMES_H
#define KIV_TOOL_RAW_FRAMES_H

#include "Files/Files.h"
#include "Pictures/Picture.h"

#include <KIVCoreServices2/KIVCS2PixelBuffer.h>

#include <array>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace tool
{

/// The layout of pixels in a file. They come in blocks that are never split: a pair shares its chroma, six
/// pixels of v210 share four words.
struct PixelLayout
{
    std::string_view name;
    std::string_view meaning;
    OSType type; ///< type of its buffers; all four-byte RGB is the library's 32-bit RGB
    uint32_t blockPixels;
    uint32_t blockBytes;
    uint32_t rowAlignment;            ///< bytes
    std::array<uint8_t, 4> component; ///< offsets of R, G, B and A in a pixel; unused in 4:2:2

    [[nodiscard]] bool isRGB() const
    {
        return blockPixels == 1;
    }
    [[nodiscard]] size_t rowBytes(uint32_t width) const;
};

[[nodiscard]] std::span<const PixelLayout> pixelLayouts();
[[nodiscard]] std::vector<std::string> pixelLayoutNames();
/// Throws a usage failure for an unknown name.
[[nodiscard]] const PixelLayout &pixelLayout(std::string_view name);

/// The contents of a file of frames, which the file itself does not describe.
struct FrameLayout
{
    const PixelLayout *pixels = nullptr;
    uint32_t width = 0;  ///< pixels
    uint32_t height = 0; ///< rows
    size_t rowBytes = 0; ///< from one row to the next
    double pixelAspect = 1.0;
    double framesPerSecond = 0.0; ///< 0: unknown

    [[nodiscard]] uint64_t frameBytes() const
    {
        return uint64_t{rowBytes} * height;
    }
    /// The same picture in other pixels.
    [[nodiscard]] FrameLayout in(const PixelLayout &other) const;
    /// "1920 x 1080 v210".
    [[nodiscard]] std::string text() const;
};

using PixelBuffer = std::unique_ptr<std::remove_pointer_t<CVPixelBufferRef>, decltype(&CVPixelBufferRelease)>;

/// The rows of a buffer, locked while this lives.
class LockedPixels
{
public:
    explicit LockedPixels(CVPixelBufferRef buffer);
    ~LockedPixels();
    LockedPixels(const LockedPixels &) = delete;
    LockedPixels &operator=(const LockedPixels &) = delete;

    [[nodiscard]] uint8_t *row(size_t index) const
    {
        return m_base + index * m_rowBytes;
    }
    [[nodiscard]] size_t rowBytes() const
    {
        return m_rowBytes;
    }

private:
    CVPixelBufferRef m_buffer;
    uint8_t *m_base;
    size_t m_rowBytes;
};

/// A picture in a buffer of the library.
struct Frame
{
    PixelBuffer buffer{nullptr, CVPixelBufferRelease};
    const PixelLayout *pixels = nullptr;

    /// Uninitialised pixels.
    Frame(const PixelLayout &layout, uint32_t width, uint32_t height);
    /// Takes ownership of the buffer.
    Frame(const PixelLayout &layout, CVPixelBufferRef made) : Frame(layout)
    {
        buffer.reset(made);
    }
    /// A buffer over the caller's bytes.
    Frame(const FrameLayout &layout, std::vector<uint8_t> &bytes);

    [[nodiscard]] uint32_t width() const
    {
        return static_cast<uint32_t>(CVPixelBufferGetWidth(buffer.get()));
    }
    [[nodiscard]] uint32_t height() const
    {
        return static_cast<uint32_t>(CVPixelBufferGetHeight(buffer.get()));
    }

private:
    explicit Frame(const PixelLayout &layout) : pixels(&layout) {}
};

/// Reads frames from an input, each over the bytes of the previous one.
class FrameReader
{
public:
    /// Refuses at once a file that is not a whole number of frames.
    FrameReader(const std::string &path, const FrameLayout &layout);

    /// The next frame, null at the end. Throws if the input ends inside a frame.
    [[nodiscard]] Frame *next();
    /// Skips frames; `next` shows whether there were enough.
    void skip(uint64_t frames);

    [[nodiscard]] const Input &input() const
    {
        return m_input;
    }
    /// Frames returned or skipped.
    [[nodiscard]] uint64_t number() const
    {
        return m_number;
    }

private:
    Input m_input;
    FrameLayout m_layout;
    std::vector<uint8_t> m_bytes;
    Frame m_frame;
    uint64_t m_number = 0;
};

/// "is 5 frames of 1382400 bytes and 1 byte more": why a file does not hold whole frames.
[[nodiscard]] std::string partOfFrame(uint64_t bytes, const FrameLayout &layout);

/// Writes frames into a file that appears whole or not at all, or one by one to standard output, which must
/// not be a terminal; rows are without the padding of buffers.
class FrameWriter
{
public:
    /// An empty target discards the frames; a source is refused, see refuseSource().
    explicit FrameWriter(const std::string &target);

    void write(const Frame &frame);
    void commit();

    [[nodiscard]] uint64_t frames() const
    {
        return m_frames;
    }

private:
    bool m_toStandardOutput;
    std::optional<OutputFile> m_file;
    uint64_t m_frames = 0;
};

/// Returns whether `converted` supports it. It does not convert RGB to 4:2:2 or 8 bits to 10.
[[nodiscard]] bool canConvert(const PixelLayout &from, const PixelLayout &to);

/// The same picture in other pixels: the library converts 4:2:2 to RGB and drops bits; byte orders are
/// changed here.
[[nodiscard]] Frame converted(const Frame &frame, const PixelLayout &to);

/// How luma and colour differences become RGB.
enum class Matrix
{
    BT601, ///< standard definition
    BT709, ///< high definition
};

/// RGB for viewing. Unlike in `converted`, the last pixel of a line has the chroma of its own pair, and high
/// definition has its own matrix; pixels are opaque unless alpha is requested.
class FramePicture
{
public:
    FramePicture(const Frame &frame, Matrix matrix, bool alpha);

    [[nodiscard]] PictureView view() const;

private:
    Frame m_frame;
    LockedPixels m_pixels;
    uint32_t m_width;
};

} // namespace tool

#endif
