// The rest of a fuzz input, read from its front, with zeros past its end.
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

    // Returns at most the bytes that are left.
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
