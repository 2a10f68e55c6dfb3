// Descriptors, inputs, and outputs that appear whole or not at all.
#include "Files.h"

#include "Failure.h"
#include "Output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace tool
{
namespace
{

constexpr size_t kBlock = size_t{64} * 1024;
constexpr size_t kMostRead = 256u << 20;

// The temporary file that an interrupt must not leave behind. One at a time; read by the signal
// handler, so a plain array that is only changed while it names nothing.
std::array<char, 4096> theTemporary{};

extern "C" void removeTemporaryAndDie(int signalNumber)
{
    if (theTemporary[0] != '\0')
        ::unlink(theTemporary.data());
    ::signal(signalNumber, SIG_DFL);
    ::raise(signalNumber);
}

void rememberTemporary(const std::string &path)
{
    if (path.size() >= theTemporary.size())
        return;
    // The first byte last: until it stands, the handler sees no name.
    std::memcpy(theTemporary.data() + 1, path.c_str() + 1, path.size());
    theTemporary[0] = path[0];
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        if (::signal(signalNumber, removeTemporaryAndDie) == SIG_IGN)
            ::signal(signalNumber, SIG_IGN); // nohup, and jobs in the background
}

void forgetTemporary()
{
    theTemporary[0] = '\0';
}

void writeAll(int descriptor, std::span<const uint8_t> bytes, const std::string &name)
{
    while (!bytes.empty())
    {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0 && errno == EPIPE)
            throw ReaderGone{};
        if (written < 0)
            throw Failure::system(name, errno);
        bytes = bytes.subspan(static_cast<size_t>(written));
    }
}

std::string folderOf(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string{} : path.substr(0, slash + 1);
}

std::string temporaryFolder()
{
    const char *folder = std::getenv("TMPDIR");
    return (folder != nullptr && *folder != '\0' ? std::string{folder} : std::string{"/tmp"}) + "/";
}

// What a new file would have got: the mask can only be read by setting it.
mode_t newFileMode()
{
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666u & ~mask;
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
        output->failure = std::current_exception(); // no exception crosses the library
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
            // The lowest free number is the one that is missing. A path alone: reading and writing
            // it fail as they would have failed on the closed stream.
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
        // Standard input may stand anywhere in its file.
        const off_t here = std::max(::lseek(m_descriptor, 0, SEEK_CUR), off_t{0});
        m_size = static_cast<uint64_t>(status.st_size - std::min(status.st_size, here));
    }
}

bool Input::isSameFileAs(const std::string &path) const
{
    struct stat own
    {
    };
    struct stat other
    {
    };
    return m_regular && path != "-" && ::fstat(m_descriptor, &own) == 0 &&
           ::stat(path.c_str(), &other) == 0 && own.st_dev == other.st_dev && own.st_ino == other.st_ino;
}

size_t Input::read(std::span<uint8_t> block)
{
    size_t filled = 0;
    while (filled < block.size())
    {
        const ssize_t count = ::read(m_descriptor, block.data() + filled, block.size() - filled);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw Failure::system(m_name, errno);
        if (count == 0)
            break;
        filled += static_cast<size_t>(count);
    }
    m_position += filled;
    return filled;
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
            throw Failure(kExitNotHere, input.name() + ": more than 256 MiB");
    }
    bytes.resize(filled);
    return bytes;
}

OutputFile::OutputFile(std::string target, const Input &source)
    : OutputFile(
          source.isSameFileAs(target)
              ? throw Failure(kExitUsage, target + ": is the source itself; give the target another name")
              : std::move(target))
{
}

OutputFile::OutputFile(std::string target) : m_target(std::move(target))
{
    struct stat status
    {
    };
    const bool exists = m_target != "-" && ::stat(m_target.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode))
        throw Failure::system(m_target, EISDIR);
    if (exists && S_ISREG(status.st_mode) && ::access(m_target.c_str(), W_OK) != 0)
        throw Failure::system(m_target, errno);
    m_copyOver = m_target == "-" || (exists && !S_ISREG(status.st_mode));
    if (exists && !m_copyOver)
    {
        // A link stays a link: its target is what gets replaced.
        char *resolved = ::realpath(m_target.c_str(), nullptr);
        if (resolved != nullptr)
            m_target = resolved;
        std::free(resolved);
    }

    m_temporary = (m_copyOver ? temporaryFolder() : folderOf(m_target)) + ".kivcs2-XXXXXX";
    // No interrupt between making the file and knowing its name.
    sigset_t all{};
    sigset_t before{};
    ::sigfillset(&all);
    ::sigprocmask(SIG_SETMASK, &all, &before);
    m_file = FileDescriptor{::mkostemp(m_temporary.data(), O_CLOEXEC)};
    const int error = errno;
    if (m_file.get() >= 0)
        rememberTemporary(m_temporary);
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
    if (m_file.get() < 0)
        throw Failure::system(m_copyOver ? temporaryFolder() : m_target, error);
    if (!m_copyOver)
        (void)::fchmod(m_file.get(),
                       exists ? status.st_mode & 07777u : newFileMode()); // some file systems have no modes
    m_buffer.reserve(kBlock);
}

OutputFile::~OutputFile()
{
    if (!m_temporary.empty())
        ::unlink(m_temporary.c_str());
    forgetTemporary();
}

void OutputFile::write(std::span<const uint8_t> bytes)
{
    m_buffer.insert(m_buffer.end(), bytes.begin(), bytes.end());
    m_size += bytes.size();
    if (m_buffer.size() >= kBlock)
        flush();
}

void OutputFile::flush()
{
    writeAll(m_file.get(), m_buffer, m_target == "-" ? temporaryFolder() : m_target);
    m_buffer.clear();
}

void OutputFile::commit()
{
    flush();
    if (m_copyOver)
    {
        out().flush();
        FileDescriptor opened;
        if (m_target != "-")
        {
            opened = FileDescriptor{::open(m_target.c_str(), O_WRONLY | O_CLOEXEC)};
            if (opened.get() < 0)
                throw Failure::system(m_target, errno);
        }
        Input written{m_temporary};
        std::array<uint8_t, kBlock> block{};
        while (const size_t count = written.read(block))
            writeAll(m_target == "-" ? STDOUT_FILENO : opened.get(), {block.data(), count},
                     m_target == "-" ? "standard output" : m_target);
        return;
    }
    if (::fsync(m_file.get()) != 0 && errno != EINVAL && errno != EROFS)
        throw Failure::system(m_target, errno);
    if (::rename(m_temporary.c_str(), m_target.c_str()) != 0)
        throw Failure::system(m_target, errno);
    forgetTemporary();
    m_temporary.clear();
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
