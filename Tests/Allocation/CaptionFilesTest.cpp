// Packets, lines and reading take no memory. A date, a header with its UUID and two dates, and a retimer do,
// and each of these allocations may fail.
#include "CaptionFile.h"
#include "FailingAllocator.h"

#include <KIVCoreServices2/KIVCS2CaptionRetime.h>
#include <KIVCoreServices2/KIVCS2String.h>

#include <gtest/gtest.h>

#include <array>

namespace
{
using namespace kiv::test;

TEST(CaptionFiles, EveryAllocationOfAHeaderMayFail)
{
    ASSERT_OK(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25));
    size_t failures = 0;
    const size_t allocations = forEachAllocation(
        [&](size_t index)
        {
            std::array<char, 8192> room{};
            KIVCS2MemoryStream memory;
            EXPECT_OK(kivCS2MemoryStream_initWithBytes(&memory, room.data(), room.size()));
            KIVCS2ClosedCaptionsMCCStream mcc;
            EXPECT_OK(kivCS2ClosedCaptionsMCCStream_init(&mcc, &memory.m_stream, false, false));
            const KIVCS2Status status =
                kivCS2ClosedCaptionsMCCStream_writeHeader(&mcc, 1, nullptr, "app", nullptr, nullptr);
            if (!allocationFailed())
            {
                EXPECT_OK(status) << index;
            }
            failures += KIVCS2_FAILED(status) ? 1 : 0;
            EXPECT_TRUE(std::string_view{room.data()}.starts_with("File Format=MacCaption_MCC V1.0\n"));
            allowAllocations();
            // The record still works: the next header is whole.
            EXPECT_OK(kivCS2ClosedCaptionsMCCStream_writeHeader(&mcc, 1, "u", "app", "d", "t"));
            EXPECT_OK(kivCS2ClosedCaptionsMCCStream_free(&mcc));
            EXPECT_OK(kivCS2MemoryStream_free(&memory.m_stream));
        });
    EXPECT_GE(allocations, 3u);
    EXPECT_GE(failures, 3u); // a UUID, a date, a time
}

TEST(CaptionFiles, ReadingAllocatesNothing)
{
    ASSERT_OK(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25));
    CaptionFile mccFile{"File Format=MacCaption_MCC V1.0\n00:00:01:00\tT01\n00:00:02:00\tT02"};
    CaptionFile sccFile{"Scenarist_SCC V1.0\n00:00:01:00\t9420\n00:00:02:00\t942f"};
    const KIVCS2Timecode second = frame(50);
    KIVCS2ClosedCaption caption;
    failAllocation(0);
    EXPECT_OK(kivCS2ClosedCaptionsMCCStream_readHeader(&mccFile.mcc));
    EXPECT_OK(kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode(&mccFile.mcc, &second, &caption));
    EXPECT_OK(kivCS2ClosedCaptionsMCCStream_reset(&mccFile.mcc));
    EXPECT_OK(kivCS2ClosedCaptionsSCCStream_readHeader(&sccFile.mcc));
    EXPECT_OK(kivCS2ClosedCaptionsSCCStream_readCaptionForTimecode(&sccFile.mcc, &second, &caption));
    EXPECT_FALSE(allocationFailed());
    allowAllocations();
}

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
    EXPECT_OK(kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE291MStream(
        &memory.m_stream, KIVCS2CaptionANCFormat_8Bit, false, packet, &size));
    size = sizeof text;
    EXPECT_EQ(kivCS2ClosedCaptions_readLine(&memory.m_stream, text, &size), KIVCS2STATUS_NO_DATA_ERR);
    EXPECT_OK(kivCS2ClosedCaptions_decodeCEA608CCPair(0x1D, 0x28, text));
    EXPECT_FALSE(allocationFailed());
    allowAllocations();
}

// A packet that was refused without memory is accepted the next time.
TEST(CaptionRetime, EveryAllocationMayFailAndNothingIsLost)
{
    KIVCS2CaptionPacket packet{};
    for (uint8_t index = 0; index < 30; ++index)
        packet.m_triplets[index][0] = 0xFC + index % 3, packet.m_triplets[index][1] = 'a';
    packet.m_tripletCount = 30;
    const KIVCS2CaptionRetimeOptions options{4, 7, 0, 0, 0, 0, {}};
    const auto onPacket = [](const KIVCS2CaptionPacket *, void *) { return KIVCS2Status{KIVCS2STATUS_OK}; };
    size_t failures = 0;
    forEachAllocation(
        [&](size_t)
        {
            KIVCS2CaptionRetime retime;
            KIVCS2Status status = kivCS2CaptionRetime_init(&retime, &options, onPacket, nullptr);
            KIVCS2CaptionRetimeReport report{};
            failures += status == KIVCS2STATUS_MEMORY_ERR ? 1 : 0;
            for (size_t fed = 0; KIVCS2_SUCCEEDED(status) && fed < 30;)
                ++(kivCS2CaptionRetime_feed(&retime, &packet) == KIVCS2STATUS_OK ? fed : failures);
            status = KIVCS2_SUCCEEDED(status) ? kivCS2CaptionRetime_finish(&retime, &report) : status;
            EXPECT_EQ(report.m_pairsOut[0] + report.m_bytesOut, KIVCS2_SUCCEEDED(status) ? 900u : 0u);
            EXPECT_OK(kivCS2CaptionRetime_free(&retime));
        });
    EXPECT_EQ(failures, 1u + 3 * 3); // the record, and three queues that are made and grow twice
}
} // namespace
