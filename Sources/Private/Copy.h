// Copies of runs whose length is known when they are made: short ones without a call.
#ifndef KIV_PRIVATE_COPY_H
#define KIV_PRIVATE_COPY_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kiv
{
// Above this many bytes a call of the system's copy costs little beside the copying.
constexpr size_t kShortCopy = 256;

// One block of `Size` bytes in registers.
template <size_t Size>
struct CopyBlock
{
    unsigned char bytes[Size];
};

// The first and the last `Size` bytes of a run of `Size` to `2 * Size`; all is read before anything is written.
template <size_t Size>
inline void copyEnds(unsigned char *to, const unsigned char *from, size_t count) noexcept
{
    CopyBlock<Size> first;
    CopyBlock<Size> last;
    std::memcpy(&first, from, Size);
    std::memcpy(&last, from + count - Size, Size);
    std::memcpy(to, &first, Size);
    std::memcpy(to + count - Size, &last, Size);
}

// memcpy() for runs that are mostly short.
inline void copyBytes(void *destination, const void *source, size_t count) noexcept
{
    auto *to = static_cast<unsigned char *>(destination);
    const auto *from = static_cast<const unsigned char *>(source);
    if (count > kShortCopy)
    {
        std::memcpy(to, from, count);
        return;
    }
    if (count >= 32)
    {
        for (; count > 64; count -= 32, to += 32, from += 32)
            std::memcpy(to, from, 32);
        copyEnds<32>(to, from, count);
        return;
    }
    if (count >= 16)
        copyEnds<16>(to, from, count);
    else if (count >= 8)
        copyEnds<8>(to, from, count);
    else if (count >= 4)
        copyEnds<4>(to, from, count);
    else if (count >= 2)
        copyEnds<2>(to, from, count);
    else if (count == 1)
        *to = *from;
}
} // namespace kiv

#endif
