// Packets and lines take no memory; a date's every allocation may fail.
#include "FailingAllocator.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>
#include <KIVCoreServices2/KIVCS2MemoryStream.h>
#include <KIVCoreServices2/KIVCS2String.h>

#include <gtest/gtest.h>

namespace
{
using namespace kiv::test;

TEST(CaptionPackets, EveryAllocationOfADateMayFail)
{
    CFStringRef format = CFStringCreateWithCString(nullptr, "HH:mm:ss", kCFStringEncodingASCII);
    ASSERT_NE(format, nullptr);
    const size_t allocations = forEachAllocation(
        [&](size_t index)
        {
            char *text = nullptr;
            const KIVCS2Status status = kivCS2ClosedCaptions_createDateStringWithFormat(format, &text);
            EXPECT_EQ(KIVCS2_FAILED(status), allocationFailed()) << index;
            EXPECT_EQ(text == nullptr, allocationFailed()) << index;
            if (text != nullptr)
                kivCS2String_freeCString(text);
        });
    EXPECT_GE(allocations, 3u); // a locale, a formatter, a text
    CFRelease(format);
}

TEST(CaptionPackets, TakeNoMemory)
{
    uint8_t bytes[] = {0x61, 0x01, 0x01, 0x96, 0xF9, 'a', '\n'};
    KIVCS2MemoryStream memory;
    uint8_t packet[KIVCS2_CDP_SIZE];
    uint32_t size = sizeof packet;
    char text[KIVCS2_CEA608_DESCRIPTION_SIZE];
    failAllocation(0);
    kivCS2MemoryStream_initWithBytes(&memory, bytes, sizeof bytes);
    EXPECT_EQ(kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE291MStream(
                  &memory.m_stream, KIVCS2CaptionANCFormat_8Bit, false, packet, &size),
              KIVCS2STATUS_OK);
    size = sizeof text;
    EXPECT_EQ(kivCS2ClosedCaptions_readLine(&memory.m_stream, text, &size), KIVCS2STATUS_NO_DATA_ERR);
    EXPECT_EQ(kivCS2ClosedCaptions_decodeCEA608CCPair(0x1D, 0x28, text), KIVCS2STATUS_OK);
    EXPECT_FALSE(allocationFailed());
    allowAllocations();
}
} // namespace
