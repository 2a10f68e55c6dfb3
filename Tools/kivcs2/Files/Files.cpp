// Descriptors, inputs, and outputs that appear whole or not at all.
#include "Files/Files.h"

#include "Failure.h"
#include "Terminal/EndSignals.h"
#include "Terminal/Output.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace tool
{
namespace
{

constexpr size_t kBlock = size_t{64} * 1024;
constexpr size_t kMostRead = 256u << 20;

// The temporary name that an interrupt must remove, if a file needs a name before it is complete. One at a
// time. The signal handler reads it, so it is a plain array that changes only while it is empty.
std::array<char, 32> theTemporary{};
volatile sig_atomic_t theFolder = -1;

extern "C" void removeTemporaryAndDie(int signalNumber)
{
    if (theTemporary[0] != '\0')
        ::unlinkat(theFolder, theTemporary.data(), 0);
    ::signal(signalNumber, SIG_DFL);
    ::raise(signalNumber);
}

void rememberTemporary(int folder, const std::string &name)
{
    theFolder = folder;
    // The first byte last: until it is written, the handler sees no name.
    std::memcpy(theTemporary.data() + 1, name.c_str() + 1, std::min(name.size(), theTemporary.size() - 1));
    theTemporary[0] = name[0];
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        if (::signal(signalNumber, removeTemporaryAndDie) == SIG_IGN)
            ::signal(signalNumber, SIG_IGN); // nohup, and jobs in the background
}

void forgetTemporary()
{
    theTemporary[0] = '\0';
}

// Holds signals between an action and its record.
class SignalsHeld
{
public:
    SignalsHeld()
    {
        sigset_t all{};
        ::sigfillset(&all);
        ::sigprocmask(SIG_SETMASK, &all, &m_before);
    }
    ~SignalsHeld()
    {
        ::sigprocmask(SIG_SETMASK, &m_before, nullptr);
    }
    SignalsHeld(const SignalsHeld &) = delete;
    SignalsHeld &operator=(const SignalsHeld &) = delete;

private:
    sigset_t m_before{};
};

// A name that no other process is likely to use; the caller must still refuse an existing one.
std::string temporaryName()
{
    constexpr std::string_view kCharacters = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::string name = ".kivcs2-";
    std::array<uint8_t, 8> random{};
    if (::getentropy(random.data(), random.size()) != 0)
        throw Failure::system("random numbers", errno);
    for (const uint8_t byte : random)
        name += kCharacters[byte % kCharacters.size()];
    return name;
}

std::string pathOf(int descriptor)
{
    return "/proc/self/fd/" + std::to_string(descriptor);
}

// The files that this process reads: writing one of them would destroy it.
struct FileIdentity
{
    dev_t device;
    ino_t number;

    bool operator==(const FileIdentity &) const = default;
};
std::vector<FileIdentity> &sources()
{
    static std::vector<FileIdentity> list;
    return list;
}

bool isSource(const struct stat &status)
{
    return std::ranges::find(sources(), FileIdentity{status.st_dev, status.st_ino}) != sources().end();
}

// Standard output, if it is a file that can be read again.
bool isOwnOutput(const struct stat &status)
{
    struct stat output
    {
    };
    const int flags = ::fcntl(standardOutput(), F_GETFL);
    return flags >= 0 && (flags & O_ACCMODE) != O_RDONLY && (flags & O_PATH) == 0 &&
           ::fstat(standardOutput(), &output) == 0 && output.st_dev == status.st_dev &&
           output.st_ino == status.st_ino;
}

bool canBeOverwritten(const struct stat &status)
{
    return S_ISREG(status.st_mode) || S_ISBLK(status.st_mode);
}

void writeAll(int descriptor, std::span<const uint8_t> bytes, const std::string &name)
{
    while (!bytes.empty())
    {
        const size_t piece = EndSignals::awaitWritable(descriptor, bytes.size());
        const ssize_t written = piece > 0 ? ::write(descriptor, bytes.data(), piece) : 0;
        if (written < 0 && errno == EINTR)
            continue;
        if (piece == 0 || (written < 0 && errno == EPIPE))
            throw ReaderGone{};
        if (written < 0)
            throw Failure::system(name, errno);
        bytes = bytes.subspan(static_cast<size_t>(written));
    }
}

std::string temporaryFolder()
{
    const char *folder = std::getenv("TMPDIR");
    return (folder != nullptr && *folder != '\0' ? std::string{folder} : std::string{"/tmp"}) + "/";
}

// The mode of a new file: the mask can only be read by setting it.
mode_t newFileMode()
{
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666u & ~mask;
}

// Copies from the start of `from`, whatever its offset, to the current offset of `to`.
void copyWhole(int from, const std::string &fromName, int to, const std::string &toName)
{
    std::array<uint8_t, kBlock> block{};
    for (off_t position = 0;;)
    {
        const ssize_t count = ::pread(from, block.data(), block.size(), position);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw Failure::system(fromName, errno);
        if (count == 0)
            return;
        writeAll(to, {block.data(), static_cast<size_t>(count)}, toName);
        position += count;
    }
}

KIVCS2Status writeToOutput(KIVCS2Stream *stream, const void *buffer, uint64_t size, uint64_t *bytesWritten)
{
    auto *output = reinterpret_cast<OutputStream *>(stream);
    if (bytesWritten != nullptr)
        *bytesWritten = 0;
    try
    {
        output->file->write({static_cast<const uint8_t *>(buffer), size});
    }
    catch (...)
    {
        output->failure = std::current_exception(); // an exception must not cross the library
        return KIVCS2STATUS_WRITE_ERR;
    }
    if (bytesWritten != nullptr)
        *bytesWritten = size;
    return KIVCS2STATUS_OK;
}

KIVCS2Status closeOutput(KIVCS2Stream *stream)
{
    *stream = KIVCS2Stream{};
    return KIVCS2STATUS_OK;
}

} // namespace

namespace
{
constexpr int kWriteSignals[] = {SIGPIPE, SIGXFSZ};
void (*g_inherited[2])(int) = {SIG_DFL, SIG_DFL};
} // namespace

void ignoreWriteSignals()
{
    for (size_t index = 0; index < 2; ++index)
        g_inherited[index] = std::signal(kWriteSignals[index], SIG_IGN);
}

void restoreWriteSignals()
{
    for (size_t index = 0; index < 2; ++index)
        std::signal(kWriteSignals[index], g_inherited[index]);
}

void occupyStandardStreams()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(descriptor, F_GETFD) < 0 && errno == EBADF)
            // open() returns the lowest free number, the missing one. With O_PATH, reading and writing
            // fail as on the closed stream.
            (void)::open("/dev/null", O_PATH | O_CLOEXEC);
}

