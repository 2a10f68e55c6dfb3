// Files as the command uses them: read in blocks, read whole, and written next to their target.
#ifndef KIV_TOOL_FILES_H
#define KIV_TOOL_FILES_H

#include "Failure.h"

#include <KIVCoreServices2/KIVCS2Stream.h>

#include <sys/stat.h>

#include <cstdint>
#include <exception>
#include <optional>
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

/// An input read in blocks; "-" is standard input. It is a source from now on: see
/// refuseSource().
class Input
{
public:
    explicit Input(const std::string &path);

    /// Fills as much of `block` as possible; returns 0 at the end. Throws if reading fails.
    size_t read(std::span<uint8_t> block);

    /// The bytes of one read, from a pipe those available; 0 at the end.
    size_t readSome(std::span<uint8_t> block);

    /// Moves to an offset of a regular file, relative to the input's initial one.
    void moveTo(uint64_t position);

    /// Skips at most `blocks` whole blocks of `size` bytes of a regular file without reading them; returns
    /// their number.
    uint64_t skip(uint64_t blocks, uint64_t size);

    /// Returns whether it can be opened by name and read again: not a pipe or a device.
    [[nodiscard]] bool isRegularFile() const
    {
        return m_regular;
    }

    /// Bytes from the input's initial offset to its end, 0 if unknown (a pipe).
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
    uint64_t m_start = 0;
    uint64_t m_size = 0;
    uint64_t m_position = 0;
};

/// Makes standard input a source of a process that reads it without an Input.
void standardInputIsASource();

/// Throws if `target` is a file that this process reads, under any name: writing it would destroy the
/// source. "-" is standard output.
void refuseSource(const std::string &target, ExitCode code = kExitUsage);

/// Until restoreWriteSignals(), a write without a reader, or beyond the limit of file size, fails instead
/// of ending the process.
void ignoreWriteSignals();
void restoreWriteSignals();

/// Replaces closed standard streams with descriptors that cannot be read or written, so that no file
/// opened later becomes one of them. Call it before opening anything.
void occupyStandardStreams();

/// Reads the whole input, for operations without a streaming form; refuses more than 256 MiB.
[[nodiscard]] std::vector<uint8_t> readWhole(const std::string &path);

/// An output that appears whole or not at all: an unnamed file in the target's folder, which `commit` gives
/// the target's name; without `commit` nothing is left, however the process ends. It keeps the owner, group
/// and mode of the file that it replaces. For "-" and for targets that are not regular files (a pipe, a
/// device) `commit` copies the content there instead.
class OutputFile
{
public:
    /// Refuses a source, see refuseSource(), and a file with several names, because the others would keep
    /// the old content.
    explicit OutputFile(std::string target);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    void write(std::span<const uint8_t> bytes);

    /// Writes bytes at an offset; do not mix it with `write`.
    void writeAt(std::span<const uint8_t> bytes, uint64_t offset);

    /// After this, everything written so far can be read from `readablePath`.
    void flush();

    [[nodiscard]] std::string readablePath() const;
    [[nodiscard]] uint64_t size() const
    {
        return m_size;
    }

    void commit();

private:
    void findPlace();
    void openTemporary();
    void openNamed();
    void copyToTarget();
    void takeOverAttributes();
    void giveName();
    void giveTemporaryName();
    [[nodiscard]] std::string folderName() const;

    std::string m_target;
    FileDescriptor m_folder;             ///< folder of `m_name` and `m_temporary`
    std::string m_name;                  ///< the last component of the target, after links
    std::string m_temporary;             ///< empty while the file is unnamed
    std::optional<struct stat> m_before; ///< properties of the replaced file
    FileDescriptor m_file;
    std::vector<uint8_t> m_buffer;
    uint64_t m_size = 0;
    bool m_copyOver = false;
};

/// An OutputFile with the library's stream interface: a stream kind of the host, so that a
/// full disk is noticed at the write and not lost in a buffered file's close.
struct OutputStream
{
    KIVCS2Stream stream; ///< first: the library passes this part back
    OutputFile *file;

    explicit OutputStream(OutputFile &output);
    OutputStream(const OutputStream &) = delete;
    OutputStream &operator=(const OutputStream &) = delete;

    /// Rethrows the exception that stopped a write; a status cannot report "No space left on device".
    void check() const;

    std::exception_ptr failure;
};

} // namespace tool

#endif
