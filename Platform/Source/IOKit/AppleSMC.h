// The system management controller through the files of the kernel's applesmc driver.
#ifndef KIV_PLATFORM_APPLE_SMC_H
#define KIV_PLATFORM_APPLE_SMC_H

#include <IOKit/IOReturn.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kiv::iokit
{
// The folder of the driver's files. Plain files need `indexWritten`, see KIVPSetSMCFolder().
struct Driver
{
    const char *folder;                 // null: the folder of the machine's driver
    void (*indexWritten)(const char *); // may be null
};

// One connection. The driver keeps one selected key for the whole machine, so the calls of all connections,
// also in other processes with this library, run one after the other.
class AppleSMC
{
public:
    // Bytes of a call's structure, in both directions.
    static constexpr size_t kCallSize = 80;

    [[nodiscard]] static bool isThere(const Driver &driver) noexcept;
    [[nodiscard]] static IOReturn open(const Driver &driver, std::unique_ptr<AppleSMC> &opened) noexcept;

    AppleSMC(const AppleSMC &) = delete;
    AppleSMC &operator=(const AppleSMC &) = delete;
    ~AppleSMC();

    [[nodiscard]] IOReturn call(const uint8_t *input, uint8_t *output) noexcept;

private:
    explicit AppleSMC(const Driver &driver) noexcept : m_driver{driver} {}

    template <class Read>
    [[nodiscard]] IOReturn choose(uint32_t index, Read read) const noexcept;
    template <class Read>
    [[nodiscard]] IOReturn chooseKey(uint32_t key, Read read) noexcept;
    [[nodiscard]] IOReturn keyAt(uint32_t index, uint32_t &key) noexcept;
    [[nodiscard]] IOReturn find(uint32_t key, uint32_t &index) noexcept;
    [[nodiscard]] IOReturn readInfo(uint32_t key, uint8_t *output) noexcept;
    [[nodiscard]] IOReturn readData(uint32_t key, uint32_t size, uint8_t *output) noexcept;

    Driver m_driver;
    int m_folder = -1;
    uint32_t m_count = 0;
    std::unique_ptr<uint32_t[]> m_keys; // 0: not read yet
};
} // namespace kiv::iokit

#endif