FileDescriptor &FileDescriptor::operator=(FileDescriptor &&other) noexcept
{
    if (this != &other)
    {
        reset();
        m_descriptor = other.release();
    }
    return *this;
}

int FileDescriptor::release()
{
    return std::exchange(m_descriptor, -1);
}

void FileDescriptor::reset()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
    m_descriptor = -1;
}

Input::Input(const std::string &path) : m_name(place(path, 0))
{
    if (path == "-")
        m_descriptor = STDIN_FILENO;
    else
    {
        m_owned = FileDescriptor{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
        m_descriptor = m_owned.get();
        if (m_descriptor < 0)
            throw Failure::system(m_name, errno);
    }
    struct stat status
    {
    };
    if (::fstat(m_descriptor, &status) == 0 && S_ISDIR(status.st_mode))
        throw Failure::system(m_name, EISDIR);
    m_regular = S_ISREG(status.st_mode);
    if (m_regular)
    {
        // Standard input may be at any offset of its file.
        const off_t here = std::max(::lseek(m_descriptor, 0, SEEK_CUR), off_t{0});
        m_start = static_cast<uint64_t>(here);
        m_size = static_cast<uint64_t>(status.st_size - std::min(status.st_size, here));
    }
    if (!canBeOverwritten(status))
        return;
    if (isOwnOutput(status))
    {
        giveStandardOutputToData(); // the failure's document must not go into it either
        throw Failure(kExitUsage, Where{m_name}, "standard output is this file; choose another target");
    }
    sources().push_back({status.st_dev, status.st_ino});
}

void standardInputIsASource()
{
    struct stat status
    {
    };
    if (::fstat(STDIN_FILENO, &status) == 0 && canBeOverwritten(status))
        sources().push_back({status.st_dev, status.st_ino});
}

void refuseSource(const std::string &target, ExitCode code)
{
    struct stat status
    {
    };
    const int found = target == "-" ? ::fstat(standardOutput(), &status) : ::stat(target.c_str(), &status);
    if (found == 0 && isSource(status))
        throw Failure(code, Where{target, 0}, "is the source itself; give the target another name");
}

size_t Input::readSome(std::span<uint8_t> block)
{
    for (;;)
    {
        if (!m_regular && !EndSignals::awaitReadable(m_descriptor))
            throw Ended{};
        const ssize_t count = ::read(m_descriptor, block.data(), block.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw Failure::system(m_name, errno);
        m_position += static_cast<uint64_t>(count);
        return static_cast<size_t>(count);
    }
}

size_t Input::read(std::span<uint8_t> block)
{
    size_t filled = 0;
    while (filled < block.size())
    {
        const size_t count = readSome(block.subspan(filled));
        if (count == 0)
            break;
        filled += count;
    }
    return filled;
}

void Input::moveTo(uint64_t position)
{
    if (::lseek(m_descriptor, static_cast<off_t>(m_start + position), SEEK_SET) < 0)
        throw Failure::system(m_name, errno);
    m_position = position;
}

uint64_t Input::skip(uint64_t blocks, uint64_t size)
{
    const uint64_t rest = m_size - std::min(m_size, m_position);
    const uint64_t passed = std::min(blocks, rest / size);
    if (::lseek(m_descriptor, static_cast<off_t>(passed * size), SEEK_CUR) < 0)
        throw Failure::system(m_name, errno);
    m_position += passed * size;
    return passed;
}

std::vector<uint8_t> readWhole(const std::string &path)
{
    Input input{path};
    std::vector<uint8_t> bytes;
    size_t filled = 0;
    for (;;)
    {
        bytes.resize(filled + kBlock);
        const size_t count = input.read({bytes.data() + filled, kBlock});
        filled += count;
        if (count < kBlock)
            break;
        if (filled > kMostRead)
            throw Failure(kExitNotHere, Where{input.name()}, "more than 256 MiB");
    }
    bytes.resize(filled);
    return bytes;
}

OutputFile::OutputFile(std::string target) : m_target(std::move(target))
{
    refuseSource(m_target);
    findPlace();
    openTemporary();
    m_buffer.reserve(kBlock);
}

// Keeps the folder open and examines its files through it, so that a user who may rename files there
// cannot have one file's owner and mode given to another.
void OutputFile::findPlace()
{
    struct stat status
    {
    };
    const bool exists = m_target != "-" && ::stat(m_target.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode))
        throw Failure::system(m_target, EISDIR);
    m_copyOver = m_target == "-" || (exists && !S_ISREG(status.st_mode));

    std::string path = m_copyOver ? temporaryFolder() : m_target;
    // A link stays a link: its target is replaced.
    char *resolved = exists && !m_copyOver ? ::realpath(m_target.c_str(), nullptr) : nullptr;
    if (resolved != nullptr)
        path = resolved;
    std::free(resolved);
    const size_t slash = path.rfind('/') + 1; // 0 without a slash
    m_name = path.substr(slash);
    if (m_name.empty() && !m_copyOver)
        throw Failure::system(m_target, m_target.empty() ? ENOENT : EISDIR);
    m_folder = FileDescriptor{
        ::open(slash == 0 ? "." : path.substr(0, slash).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
    if (m_folder.get() < 0)
        throw Failure::system(folderName(), errno);

    if (m_copyOver || ::fstatat(m_folder.get(), m_name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(status.st_mode))
        return;
    if (::faccessat(m_folder.get(), m_name.c_str(), W_OK, AT_EACCESS) != 0)
        throw Failure::system(m_target, errno);
    if (status.st_nlink > 1)
        throw Failure(kExitInputOutput, m_target + ": has " + std::to_string(status.st_nlink) +
                                            " names, and the others would keep the old content; give the "
                                            "target another name or remove this one");
    m_before = status;
}

std::string OutputFile::folderName() const
{
    return m_copyOver ? temporaryFolder() : m_target;
}

void OutputFile::openTemporary()
{
    m_file = FileDescriptor{::openat(m_folder.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600)};
    // Some file systems have no unnamed files, and without /proc such a file cannot be named.
    if (m_file.get() < 0 || ::access(pathOf(m_file.get()).c_str(), F_OK) != 0)
        openNamed();
}

void OutputFile::openNamed()
{
    const SignalsHeld held;
    std::string name = temporaryName();
    m_file =
        FileDescriptor{::openat(m_folder.get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600)};
    if (m_file.get() < 0)
        throw Failure::system(folderName(), errno);
    m_temporary = std::move(name);
    rememberTemporary(m_folder.get(), m_temporary);
}

OutputFile::~OutputFile()
{
    const SignalsHeld held; // the handler would use the descriptor being closed
    if (!m_temporary.empty())
        ::unlinkat(m_folder.get(), m_temporary.c_str(), 0);
    forgetTemporary();
}

void OutputFile::write(std::span<const uint8_t> bytes)
{
    m_buffer.insert(m_buffer.end(), bytes.begin(), bytes.end());
    m_size += bytes.size();
    if (m_buffer.size() >= kBlock)
        flush();
}

void OutputFile::writeAt(std::span<const uint8_t> bytes, uint64_t offset)
{
    while (!bytes.empty())
    {
        const ssize_t written =
            ::pwrite(m_file.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            throw Failure::system(folderName(), errno);
        bytes = bytes.subspan(static_cast<size_t>(written));
        offset += static_cast<uint64_t>(written);
    }
}

void OutputFile::flush()
{
    writeAll(m_file.get(), m_buffer, folderName());
    m_buffer.clear();
}

std::string OutputFile::readablePath() const
{
    return m_temporary.empty() ? pathOf(m_file.get()) : pathOf(m_folder.get()) + "/" + m_temporary;
}

// From its start, whatever the offset.
void OutputFile::copyToTarget()
{
    out().flush();
    FileDescriptor opened;
    if (m_target != "-")
    {
        opened = FileDescriptor{::open(m_target.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY)};
        struct stat status
        {
        };
        if (opened.get() < 0 || ::fstat(opened.get(), &status) != 0)
            throw Failure::system(m_target, errno);
        // It was not a regular file before; written in place it would keep the end of its old content.
        if (S_ISREG(status.st_mode))
            throw Failure(kExitInputOutput, m_target + ": has become a regular file during the run");
    }
    copyWhole(m_file.get(), folderName(), m_target == "-" ? standardOutput() : opened.get(),
              m_target == "-" ? "standard output" : m_target);
}

// Sets the owner, group and mode of the replaced file. The owner is set first, because changing it clears the
// set-id bits, which must not be set on a file of another owner.
void OutputFile::takeOverAttributes()
{
    if (!m_before)
    {
        (void)::fchmod(m_file.get(), newFileMode()); // some file systems have no modes
        return;
    }
    struct stat own
    {
    };
    const bool known = ::fstat(m_file.get(), &own) == 0;
    const bool group = known && (own.st_gid == m_before->st_gid ||
                                 ::fchown(m_file.get(), static_cast<uid_t>(-1), m_before->st_gid) == 0);
    const bool owner = known && (own.st_uid == m_before->st_uid ||
                                 ::fchown(m_file.get(), m_before->st_uid, static_cast<gid_t>(-1)) == 0);
    constexpr mode_t kSetId = S_ISUID | S_ISGID;
    mode_t mode = m_before->st_mode & 07777u;
    if (!owner || !group)
        mode &= ~kSetId;
    if (!group)
        mode &= ~static_cast<mode_t>(S_IRWXG) | (mode & S_IRWXO) << 3; // another group gets the rights of all
    (void)::fchmod(m_file.get(), mode);
    // The system may silently clear a set-id bit.
    const bool kept = ::fstat(m_file.get(), &own) == 0 &&
                      ((own.st_mode ^ m_before->st_mode) & kSetId & m_before->st_mode) == 0;
    if (!owner || !group)
        note(m_target + ": the " +
             (owner   ? "group"
              : group ? "owner"
                      : "owner and the group") +
             " could not be kept" + (kept ? "" : ", and the set-id bits are gone"));
    else if (!kept)
        note(m_target + ": the set-id bits could not be kept");
}

// Links the unnamed file under a second name until it is renamed. If the system refuses, copies the
// content into a named file.
void OutputFile::giveTemporaryName()
{
    std::string name = temporaryName();
    if (::linkat(AT_FDCWD, pathOf(m_file.get()).c_str(), m_folder.get(), name.c_str(), AT_SYMLINK_FOLLOW) ==
        0)
    {
        m_temporary = std::move(name);
        return;
    }
    const FileDescriptor unnamed = std::move(m_file);
    openNamed();
    copyWhole(unnamed.get(), folderName(), m_file.get(), folderName());
    takeOverAttributes();
}

void OutputFile::giveName()
{
    const SignalsHeld held;
    // A free name is used at once.
    if (m_temporary.empty() && !m_before &&
        ::linkat(AT_FDCWD, pathOf(m_file.get()).c_str(), m_folder.get(), m_name.c_str(), AT_SYMLINK_FOLLOW) ==
            0)
        return;
    if (m_temporary.empty())
        giveTemporaryName();
    if (::renameat(m_folder.get(), m_temporary.c_str(), m_folder.get(), m_name.c_str()) != 0)
        throw Failure::system(m_target, errno);
    forgetTemporary();
    m_temporary.clear();
}

void OutputFile::commit()
{
    flush();
    if (m_copyOver)
    {
        copyToTarget();
        return;
    }
    takeOverAttributes();
    if (::fsync(m_file.get()) != 0 && errno != EINVAL && errno != EROFS)
        throw Failure::system(m_target, errno);
    giveName();
}

OutputStream::OutputStream(OutputFile &output) : stream{}, file(&output)
{
    stream.m_writeBytes = writeToOutput;
    stream.m_close = closeOutput;
    stream.m_free = closeOutput;
}

void OutputStream::check() const
{
    if (failure)
        std::rethrow_exception(failure);
}

} // namespace tool
