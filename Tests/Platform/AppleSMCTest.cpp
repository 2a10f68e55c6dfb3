// The AppleSMC service over files like those of the applesmc driver.
#include <IOKit/IOKitLib.h>
#include <KIVPlatform/KIVPAppleSMC.h>

#include <CoreFoundation/CoreFoundation.h>

#include "ScriptedSMC.h"
#include "TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace
{
using namespace kiv::test;

std::vector<ScriptedKey> g_keys;
std::atomic<int> g_intruders; // choices of a key that another program changes before the read

// Acts as the kernel when an index is written.
void follow(const char *folder)
{
    const std::filesystem::path path{folder};
    const auto write = [&](const char *name, const std::string &text) {
        std::ofstream{path / name, std::ios::binary} << text;
    };
    size_t index = 0;
    std::ifstream{path / "key_at_index"} >> index;
    if (g_intruders > 0)
    {
        --g_intruders;
        index = 0;
        write("key_at_index", "0\n");
    }
    const ScriptedKey &key = g_keys.at(index);
    write("key_at_index_name", key.name + "\n");
    write("key_at_index_type", key.type + "\n");
    write("key_at_index_data_length", std::to_string(key.bytes.size()) + "\n");
    write("key_at_index_data", std::string{key.bytes.begin(), key.bytes.end()});
}

class Driver : public testing::Test
{
protected:
    Driver() : m_path{m_folder.path("")}
    {
        g_keys = {{"#KEY", "ui32", {0, 0, 0, 9}},
                  {"FS! ", "ui16", {0x80, 1}},
                  {"TC0c", "sp78", {0x2a, '\n'}},
                  {"Zero", "ui8", {7}}, // the driver omits the zero byte of "ui8\0"
                  {"Long", "ch8*", std::vector<uint8_t>(32, 0xff)}};
        g_intruders = 0;
        m_folder.write("key_count", std::to_string(g_keys.size()) + "\n");
        m_folder.write("key_at_index", "0\n");
        KIVPSetSMCFolder(m_path.c_str(), follow);
    }
    ~Driver() override
    {
        KIVPSetSMCFolder(nullptr, nullptr);
        EXPECT_EQ(KIVPCountIOObjects(), 0u);
    }

    static io_service_t service()
    {
        mach_port_t port = MACH_PORT_NULL;
        io_iterator_t services = IO_OBJECT_NULL;
        EXPECT_EQ(IOMasterPort(MACH_PORT_NULL, &port), KERN_SUCCESS);
        EXPECT_EQ(IOServiceGetMatchingServices(port, IOServiceMatching("AppleSMC"), &services),
                  kIOReturnSuccess);
        const io_service_t found = IOIteratorNext(services);
        EXPECT_EQ(IOIteratorNext(services), IO_OBJECT_NULL);
        EXPECT_EQ(IOObjectRelease(services), kIOReturnSuccess);
        return found;
    }
    static kern_return_t open(io_connect_t &connection)
    {
        const io_service_t found = service();
        EXPECT_NE(found, IO_OBJECT_NULL);
        const kern_return_t result = IOServiceOpen(found, mach_task_self(), 0, &connection);
        EXPECT_EQ(IOObjectRelease(found), kIOReturnSuccess);
        EXPECT_EQ(IOObjectRelease(found), kIOReturnBadArgument);
        return result;
    }
    static kern_return_t call(io_connect_t connection, uint8_t command, const std::string &key,
                              uint32_t argument, SMCCall &output)
    {
        SMCCall input{};
        input.key = ScriptedSMC::pack(key);
        input.command = command;
        input.argument = input.dataSize = argument;
        size_t size = sizeof output;
        return IOConnectCallStructMethod(connection, 2, &input, sizeof input, &output, &size);
    }

    TemporaryFolder m_folder;
    std::string m_path;
};
} // namespace

