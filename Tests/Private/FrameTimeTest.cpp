// Absolute time with time bases that this machine does not have.
#include "Private/Support/Frame.h"

#include <gtest/gtest.h>

namespace
{
class TimeBase : public testing::Test
{
protected:
    ~TimeBase() override
    {
        timebaseInfo = m_saved;
    }

private:
    mach_timebase_info_data_t m_saved = timebaseInfo;
};

TEST_F(TimeBase, MultipliesFirstAndThenDividesDown)
{
    timebaseInfo = {125, 3};
    EXPECT_EQ(kivCS2AbsoluteToNanoseconds(3), 125u);
    EXPECT_EQ(kivCS2AbsoluteToNanoseconds(1), 41u);
    EXPECT_EQ(kivCS2AbsoluteToNanoseconds(24000000), 1000000000u);
}

TEST_F(TimeBase, ProductWrapsAt64Bits)
{
    timebaseInfo = {125, 3};
    constexpr uint64_t kLastExact = UINT64_MAX / 125;
    EXPECT_EQ(kivCS2AbsoluteToNanoseconds(kLastExact), kLastExact * 125 / 3);
    EXPECT_EQ(kivCS2AbsoluteToNanoseconds(kLastExact + 1), (125 - 1 - UINT64_MAX % 125) / 3);
}
} // namespace
