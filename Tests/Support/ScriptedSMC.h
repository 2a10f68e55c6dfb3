// A simulated system management controller: keys with their types and bytes, and calls that fail.
#ifndef KIV_TEST_SCRIPTED_SMC_H
#define KIV_TEST_SCRIPTED_SMC_H

#include <KIVPlatform/KIVPAppleSMC.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace kiv::test
{
// The structure of one call of the service.
struct SMCCall
{
    uint32_t key;
    std::array<uint8_t, 24> notRead;
    uint32_t dataSize;
    uint32_t dataType;
    std::array<uint8_t, 6> attributesResultStatus;
    uint8_t command;
    uint8_t padding;
    uint32_t argument;
    std::array<uint8_t, 32> data;
};
static_assert(sizeof(SMCCall) == 80);

struct ScriptedKey
{
    std::string name;
    std::string type;
    std::vector<uint8_t> bytes;
    uint32_t claimedSize = 0;   // 0: the real number
    uint8_t failingCommand = 0; // 9 reads its info, 5 reads its data
};

// Replaces the controller of the machine during its lifetime.
class ScriptedSMC
{
public:
    explicit ScriptedSMC(std::vector<ScriptedKey> keys) : m_keys{std::move(keys)}
    {
        install();
    }
    ScriptedSMC(const ScriptedSMC &) = delete;
    ScriptedSMC &operator=(const ScriptedSMC &) = delete;
    ~ScriptedSMC()
    {
        KIVPSetSMCController(nullptr);
    }

    void answer(kern_return_t masterPort, kern_return_t matching, kern_return_t open)
    {
        m_controller.masterPort = masterPort;
        m_controller.matching = matching;
        m_controller.open = open;
        install();
    }
    // The value of "#KEY" instead of the number of keys.
    void claim(std::vector<uint8_t> numberOfKeys)
    {
        m_number = std::move(numberOfKeys);
    }
    std::vector<ScriptedKey> &keys()
    {
        return m_keys;
    }
    [[nodiscard]] const SMCCall &lastCall() const
    {
        return m_last;
    }

    static uint32_t pack(const std::string &name)
    {
        uint32_t code = 0;
        for (size_t index = 0; index < 4; ++index)
            code = code << 8 | (index < name.size() ? static_cast<uint8_t>(name[index]) : 0u);
        return code;
    }

private:
    void install()
    {
        m_controller.method = &ScriptedSMC::call;
        m_controller.context = this;
        KIVPSetSMCController(&m_controller);
    }

    [[nodiscard]] ScriptedKey numberOfKeys() const
    {
        const auto count = static_cast<uint32_t>(m_keys.size());
        std::vector<uint8_t> bytes = m_number;
        for (int shift = 24; m_number.empty() && shift >= 0; shift -= 8)
            bytes.push_back(static_cast<uint8_t>(count >> shift));
        return {"#KEY", "ui32", bytes};
    }

    kern_return_t answerTo(const SMCCall &input, SMCCall &output)
    {
        output = {};
        if (input.command == 8)
        {
            if (input.argument >= m_keys.size())
                return kIOReturnNotFound;
            output.key = pack(m_keys[input.argument].name);
            return kIOReturnSuccess;
        }
        const auto found = std::find_if(m_keys.begin(), m_keys.end(),
                                        [&](const ScriptedKey &key) { return pack(key.name) == input.key; });
        if (found == m_keys.end() && input.key != pack("#KEY"))
            return kIOReturnNotFound;
        const ScriptedKey key = found != m_keys.end() ? *found : numberOfKeys();
        if (key.failingCommand == input.command)
            return kIOReturnIOError;
        if (input.command == 9)
        {
            output.dataSize =
                key.claimedSize != 0 ? key.claimedSize : static_cast<uint32_t>(key.bytes.size());
            output.dataType = pack(key.type);
        }
        else
            std::copy_n(key.bytes.begin(), std::min<size_t>(key.bytes.size(), 32), output.data.begin());
        return kIOReturnSuccess;
    }

    static kern_return_t call(void *context, uint32_t selector, const void *input, size_t inputSize,
                              void *output, size_t *outputSize)
    {
        if (selector != 2 || inputSize != sizeof(SMCCall) || *outputSize != sizeof(SMCCall))
            return kIOReturnBadArgument;
        auto *self = static_cast<ScriptedSMC *>(context);
        SMCCall answered{};
        std::memcpy(&self->m_last, input, sizeof self->m_last);
        const kern_return_t result = self->answerTo(self->m_last, answered);
        if (result == kIOReturnSuccess)
            std::memcpy(output, &answered, sizeof answered);
        return result;
    }

    std::vector<ScriptedKey> m_keys;
    std::vector<uint8_t> m_number;
    KIVPSMCController m_controller{};
    SMCCall m_last{};
};
} // namespace kiv::test

#endif