TEST_F(Driver, TellsEveryKeyByIndexAndName)
{
    io_connect_t connection = IO_OBJECT_NULL;
    ASSERT_EQ(open(connection), kIOReturnSuccess);
    SMCCall output{};
    // By name before any index is read, the last one first.
    ASSERT_EQ(call(connection, 5, "Long", 32, output), kIOReturnSuccess);
    EXPECT_EQ(output.data[31], 0xff);
    for (uint32_t index = 0; index < g_keys.size(); ++index)
    {
        const ScriptedKey &key = g_keys[index];
        SCOPED_TRACE(key.name);
        ASSERT_EQ(call(connection, 8, "", index, output), kIOReturnSuccess);
        EXPECT_EQ(output.key, ScriptedSMC::pack(key.name));
        ASSERT_EQ(call(connection, 9, key.name, 0, output), kIOReturnSuccess);
        EXPECT_EQ(output.dataType, ScriptedSMC::pack(key.type));
        EXPECT_EQ(output.dataSize, key.bytes.size());
        if (index == 0)
            continue;
        ASSERT_EQ(call(connection, 5, key.name, 2, output), kIOReturnSuccess);
        EXPECT_EQ(output.data[0], key.bytes[0]);
        EXPECT_EQ(output.data[1], key.bytes.size() > 1 ? key.bytes[1] : 0);
        EXPECT_EQ(output.data[2], 0);
    }
    // The number of keys has its own file.
    ASSERT_EQ(call(connection, 5, "#KEY", 4, output), kIOReturnSuccess);
    EXPECT_EQ(output.data[3], g_keys.size());

    EXPECT_EQ(call(connection, 8, "", 5, output), kIOReturnNotFound);
    EXPECT_EQ(call(connection, 9, "None", 0, output), kIOReturnNotFound);
    EXPECT_EQ(call(connection, 5, "None", 1, output), kIOReturnNotFound);
    EXPECT_EQ(call(connection, 6, "TC0c", 1, output), kIOReturnUnsupported);
    size_t size = 79;
    EXPECT_EQ(IOConnectCallStructMethod(connection, 2, &output, 80, &output, &size), kIOReturnBadArgument);
    size = 80;
    EXPECT_EQ(IOConnectCallStructMethod(connection, 1, &output, 80, &output, &size), kIOReturnBadArgument);
    EXPECT_EQ(IOObjectRelease(connection), kIOReturnBadArgument);
    EXPECT_EQ(IOServiceClose(connection), kIOReturnSuccess);
    EXPECT_EQ(IOServiceClose(connection), kIOReturnBadArgument);
    EXPECT_EQ(call(connection, 5, "#KEY", 4, output), kIOReturnBadArgument);
}

TEST_F(Driver, AChoiceThatAnotherProgramChangedIsMadeAgain)
{
    io_connect_t connection = IO_OBJECT_NULL;
    ASSERT_EQ(open(connection), kIOReturnSuccess);
    SMCCall output{};
    g_intruders = 2;
    ASSERT_EQ(call(connection, 8, "", 2, output), kIOReturnSuccess);
    EXPECT_EQ(output.key, ScriptedSMC::pack("TC0c"));
    g_intruders = 2;
    ASSERT_EQ(call(connection, 5, "TC0c", 2, output), kIOReturnSuccess);
    EXPECT_EQ(output.data[0], 0x2a);
    g_intruders = 1000;
    EXPECT_EQ(call(connection, 5, "TC0c", 2, output), kIOReturnIOError);
    EXPECT_EQ(IOServiceClose(connection), kIOReturnSuccess);
}

// Any user may open the file for reading, which is enough to lock it.
TEST_F(Driver, ALockThatIsNeverGivenBackStopsNobody)
{
    const int file = ::open(m_folder.path("key_at_index").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(file, LOCK_EX), 0);
    io_connect_t connection = IO_OBJECT_NULL;
    ASSERT_EQ(open(connection), kIOReturnSuccess);
    SMCCall output{};
    ASSERT_EQ(call(connection, 8, "", 2, output), kIOReturnSuccess);
    EXPECT_EQ(output.key, ScriptedSMC::pack("TC0c"));
    EXPECT_EQ(IOServiceClose(connection), kIOReturnSuccess);
    ::close(file);
}

