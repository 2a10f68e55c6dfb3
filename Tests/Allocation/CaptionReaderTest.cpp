// Readers, writers and decoders allocate when they are made and when a service of CEA-708 begins, but not for
// a packet. Each of these allocations may fail.
#include "CaptionReading.h"
#include "FailingAllocator.h"

namespace
{
using namespace kiv::test;

KIVCS2Status onText(const KIVCS2CaptionText *, void *)
{
    return KIVCS2STATUS_OK;
}

// A block of service 1 that defines a window.
const KIVCS2CaptionDTVCC kWindow{1, 10, {0x05, 0x28, 0x98, 0x20, 0x8A, 0x05, 0x01, 0x1F, 0x11, 'A'}, {}};

// Writes a file, reads it and decodes it. False if a call failed.
bool goAllTheWay(std::array<char, 32768> &room)
{
    bool good = true;
    const auto take = [&good](KIVCS2Status status)
    {
        good = good && KIVCS2_SUCCEEDED(status);
        return KIVCS2_SUCCEEDED(status);
    };
    KIVCS2MemoryStream memory;
    (void)kivCS2MemoryStream_initWithBytes(&memory, room.data(), room.size()); // a view: never fails
    KIVCS2CaptionFile file{};
    if (take(kivCS2CaptionFile_initWriting(&file, &memory.m_stream, false, KIVCS2CaptionFileKind_MCC1,
                                           KIVCS2CaptionCounting_25, nullptr)) &&
        take(kivCS2CaptionFile_writeHeader(&file, nullptr)))
    {
        for (uint32_t frame = 0; frame < 9; ++frame)
            take(kivCS2CaptionFile_writeCaptions(&file, frame, nullptr, &kWindow));
        take(kivCS2CaptionFile_finish(&file));
    }
    (void)kivCS2CaptionFile_free(&file);
    (void)kivCS2MemoryStream_setPosition(&memory.m_stream, 0, KIVCS2StreamPosition_Start, nullptr);
    KIVCS2CaptionReadOptions options{};
    options.m_order = KIVCS2CaptionOrder_Frame;
    KIVCS2CaptionDecoder decoder{};
    KIVCS2CaptionPacket packet;
    if (take(kivCS2CaptionDecoder_init(&decoder, nullptr, nullptr, onText, nullptr)) &&
        take(kivCS2CaptionFile_initReading(&file, &memory.m_stream, false, &options)))
    {
        KIVCS2Status status = KIVCS2STATUS_OK;
        while (good && KIVCS2_SUCCEEDED(status = kivCS2CaptionFile_readPacket(&file, &packet)))
            take(kivCS2CaptionDecoder_feed(&decoder, &packet));
        good = good && status == KIVCS2STATUS_EOF_ERR;
    }
    (void)kivCS2CaptionFile_free(&file);
    (void)kivCS2CaptionDecoder_free(&decoder);
    (void)kivCS2MemoryStream_free(&memory.m_stream);
    return good;
}

TEST(CaptionReader, EveryAllocationMayFail)
{
    size_t failures = 0;
    const size_t allocations = forEachAllocation(
        [&](size_t)
        {
            std::array<char, 32768> room{};
            const bool good = goAllTheWay(room);
            EXPECT_TRUE(good || allocationFailed());
            failures += good ? 0 : 1;
        });
    EXPECT_GE(failures,
              8u); // writer and its state, UUID, two dates, reader and its state, list, decoder, service
    EXPECT_GE(allocations, failures);
}

// A reader with its index and a decoder for a file of 2 MB; then 29,000 packets and a seek.
TEST(CaptionReader, TakesHalfAMebibyteAndNothingForAPacket)
{
    std::string text = fileText(KIV_TEST_DATA "/pop-on-25.mcc");
    const std::string packets = text.substr(text.find("00:00:0"));
    while (text.size() < 2'000'000)
        text += packets;
    KIVCS2MemoryStream memory;
    ASSERT_EQ(kivCS2MemoryStream_initWithBytes(&memory, text.data(), text.size()), KIVCS2STATUS_OK);
    KIVCS2CaptionFile file;
    KIVCS2CaptionDecoder decoder;
    (void)takeAllocatedBytes();
    ASSERT_EQ(kivCS2CaptionFile_initReading(&file, &memory.m_stream, true, nullptr), KIVCS2STATUS_OK);
    EXPECT_LT(takeAllocatedBytes(), size_t{512} * 1024);
    ASSERT_EQ(kivCS2CaptionDecoder_init(&decoder, nullptr, nullptr, onText, nullptr), KIVCS2STATUS_OK);
    EXPECT_LT(takeAllocatedBytes(), size_t{64} * 1024);
    KIVCS2CaptionPacket packet;
    size_t count = 0;
    KIVCS2Status status = KIVCS2STATUS_OK;
    for (; KIVCS2_SUCCEEDED(status = kivCS2CaptionFile_readPacket(&file, &packet)); ++count)
        (void)kivCS2CaptionDecoder_feed(&decoder, &packet); // the callback never refuses
    EXPECT_EQ(kivCS2CaptionFile_seek(&file, 55), KIVCS2STATUS_OK);
    EXPECT_EQ(takeAllocatedBytes(), 0u);
    EXPECT_GT(count, 20000u);
    EXPECT_EQ(status, KIVCS2STATUS_EOF_ERR);
    EXPECT_EQ(kivCS2CaptionDecoder_free(&decoder), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2CaptionFile_free(&file), KIVCS2STATUS_OK);
}

// Lines out of order are listed first.
TEST(CaptionReader, AListThatFindsNoRoomIsNoFile)
{
    std::string text = "Scenarist_SCC V1.0\n\n00:00:02:00\t9420 9420\n\n00:00:01:00\t942f 942f\n";
    const size_t count = forEachAllocation(
        [&text](size_t)
        {
            KIVCS2MemoryStream memory;
            (void)kivCS2MemoryStream_initWithBytes(&memory, text.data(), text.size()); // a view: never fails
            KIVCS2CaptionFile file{};
            KIVCS2CaptionReadOptions options{};
            options.m_order = KIVCS2CaptionOrder_Frame;
            KIVCS2CaptionPacket packet;
            KIVCS2Status status = kivCS2CaptionFile_initReading(&file, &memory.m_stream, false, &options);
            if (KIVCS2_SUCCEEDED(status))
                status = kivCS2CaptionFile_readPacket(&file, &packet);
            EXPECT_EQ(status, allocationFailed() ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
            (void)kivCS2CaptionFile_free(&file);
            (void)kivCS2MemoryStream_free(&memory.m_stream);
        });
    EXPECT_GE(count, 3u);
}
} // namespace
