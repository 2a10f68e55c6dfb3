// CRC-32 in every way that this machine has, compared with the plain loop.
#include "Private/Support/Crc32.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <vector>

namespace
{
uint32_t plain(uint32_t crc, const uint8_t *data, size_t length)
{
    for (size_t index = 0; index < length; ++index)
    {
        crc ^= data[index];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1u) != 0 ? 0xEDB88320u : 0u);
    }
    return crc;
}

std::vector<uint8_t> randomBytes(size_t size)
{
    std::mt19937 random{7};
    std::vector<uint8_t> bytes(size);
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>(random());
    return bytes;
}

class Crc32 : public testing::TestWithParam<kiv::Crc32Kind>
{
protected:
    void SetUp() override
    {
        if (GetParam() > kiv::crc32Kind())
            GTEST_SKIP() << "not on this machine";
    }
    kiv::Crc32Update update = kiv::crc32UpdateOf(GetParam());
};

// The data fills its block, so that AddressSanitizer detects a read past either end.
TEST_P(Crc32, EveryLengthEqualsThePlainLoop)
{
    constexpr size_t kLongest = 4200;
    const std::vector<uint8_t> bytes = randomBytes(kLongest);
    constexpr uint32_t kSeed = 0x12345678u;
    for (size_t length = 0; length <= kLongest; ++length)
    {
        const std::vector<uint8_t> exact(bytes.end() - static_cast<ptrdiff_t>(length), bytes.end());
        ASSERT_EQ(update(kSeed, exact.data(), length), plain(kSeed, exact.data(), length)) << length;
    }
}

TEST_P(Crc32, EveryAlignmentAndSplitGivesTheSame)
{
    std::mt19937 random{11};
    for (const size_t size : {size_t{0}, size_t{3}, size_t{17}, size_t{82}, size_t{1500}, size_t{5000},
                              (size_t{1} << 20) + 77, (size_t{3} << 20) + 1})
    {
        const std::vector<uint8_t> bytes = randomBytes(size + 64);
        for (size_t offset = 0; offset<64; offset += size> 100000 ? 21 : 1)
        {
            const uint8_t *data = bytes.data() + offset;
            const uint32_t whole = plain(0xFFFFFFFFu, data, size);
            ASSERT_EQ(update(0xFFFFFFFFu, data, size), whole) << size << " at " << offset;

            uint32_t crc = 0xFFFFFFFFu;
            for (size_t done = 0; done < size;)
            {
                const size_t chunk = std::min<size_t>(random() % (size / 3 + 2), size - done);
                crc = update(crc, data + done, chunk);
                done += chunk;
            }
            ASSERT_EQ(crc, whole) << size << " in pieces at " << offset;
        }
    }
}

std::string kindName(const testing::TestParamInfo<kiv::Crc32Kind> &kind)
{
    constexpr std::array kNames = {"Portable", "PclmulOrCrc32", "Vpclmul512OrPmull"};
    return kNames[static_cast<size_t>(kind.param)];
}

INSTANTIATE_TEST_SUITE_P(Kinds, Crc32,
                         testing::Values(kiv::Crc32Kind::portable, kiv::Crc32Kind::pclmul,
                                         kiv::Crc32Kind::vpclmul512),
                         kindName);

TEST(Crc32Dispatch, TakesTheBestKind)
{
    const std::vector<uint8_t> bytes = randomBytes(1000);
    EXPECT_EQ(kiv::crc32Update(1, bytes.data(), bytes.size()), plain(1, bytes.data(), bytes.size()));
    EXPECT_EQ(kiv::crc32Update(1, bytes.data(), 99), plain(1, bytes.data(), 99));
}
} // namespace