TEST_F(Driver, FilesThatMakeNoSenseFailTheCall)
{
    const auto expectOpening = [&](const std::string &count, kern_return_t expected)
    {
        SCOPED_TRACE(count);
        m_folder.write("key_count", count);
        io_connect_t connection = IO_OBJECT_NULL;
        EXPECT_EQ(open(connection), expected);
        EXPECT_EQ(connection, IO_OBJECT_NULL);
    };
    expectOpening("", kIOReturnIOError);
    expectOpening("-1\n", kIOReturnIOError);
    expectOpening("5 keys\n", kIOReturnIOError);
    expectOpening("4294967296\n", kIOReturnIOError);
    expectOpening("4294967295\n", kIOReturnNoResources);
    m_folder.write("key_count", "5");

    KIVPSetSMCFolder(m_path.c_str(), nullptr); // files that do not change
    io_connect_t connection = IO_OBJECT_NULL;
    ASSERT_EQ(open(connection), kIOReturnSuccess);
    SMCCall output{};
    EXPECT_EQ(call(connection, 8, "", 1, output), kIOReturnIOError); // no file for the name
    for (const char *name : {"", "\n\n\n\n\n\n", "TC0cx\n", "TC0c"})
    {
        m_folder.write("key_at_index_name", name);
        EXPECT_EQ(call(connection, 8, "", 1, output), kIOReturnIOError) << name;
    }
    m_folder.write("key_at_index_name", "TC0c\n");
    m_folder.write("key_at_index_type", "sp78\n");
    EXPECT_EQ(call(connection, 9, "TC0c", 0, output), kIOReturnIOError); // no length
    EXPECT_EQ(call(connection, 5, "TC0c", 2, output), kIOReturnIOError); // no data
    m_folder.write("key_at_index_data_length", "2\n");
    EXPECT_EQ(call(connection, 9, "TC0c", 0, output), kIOReturnSuccess);
    EXPECT_EQ(IOServiceClose(connection), kIOReturnSuccess);
}

TEST_F(Driver, WithoutItThereIsNoServiceAndOthersAreNotMatched)
{
    mach_port_t port = MACH_PORT_NULL;
    io_iterator_t services = IO_OBJECT_NULL;
    ASSERT_EQ(IOMasterPort(MACH_PORT_NULL, &port), KERN_SUCCESS);
    ASSERT_EQ(IOServiceGetMatchingServices(port, IOServiceMatching("OtherDevice"), &services),
              kIOReturnSuccess);
    EXPECT_EQ(IOIteratorNext(services), IO_OBJECT_NULL);
    EXPECT_EQ(IOObjectRelease(services), kIOReturnSuccess);
    EXPECT_EQ(IOServiceGetMatchingServices(port, nullptr, &services), kIOReturnBadArgument);

    std::filesystem::remove(m_folder.path("key_count"));
    EXPECT_EQ(service(), IO_OBJECT_NULL);
    KIVPSetSMCFolder("/nonexistent", nullptr);
    EXPECT_EQ(service(), IO_OBJECT_NULL);
}

TEST_F(Driver, WhoMayNotChooseAKeyMayNotOpen)
{
    if (geteuid() == 0)
        std::filesystem::remove(m_folder.path("key_at_index")); // root may write any file, so remove it
    else
        chmod(m_folder.path("key_at_index").c_str(), 0444);
    io_connect_t connection = IO_OBJECT_NULL;
    EXPECT_EQ(open(connection), kIOReturnNotPermitted);
}

TEST_F(Driver, ConnectionsOfSeveralThreadsDoNotMixTheirKeys)
{
    std::vector<std::thread> threads;
    for (const char *name : {"FS! ", "TC0c", "Zero"})
        threads.emplace_back(
            [name]
            {
                io_connect_t connection = IO_OBJECT_NULL;
                ASSERT_EQ(open(connection), kIOReturnSuccess);
                SMCCall output{};
                const uint8_t expected = *name == 'F' ? 0x80 : *name == 'T' ? 0x2a : 7;
                for (int turn = 0; turn < 50; ++turn)
                {
                    ASSERT_EQ(call(connection, 5, name, 1, output), kIOReturnSuccess);
                    ASSERT_EQ(output.data[0], expected);
                }
                EXPECT_EQ(IOServiceClose(connection), kIOReturnSuccess);
            });
    for (std::thread &thread : threads)
        thread.join();
}
