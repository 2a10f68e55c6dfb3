// The system management controller, through the files of the kernel's applesmc driver: write an index to one
// file, and others then contain the name, type, length and data of the key at this index.
#include "IOKit/AppleSMC.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <mutex>
#include <new>
#include <utility>

namespace kiv::iokit
{
namespace
{
// Offsets in a call's structure.
constexpr size_t kKeyAt = 0;
constexpr size_t kDataSizeAt = 28;
constexpr size_t kDataTypeAt = 32;
constexpr size_t kCommandAt = 42;
constexpr size_t kArgumentAt = 44;
constexpr size_t kDataAt = 48;
static_assert(kDataAt + 32 == AppleSMC::kCallSize);

enum Command : uint8_t
{
    kReadData = 5,
    kKeyAtIndex = 8,
    kReadInfo = 9,
};

// Controllers have some hundred keys; a count above this cannot be right.
constexpr uint32_t kMostKeys = 65536;

// A program without this library may choose another key during our read.
constexpr int kTries = 3;

// The driver binds to a platform device or, if it finds the controller through ACPI, to an ACPI device.
constexpr std::array kDriverFolders = {"/sys/bus/platform/drivers/applesmc",
                                       "/sys/bus/acpi/drivers/applesmc"};

constexpr uint32_t pack(const char (&name)[5])
{
    uint32_t code = 0;
    for (int index = 0; index < 4; ++index)
        code = code << 8 | static_cast<uint8_t>(name[index]);
    return code;
}

// The number of keys has its own file, so it can be read before any key is found.
constexpr uint32_t kNumberOfKeys = pack("#KEY");

uint32_t wordAt(const uint8_t *call, size_t offset)
{
    uint32_t word = 0;
    std::memcpy(&word, call + offset, sizeof word);
    return word;
}

void putWord(uint8_t *call, size_t offset, uint32_t word)
{
    std::memcpy(call + offset, &word, sizeof word);
}

class File
{
public:
    File(int folder, const char *name, int flags) noexcept : m_fd{openat(folder, name, flags | O_CLOEXEC)} {}
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    ~File()
    {
        if (m_fd >= 0)
            close(m_fd);
    }
    [[nodiscard]] int get() const noexcept
    {
        return m_fd;
    }

private:
    int m_fd;
};

// Reads up to `room` bytes of an attribute and returns their number; -1 if it cannot be read.
ssize_t readFile(int folder, const char *name, char *bytes, size_t room) noexcept
{
    const File file{folder, name, O_RDONLY};
    size_t total = 0;
    while (file.get() >= 0 && total < room)
    {
        const ssize_t got = read(file.get(), bytes + total, room - total);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        total += static_cast<size_t>(got);
    }
    return file.get() < 0 ? -1 : static_cast<ssize_t>(total);
}

IOReturn readNumber(int folder, const char *name, uint32_t &number) noexcept
{
    char text[16];
    const ssize_t size = readFile(folder, name, text, sizeof text);
    if (size < 0)
        return kIOReturnIOError;
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text, text + size, value);
    if (error != std::errc{} || (end != text + size && *end != '\n'))
        return kIOReturnIOError;
    number = value;
    return kIOReturnSuccess;
}

// Reads four characters and a line end. Blanks count; the driver omits zero bytes at the end.
IOReturn readCode(int folder, const char *name, uint32_t &code) noexcept
{
    char text[8];
    const ssize_t size = readFile(folder, name, text, sizeof text);
    if (size < 1 || size > 5 || text[size - 1] != '\n')
        return kIOReturnIOError;
    uint32_t value = 0;
    for (ssize_t index = 0; index < 4; ++index)
        value = value << 8 | (index < size - 1 ? static_cast<uint8_t>(text[index]) : 0u);
    code = value;
    return kIOReturnSuccess;
}

int openFolder(const char *path) noexcept
{
    return open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

bool hasKeys(int folder) noexcept
{
    return faccessat(folder, "key_count", R_OK, 0) == 0;
}

// Returns the device that the driver has bound to: a link in the driver's folder.
int openDevice(const char *driverFolder) noexcept
{
    DIR *entries = opendir(driverFolder);
    if (entries == nullptr)
        return -1;
    int found = -1;
    while (const dirent *entry = found < 0 ? readdir(entries) : nullptr)
    {
        if (entry->d_name[0] == '.')
            continue;
        const int folder = openat(dirfd(entries), entry->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (folder < 0)
            continue;
        if (hasKeys(folder))
            found = folder;
        else
            close(folder);
    }
    closedir(entries);
    return found;
}

int openDriver(const Driver &driver) noexcept
{
    if (driver.folder != nullptr)
        return openFolder(driver.folder);
    for (const char *path : kDriverFolders)
        if (const int folder = openDevice(path); folder >= 0)
            return folder;
    return -1;
}

// Takes the lock that other processes hold for the milliseconds of reading one key. But any user who may
// read the file can hold the lock forever. Then continue without the lock: reading the index back has to be
// enough. Returns false if locking fails.
bool lockWhileItMatters(int file) noexcept
{
    constexpr timespec kPause = {0, 1'000'000};
    constexpr int kPauses = 50;
    for (int pause = 0; pause < kPauses; ++pause)
    {
        if (flock(file, LOCK_EX | LOCK_NB) == 0)
            return true;
        if (errno != EWOULDBLOCK && errno != EINTR)
            return false;
        (void)nanosleep(&kPause, nullptr); // an early return is harmless
    }
    return true;
}

constinit std::mutex g_choosing;
} // namespace

bool AppleSMC::isThere(const Driver &driver) noexcept
{
    const int folder = openDriver(driver);
    if (folder < 0)
        return false;
    const bool there = hasKeys(folder);
    close(folder);
    return there;
}

IOReturn AppleSMC::open(const Driver &driver, std::unique_ptr<AppleSMC> &opened) noexcept
{
    std::unique_ptr<AppleSMC> made{new (std::nothrow) AppleSMC{driver}};
    if (!made)
        return kIOReturnNoMemory;
    made->m_folder = openDriver(driver);
    if (made->m_folder < 0)
        return kIOReturnIOError;
    if (faccessat(made->m_folder, "key_at_index", W_OK, 0) != 0)
        return kIOReturnNotPermitted;
    const IOReturn counted = readNumber(made->m_folder, "key_count", made->m_count);
    if (counted != kIOReturnSuccess)
        return counted;
    if (made->m_count > kMostKeys)
        return kIOReturnNoResources;
    made->m_keys.reset(new (std::nothrow) uint32_t[made->m_count]{});
    if (!made->m_keys)
        return kIOReturnNoMemory;
    opened = std::move(made);
    return kIOReturnSuccess;
}

AppleSMC::~AppleSMC()
{
    if (m_folder >= 0)
        close(m_folder);
}

// Makes the driver's files show the key at `index`, and reads them. The whole machine has one
// set of files, so a mutex excludes other threads, and a lock on the file excludes other processes. A process
// that does not use the lock is detected by the index that it leaves.
template <class Read>
IOReturn AppleSMC::choose(uint32_t index, Read read) const noexcept
{
    const std::lock_guard lock{g_choosing};
    const File file{m_folder, "key_at_index", O_WRONLY};
    if (file.get() < 0)
        return kIOReturnIOError;
    if (!lockWhileItMatters(file.get()))
        return kIOReturnIOError;

    std::array<char, 16> text;
    char *const end = std::to_chars(text.begin(), text.end(), index).ptr;
    *end = '\n';
    const ssize_t size = end + 1 - text.begin();
    for (int attempt = 0; attempt < kTries; ++attempt)
    {
        if (pwrite(file.get(), text.data(), static_cast<size_t>(size), 0) != size)
            return kIOReturnIOError;
        if (m_driver.indexWritten != nullptr)
            m_driver.indexWritten(m_driver.folder);
        const IOReturn result = read();
        uint32_t chosen = 0;
        if (readNumber(m_folder, "key_at_index", chosen) != kIOReturnSuccess)
            return kIOReturnIOError;
        if (chosen == index)
            return result;
    }
    return kIOReturnIOError;
}

IOReturn AppleSMC::keyAt(uint32_t index, uint32_t &key) noexcept
{
    if (m_keys[index] == 0)
    {
        const IOReturn result =
            choose(index, [&]() noexcept { return readCode(m_folder, "key_at_index_name", m_keys[index]); });
        if (result != kIOReturnSuccess)
            return result;
    }
    key = m_keys[index];
    return kIOReturnSuccess;
}

IOReturn AppleSMC::find(uint32_t key, uint32_t &index) noexcept
{
    const uint32_t *const known = std::find(m_keys.get(), m_keys.get() + m_count, key);
    const auto place = static_cast<uint32_t>(known - m_keys.get());
    if (key != 0 && place < m_count)
    {
        index = place;
        return kIOReturnSuccess;
    }
    for (uint32_t next = 0; next < m_count; ++next)
    {
        if (m_keys[next] != 0)
            continue; // this index has another key
        uint32_t found = 0;
        const IOReturn result = keyAt(next, found);
        if (result != kIOReturnSuccess)
            return result;
        if (found == key)
        {
            index = next;
            return kIOReturnSuccess;
        }
    }
    return kIOReturnNotFound;
}

template <class Read>
IOReturn AppleSMC::chooseKey(uint32_t key, Read read) noexcept
{
    uint32_t index = 0;
    const IOReturn result = find(key, index);
    return result != kIOReturnSuccess ? result : choose(index, read);
}

IOReturn AppleSMC::readInfo(uint32_t key, uint8_t *output) noexcept
{
    uint32_t size = sizeof(uint32_t);
    uint32_t type = pack("ui32");
    const auto read = [&]() noexcept
    {
        const IOReturn told = readNumber(m_folder, "key_at_index_data_length", size);
        return told != kIOReturnSuccess ? told : readCode(m_folder, "key_at_index_type", type);
    };
    const IOReturn result = key == kNumberOfKeys ? kIOReturnSuccess : chooseKey(key, read);
    putWord(output, kDataSizeAt, size);
    putWord(output, kDataTypeAt, type);
    return result;
}

IOReturn AppleSMC::readData(uint32_t key, uint32_t size, uint8_t *output) noexcept
{
    std::array<char, kCallSize - kDataAt> data{};
    for (uint32_t index = 0; index < 4; ++index)
        data[index] = static_cast<char>(m_count >> (24 - index * 8));
    const auto read = [&]() noexcept
    {
        data = {};
        const ssize_t got = readFile(m_folder, "key_at_index_data", data.data(), data.size());
        return got < 0 ? kIOReturnIOError : kIOReturnSuccess;
    };
    const IOReturn result = key == kNumberOfKeys ? kIOReturnSuccess : chooseKey(key, read);
    if (result == kIOReturnSuccess)
        std::memcpy(output + kDataAt, data.data(), std::min<size_t>(size, data.size()));
    return result;
}

IOReturn AppleSMC::call(const uint8_t *input, uint8_t *output) noexcept
{
    std::memset(output, 0, kCallSize);
    const uint32_t key = wordAt(input, kKeyAt);
    switch (input[kCommandAt])
    {
    case kReadData:
        return readData(key, wordAt(input, kDataSizeAt), output);
    case kReadInfo:
        return readInfo(key, output);
    case kKeyAtIndex:
    {
        const uint32_t index = wordAt(input, kArgumentAt);
        uint32_t found = 0;
        if (index >= m_count)
            return kIOReturnNotFound;
        const IOReturn result = keyAt(index, found);
        putWord(output, kKeyAt, found);
        return result;
    }
    default:
        return kIOReturnUnsupported;
    }
}
} // namespace kiv::iokit
