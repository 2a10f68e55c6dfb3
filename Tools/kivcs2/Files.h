// Files as the command uses them: read in blocks, read whole, and written beside their place.
#pragma once

#include <KIVCoreServices2/KIVCS2Stream.h>

#include <cstdint>
#include <exception>
#include <span>
#include <string>
#include <vector>

namespace tool
{

/// A descriptor that closes itself.
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
    ~FileDescriptor()
    {
        reset();
    }
    FileDescriptor(FileDescriptor &&other) noexcept : m_descriptor(other.release()) {}
    FileDescriptor &operator=(FileDescriptor &&other) noexcept;
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;

    [[nodiscard]] int get() const
    {
        return m_descriptor;
    }
    int release();
    void reset();

private:
    int m_descriptor = -1;
};

/// An input read in blocks; "-" is standard input.
class Input
{
public:
    explicit Input(const std::string &path);

    /// Fills as much of `block` as there is; 0 at the end. Throws when reading fails.
    size_t read(std::span<uint8_t> block);

    /// Passes blocks of `size` bytes of a regular file over without reading them, as many as are whole and at
    /// most `blocks`; how many that were.
    uint64_t skip(uint64_t blocks, uint64_t size);

    /// Whether `path` names the file that is read here.
    [[nodiscard]] bool isSameFileAs(const std::string &path) const;

    /// Whether it can be opened by name and read again: no pipe, no device.
    [[nodiscard]] bool isRegularFile() const
    {
        return m_regular;
    }

    /// Bytes from where the input stood to its end, 0 when that is not known (a pipe).
    [[nodiscard]] uint64_t size() const
    {
        return m_size;
    }
    [[nodiscard]] uint64_t position() const
    {
        return m_position;
    }

    /// The path for messages: "standard input" for "-".
    [[nodiscard]] const std::string &name() const
    {
        return m_name;
    }

private:
    std::string m_name;
    FileDescriptor m_owned;
    int m_descriptor = -1;
    bool m_regular = false;
    uint64_t m_size = 0;
    uint64_t m_position = 0;
};

/// A write to a reader that has gone, or beyond the limit of file size, fails instead of ending the
/// process, from here to restoreWriteSignals().
void ignoreWriteSignals();
void restoreWriteSignals();

/// Gives standard streams that the caller closed a place that cannot be read or written, so that no
/// file opened later becomes one of them. Called before anything is opened.
void occupyStandardStreams();

/// The whole input, for what has no streaming form; refuses more than 256 MiB.
[[nodiscard]] std::vector<uint8_t> readWhole(const std::string &path);

/// An output that appears whole or not at all: written to a temporary file in the target's folder
/// and renamed over the target by `commit`. For "-" and for targets that are no regular files (a
/// pipe, a device) the temporary file is copied there instead. Without `commit` it is removed.
class OutputFile
{
public:
    explicit OutputFile(std::string target);

    /// Refuses a target that is the file `source` itself, under whatever name: writing it would
    /// leave nothing of the source.
    OutputFile(std::string target, const Input &source);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    void write(std::span<const uint8_t> bytes);

    /// Everything written so far is in the file under `temporaryPath` after this.
    void flush();

    [[nodiscard]] const std::string &temporaryPath() const
    {
        return m_temporary;
    }
    [[nodiscard]] uint64_t size() const
    {
        return m_size;
    }

    void commit();

private:
    std::string m_target;
    std::string m_temporary;
    FileDescriptor m_file;
    std::vector<uint8_t> m_buffer;
    uint64_t m_size = 0;
    bool m_copyOver = false;
};

/// An OutputFile behind the library's stream interface: a stream kind of the host's own, so that a
/// full disk is noticed at the write and not lost in a buffered file's close.
struct OutputStream
{
    KIVCS2Stream stream; ///< first: the library hands this part back
    OutputFile *file;

    explicit OutputStream(OutputFile &output);
    OutputStream(const OutputStream &) = delete;
    OutputStream &operator=(const OutputStream &) = delete;

    /// Rethrows what stopped a write; a status alone cannot say "No space left on device".
    void check() const;

    std::exception_ptr failure;
};

} // namespace tool
