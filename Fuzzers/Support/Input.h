// The rest of a fuzz input, taken from its front; past its end come zeros.
#ifndef KIV_FUZZ_INPUT_H
#define KIV_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

struct Input
{
    const uint8_t *data = nullptr;
    size_t size = 0;

    // At most as many bytes as there are.
    std::span<const uint8_t> bytes(size_t count)
    {
        const std::span<const uint8_t> taken{data, std::min(count, size)};
        data += taken.size();
        size -= taken.size();
        return taken;
    }
    template <class T = uint8_t>
    T take()
    {
        T value{};
        std::ranges::copy(bytes(sizeof value), reinterpret_cast<uint8_t *>(&value));
        return value;
    }
};

#endif
