// Files as the command uses them: read in blocks, read whole, and written beside their place.
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

/// An input read in blocks; "-" is standard input. What is read here is a source from now on: see
/// refuseSource().
class Input
{
public:
    explicit Input(const std::string &path);

    /// Fills as much of `block` as there is; 0 at the end. Throws when reading fails.
    size_t read(std::span<uint8_t> block);

    /// What one read gives: of a pipe what is there; 0 at the end.
    size_t readSome(std::span<uint8_t> block);

    /// Goes to a place of a regular file, counted from where the input stood.
    void moveTo(uint64_t position);

    /// Passes blocks of `size` bytes of a regular file over without reading them, as many as are whole and at
    /// most `blocks`; how many that were.
    uint64_t skip(uint64_t blocks, uint64_t size);

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
    uint64_t m_start = 0;
    uint64_t m_size = 0;
    uint64_t m_position = 0;
};

/// Makes standard input a source of a process that reads it without an Input.
void standardInputIsASource();

/// Throws when `target` is a file that this process reads, under whatever name: writing it would leave
/// nothing of the source. "-" is standard output.
void refuseSource(const std::string &target, ExitCode code = kExitUsage);

/// A write to a reader that has gone, or beyond the limit of file size, fails instead of ending the
/// process, from here to restoreWriteSignals().
void ignoreWriteSignals();
void restoreWriteSignals();

/// Gives standard streams that the caller closed a place that cannot be read or written, so that no
/// file opened later becomes one of them. Called before anything is opened.
void occupyStandardStreams();

/// The whole input, for what has no streaming form; refuses more than 256 MiB.
[[nodiscard]] std::vector<uint8_t> readWhole(const std::string &path);

/// An output that appears whole or not at all: written to a file without a name in the target's folder, which
/// `commit` gives the target's name; without it nothing is left, however the process ends. A file that it
/// replaces hands on its owner, group and mode. For "-" and for targets that are no regular files (a pipe, a
/// device) what was written is copied there instead.
class OutputFile
{
public:
    /// Refuses a source, see refuseSource(), and a file with several names: the others would keep the old
    /// content.
    explicit OutputFile(std::string target);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    void write(std::span<const uint8_t> bytes);

    /// Bytes at a place of their own; not to be mixed with `write`.
    void writeAt(std::span<const uint8_t> bytes, uint64_t offset);

    /// Everything written so far can be read from `readablePath` after this.
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
    FileDescriptor m_folder;             ///< what `m_name` and `m_temporary` stand in
    std::string m_name;                  ///< the target's last part, links followed
    std::string m_temporary;             ///< empty while the file has no name
    std::optional<struct stat> m_before; ///< of the file that is replaced
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

#endif
