// kivcs2 doctor: the parts of this machine that the library uses, those that are missing, and how to install
// them.
#include "Failure.h"
#include "Terminal/Output.h"
#include "Words/Discovery.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCS2Semaphore.h>
#include <KIVCoreServices2/KIVCS2SharedMemory.h>
#include <KIVCoreServices2/KIVCS2SystemInfo.h>

#include <CoreFoundation/CoreFoundation.h>

#include <dlfcn.h>
#if defined(__aarch64__)
#include <sys/auxv.h>
#endif
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

namespace tool
{
namespace
{

enum class State
{
    Good,
    Limited, ///< works, but with less or more slowly
    Absent,  ///< only some machines have or need it
    Missing, ///< operations fail
};
constexpr std::array kStateNames = {"good", "limited", "absent", "missing"};

struct Finding
{
    State state;
    std::string found;
    std::string remedy; ///< how to mend it; may be empty
};

struct Check
{
    const char *name;
    Finding (*look)();
};

std::string stateName(State state)
{
    return kStateNames[static_cast<size_t>(state)];
}

std::string refusal(KIVCS2Status status, int error)
{
    return (error != 0 ? std::string{std::strerror(error)} + ", " : std::string{}) + statusText(status);
}

Finding lookAtVectors()
{
#if defined(__x86_64__)
    // The checks that the library makes before it uses its vector paths.
    const bool carryless = __builtin_cpu_supports("pclmul");
    const bool sse42 = __builtin_cpu_supports("sse4.2") && carryless;
    const bool avx2 = sse42 && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2");
    const bool avx512 = avx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                        __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") &&
                        __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vnni") &&
                        __builtin_cpu_supports("vpclmulqdq");
    if (avx2)
        return {State::Good, avx512 ? "AVX-512" : "AVX2", ""};
    return {State::Limited, sse42 ? "SSE4.2" : "none that is used",
            "on a virtual machine, hand the host's processor model through"};
#elif defined(__aarch64__)
    if ((getauxval(AT_HWCAP) & HWCAP_CRC32) != 0)
        return {State::Good, "NEON", ""};
    return {State::Limited, "NEON, no CRC-32 instructions",
            "on a virtual machine, hand the host's processor model through"};
#else
    return {State::Limited, "none that is used on this processor", ""};
#endif
}

Finding lookAtMachine()
{
    uint64_t free = 0;
    uint64_t resident = 0;
    const KIVCS2Status status =
        kivCS2SystemInfo_getRAMUsage(&free, nullptr, nullptr, nullptr, &resident, nullptr);
    if (KIVCS2_FAILED(status))
        return {State::Missing, statusText(status), "mount /proc"};
    return {State::Good, print("%.1f GiB free", static_cast<double>(free) / (1u << 30)), ""};
}

// Makes a private segment, which no other process can find.
Finding lookAtSharedMemory()
{
    KIVCS2SharedMemory segment{};
    const KIVCS2Status status = kivCS2SharedMemory_init(&segment, 0, 4096, true);
    const int error = segment.m_error;
    (void)kivCS2SharedMemory_free(&segment); // not null: cannot fail
    if (KIVCS2_FAILED(status))
        return {State::Missing, refusal(status, error),
                "free segments (kivcs2 shm show), or raise kernel.shmmni, shmall and shmmax (sysctl -w)"};
    shminfo limits{};
    shm_info use{};
    (void)::shmctl(0, IPC_INFO, reinterpret_cast<shmid_ds *>(&limits)); // zeros if it fails
    (void)::shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds *>(&use));
    constexpr double kBytesPerGigabyte = 1u << 30;
    const double largest = static_cast<double>(limits.shmmax) / kBytesPerGigabyte;
    return {State::Good,
            print("%d of %lu segments used, ", use.used_ids, limits.shmmni) +
                (largest > 1e6 ? std::string{"of any size"} : print("of %.1f GiB at most", largest)),
            ""};
}

Finding lookAtSemaphores()
{
    KIVCS2Semaphore semaphore{};
    errno = 0;
    const KIVCS2Status status = kivCS2Semaphore_init(&semaphore, nullptr);
    const int error = errno;
    if (KIVCS2_FAILED(status))
        return {State::Missing, refusal(status, error),
                "mount a file system with room on /dev/shm (mount -t tmpfs tmpfs /dev/shm -o mode=1777)"};
    (void)kivCS2Semaphore_free(&semaphore); // initialised: cannot fail
    return {State::Good, "in /dev/shm", ""};
}

struct Release
{
    void operator()(const void *object) const
    {
        CFRelease(object);
    }
};
template <class Ref>
using Owned = std::unique_ptr<std::remove_pointer_t<Ref>, Release>;

// ICU writes dates, and its data is a separate file.
Finding lookAtDates()
{
    Finding missing{State::Missing, "dates and calendars cannot be written", "apt-get install libicu72"};
    const Owned<CFStringRef> pattern{CFStringCreateWithCString(nullptr, "yyyy-MM-dd", kCFStringEncodingUTF8)};
    const Owned<CFDateFormatterRef> formatter{
        CFDateFormatterCreate(nullptr, nullptr, kCFDateFormatterNoStyle, kCFDateFormatterNoStyle)};
    if (!pattern || !formatter)
        return missing;
    CFDateFormatterSetFormat(formatter.get(), pattern.get());
    constexpr double kNoonOfTheFirstDay = 43200;
    const Owned<CFStringRef> text{
        CFDateFormatterCreateStringWithAbsoluteTime(nullptr, formatter.get(), kNoonOfTheFirstDay)};
    std::array<char, 32> bytes{};
    if (!text || !CFStringGetCString(text.get(), bytes.data(), bytes.size(), kCFStringEncodingUTF8) ||
        !std::string_view{bytes.data()}.starts_with("2001-01-0")) // the day depends on the zone
        return missing;
    return {State::Good, "dates by ICU", ""};
}

Finding lookAtRunLoop()
{
    void *library = ::dlopen("libglib-2.0.so.0", RTLD_LAZY | RTLD_LOCAL);
    if (library == nullptr)
        return {State::Missing, "no run loop", "apt-get install libglib2.0-0"};
    const auto number = [library](const char *name)
    {
        const auto *value = static_cast<const unsigned *>(::dlsym(library, name));
        return value != nullptr ? *value : 0;
    };
    const std::string version = print("GLib %u.%u.%u", number("glib_major_version"),
                                      number("glib_minor_version"), number("glib_micro_version"));
    ::dlclose(library);
    return {State::Good, version, ""};
}

bool answers(const char *path, int type)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int socket = ::socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const bool connected =
        socket >= 0 && ::connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    if (socket >= 0)
        ::close(socket);
    return connected;
}

