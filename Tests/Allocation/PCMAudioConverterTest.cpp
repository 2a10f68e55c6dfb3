// PCM converters when memory runs out.
#include "FailingAllocator.h"

#include <KIVCoreServices2/KIVCS2PCMAudioConverter.h>

#include <gtest/gtest.h>

namespace
{
TEST(PCMAudioConverter, WithoutMemoryThereIsNoConverter)
{
    const AudioStreamBasicDescription input = {48000,
                                               kAudioFormatLinearPCM,
                                               kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked,
                                               4,
                                               1,
                                               4,
                                               2,
                                               16,
                                               0};
    const size_t allocations = kiv::test::forEachAllocation(
        [&input](size_t index)
        {
            KIVCS2PCMAudioConverter converter{};
            EXPECT_EQ(kivCS2PCMAudioConverter_init(&converter, &input, true, false, 24),
                      index == 0 ? KIVCS2STATUS_PARAM_ERR : KIVCS2STATUS_OK);
            EXPECT_EQ(converter.m_converter == nullptr, index == 0);
            EXPECT_EQ(converter.m_inputFormat.mChannelsPerFrame, index == 0 ? 0u : 2u);
            EXPECT_EQ(kivCS2PCMAudioConverter_free(&converter), KIVCS2STATUS_OK);
        });
    EXPECT_EQ(allocations, 1u); // converting takes no memory
}
} // namespace
