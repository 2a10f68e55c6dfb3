// Texts of caption files read by the tolerant reader, and the real files of the corpus.
#ifndef KIV_TEST_CAPTION_READING_H
#define KIV_TEST_CAPTION_READING_H

#include <KIVCoreServices2/KIVCS2CaptionFile.h>
#include <KIVCoreServices2/KIVCS2MemoryStream.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::test
{
inline std::string fileText(const std::filesystem::path &path)
{
    std::ifstream file{path, std::ios::binary};
    return {std::istreambuf_iterator<char>{file}, {}};
}

// The folder of real caption files, from KIV_CAPTION_CORPUS. Empty if it is not set.
inline std::filesystem::path corpus()
{
    const char *const set = std::getenv("KIV_CAPTION_CORPUS");
    const std::filesystem::path path = set != nullptr ? set : "";
    return std::filesystem::is_directory(path) ? path : std::filesystem::path{};
}

#define KIV_NEED_CORPUS()                                                                                    \
    if (kiv::test::corpus().empty())                                                                         \
    GTEST_SKIP() << "no real caption files here; KIV_CAPTION_CORPUS says where they are"

// FNV-1a over the added bytes: an expected result in one number.
struct Hash
{
    uint64_t value = 14695981039346656037u;

    Hash &add(const void *bytes, size_t size)
    {
        for (size_t at = 0; at < size; ++at)
            value = (value ^ static_cast<const uint8_t *>(bytes)[at]) * 1099511628211u;
        return *this;
    }
};

// A file in memory, opened for reading.
struct Reading
{
    KIVCS2MemoryStream memory{};
    KIVCS2CaptionFile file{};
    KIVCS2CaptionFileHeader header{};
    std::string text;
    std::vector<KIVCS2CaptionFileFault> faults;
    std::vector<KIVCS2CaptionPacket> packets;
    KIVCS2Status status = KIVCS2STATUS_OK; // of the call that ended the reading

    explicit Reading(std::string_view content, KIVCS2CaptionReadOptions options = {}) : text{content}
    {
        text.reserve(1); // a view needs a block, even without bytes
        options.m_onFault = [](const KIVCS2CaptionFileFault *fault, void *context)
        {
            static_cast<Reading *>(context)->faults.push_back(*fault);
            return KIVCS2Status{KIVCS2STATUS_OK};
        };
        options.m_context = this;
        EXPECT_EQ(kivCS2MemoryStream_initWithBytes(&memory, text.data(), text.size()), KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2CaptionFile_initReading(&file, &memory.m_stream, true, &options), KIVCS2STATUS_OK);
    }
    Reading(const Reading &) = delete;
    Reading &operator=(const Reading &) = delete;
    ~Reading()
    {
        EXPECT_EQ(kivCS2CaptionFile_free(&file), KIVCS2STATUS_OK);
        EXPECT_EQ(memory.m_buffer, nullptr);
    }

    Reading &all()
    {
        KIVCS2CaptionPacket packet;
        while (KIVCS2_SUCCEEDED(status = kivCS2CaptionFile_readPacket(&file, &packet)))
            packets.push_back(packet);
        (void)kivCS2CaptionFile_readHeader(&file, &header); // a refused file has no header
        return *this;
    }
    [[nodiscard]] uint64_t count(KIVCS2CaptionFault fault) const
    {
        uint64_t found = 0;
        EXPECT_EQ(kivCS2CaptionFile_getFaultCount(&file, fault, &found, nullptr), KIVCS2STATUS_OK);
        return found;
    }
    [[nodiscard]] KIVCS2CaptionFileReport report() const
    {
        KIVCS2CaptionFileReport report;
        EXPECT_EQ(kivCS2CaptionFile_getReport(&file, &report), KIVCS2STATUS_OK);
        return report;
    }
    // A digest of the frames and bytes of all packets.
    [[nodiscard]] uint64_t hash() const
    {
        Hash hash;
        for (const KIVCS2CaptionPacket &packet : packets)
            hash.add(&packet.m_frame, sizeof packet.m_frame)
                .add(packet.m_anc, packet.m_size)
                .add(packet.m_triplets, size_t{3} * packet.m_tripletCount);
        return hash.value;
    }
    // Returns the pairs of a field without empty ones, as "9420 94ae".
    [[nodiscard]] std::string pairs(size_t field = 0) const
    {
        std::string found;
        for (const KIVCS2CaptionPacket &packet : packets)
        {
            KIVCS2CaptionPairs pairs;
            (void)kivCS2CaptionPacket_getPairs(&packet, &pairs); // empty if there are none
            for (size_t pair = 0; pair < pairs.m_count[field]; ++pair)
                if (const uint8_t *bytes = pairs.m_pairs[field][pair]; ((bytes[0] | bytes[1]) & 0x7F) != 0)
                {
                    char word[8];
                    std::snprintf(word, sizeof word, "%02x%02x ", bytes[0], bytes[1]);
                    found += word;
                }
        }
        return found;
    }
};
} // namespace kiv::test

#endif