Finding lookAtDiscovery()
{
    if (answers("/run/avahi-daemon/socket", SOCK_STREAM))
        return {State::Good, "the Avahi daemon runs", ""};
    if (!canDiscover())
        return {State::Missing, "neither the Avahi daemon nor its libraries, or no descriptors",
                "apt-get install avahi-daemon libavahi-core7"};
    return {State::Limited, "no Avahi daemon: each program is its own",
            "apt-get install avahi-daemon, which the programs of a machine share"};
}

Finding lookAtLog()
{
    if (answers("/dev/log", SOCK_DGRAM) || answers("/dev/log", SOCK_STREAM))
        return {State::Good, "the system log takes messages", ""};
    return {State::Limited, "no system log: messages of the library are lost",
            "KIV_LOG_STDERR=1 shows them on standard error; or apt-get install rsyslog"};
}

// The driver's folder, under the bus that found the controller, lists its devices.
Finding lookAtSensors()
{
    for (const char *driver : {"/sys/bus/platform/drivers/applesmc", "/sys/bus/acpi/drivers/applesmc"})
    {
        std::error_code ignored;
        for (const auto &device : std::filesystem::directory_iterator{driver, ignored})
        {
            const auto keys = device.path() / "key_count";
            if (::access(keys.c_str(), F_OK) != 0)
                continue;
            // Reading a key begins with writing its index.
            if (::access((device.path() / "key_at_index").c_str(), W_OK) == 0)
                return {State::Good, "applesmc", ""};
            return {State::Limited, "applesmc, which this user may not ask", "run as root"};
        }
    }
    return {State::Absent, "no applesmc device", "modprobe applesmc, on a machine that has the controller"};
}

Finding lookAtResources()
{
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    for (const auto &place :
         {program.parent_path() / "Resources", program.parent_path() / ".." / "share" / program.filename()})
        if (!error && std::filesystem::is_directory(place, error))
            return {State::Good, place.lexically_normal().string(), ""};
    return {State::Absent, "this program has none",
            "a host finds its own in Resources/ next to it, or in ../share/<its name>/"};
}

constexpr std::array kChecks = {
    Check{"Vector instructions", lookAtVectors},
    Check{"Machine figures", lookAtMachine},
    Check{"Shared memory", lookAtSharedMemory},
    Check{"Semaphores", lookAtSemaphores},
    Check{"Dates", lookAtDates},
    Check{"Run loop", lookAtRunLoop},
    Check{"Service discovery", lookAtDiscovery},
    Check{"System log", lookAtLog},
    Check{"Sensors", lookAtSensors},
    Check{"Resources", lookAtResources},
};

Shown coloured(State state)
{
    const std::string name = stateName(state);
    return state == State::Good ? Output::good(name) : state == State::Missing ? Output::bad(name) : name;
}

int examine(bool json)
{
    bool isComplete = true;
    Json checks = Json::array();
    Table table{"What", "State", "Found"};
    std::vector<std::string> remedies;
    for (const Check &check : kChecks)
    {
        const Finding finding = check.look();
        isComplete = isComplete && finding.state != State::Missing;
        table.add({check.name, coloured(finding.state), finding.found});
        if (!finding.remedy.empty())
            remedies.push_back(check.name + (": " + finding.remedy));
        checks.push_back({{"name", check.name},
                          {"state", stateName(finding.state)},
                          {"found", finding.found},
                          {"remedy", finding.remedy.empty() ? Json{} : Json(finding.remedy)}});
    }
    if (json)
        out().json({{"complete", isComplete}, {"checks", checks}});
    else
    {
        table.print();
        if (!remedies.empty())
            out().line("");
        for (const std::string &remedy : remedies)
            out().line(remedy);
    }
    return isComplete ? kExitYes : kExitNo;
}

} // namespace

void addDoctorCommand(Word &root, Context &context)
{
    Word &word = root.word("doctor", "What this machine offers the library, and what is missing");
    word.group(kGroupMachine);
    word.about(
        "Prints each check with its state and result, and then the remedies. Exit code 1: something is\n"
        "missing without which operations fail.");
    word.example("kivcs2 doctor");
    word.runs([&context] { return examine(context.json); });
}

} // namespace tool
