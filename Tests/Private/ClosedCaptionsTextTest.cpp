// The decoders and the letter compression, compared with plain references on random and hostile text.
#include "Private/Captions/Hex.h"
#include "Private/Captions/MCC.h"
#include "Private/Support/Cpu.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace
{
using Bytes = std::vector<uint8_t>;
std::mt19937 g_random{20240304};

size_t upTo(size_t last)
{
    return std::uniform_int_distribution<size_t>{0, last}(g_random);
}

// The published letters, written here a second time.
Bytes bytesOfLetter(char letter)
{
    static const Bytes others[] = {{0xFB, 0x80, 0x80},
                                   {0xFC, 0x80, 0x80},
                                   {0xFD, 0x80, 0x80},
                                   {0x96, 0x69},
                                   {0x61, 0x01},
                                   {0xE1, 0x00, 0x00},
                                   {},
                                   {},
                                   {},
                                   {},
                                   {0x00}};
    if (letter >= 'P')
        return others[letter - 'P'];
    Bytes bytes;
    for (int count = letter - 'G' + 1; count > 0; --count)
        bytes.insert(bytes.end(), {0xFA, 0x00, 0x00});
    return bytes;
}

// Decodes one half byte after the other, up to the limit of the record.
struct Reference
{
    KIVCS2ClosedCaption caption{};
    bool low = false;

    bool store(unsigned nibble)
    {
        if (caption.m_captionSize >= 259)
            return false;
        uint8_t &byte = caption.m_captionData[caption.m_captionSize];
        if (low)
            byte = static_cast<uint8_t>(byte + nibble);
        else
            byte = static_cast<uint8_t>(nibble * 16);
        caption.m_captionSize += low ? 1 : 0;
        low = !low;
        return true;
    }
    KIVCS2Status decodeMCC(std::string_view text)
    {
        constexpr std::string_view digits = "0123456789ABCDEF";
        for (const char c : text)
        {
            Bytes nibbles;
            if (const size_t value = digits.find(c); value != digits.npos)
                nibbles = {static_cast<uint8_t>(value)};
            else if (c < 'G' || c > 'Z')
                return KIVCS2STATUS_CAPTION_ERR;
            else
                for (const uint8_t byte : bytesOfLetter(c))
                    nibbles.insert(nibbles.end(), {uint8_t(byte / 16), uint8_t(byte % 16)});
            for (const uint8_t nibble : nibbles)
                if (!store(nibble))
                    return KIVCS2STATUS_OVERFLOW_ERR;
        }
        return KIVCS2STATUS_OK;
    }
    KIVCS2Status decodeSCC(std::string_view text)
    {
        constexpr std::string_view digits = "0123456789ABCDEF0123456789abcdef";
        for (const char c : text)
        {
            if (c == ' ')
                continue;
            const size_t value = digits.find(c);
            if (value == digits.npos)
                return KIVCS2STATUS_CAPTION_ERR;
            if (!store(value % 16))
                return KIVCS2STATUS_OVERFLOW_ERR;
        }
        return KIVCS2STATUS_OK;
    }
};

// Returns `length` characters of an alphabet.
std::string randomText(std::string_view alphabet, size_t length)
{
    std::string text;
    while (text.size() < length)
        text += alphabet[upTo(alphabet.size() - 1)];
    return text;
}

using Decode = KIVCS2Status (*)(std::string_view text, KIVCS2ClosedCaption &caption);

void expectSame(Decode decode, KIVCS2Status (Reference::*plainly)(std::string_view), std::string_view content)
{
    const std::vector<char> exact{content.begin(), content.end()}; // a read past its end is detected
    Reference expected;
    const KIVCS2Status status = (expected.*plainly)(content);
    KIVCS2ClosedCaption caption{};
    ASSERT_EQ(decode({exact.data(), exact.size()}, caption), status) << content;
    ASSERT_EQ(std::memcmp(&caption, &expected.caption, sizeof caption), 0) << content;
}

void expectSameMCC(std::string_view content)
{
    expectSame(kiv::decodeMCCPacket, &Reference::decodeMCC, content);
}

TEST(ClosedCaptionsText, MCCPacketsDecodeAsHalfByteByHalfByte)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    const std::string_view alphabets[] = {
        digits,
        "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ",
        "0123456789ABCDEF0123456789ABCDEF0123456789ABCDEFVWXYZ",
        "VWXYZOA",
        "000000000000000000000000000000000000FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFg",
    };
    for (size_t round = 0; round < 4000; ++round)
        expectSameMCC(randomText(alphabets[round % std::size(alphabets)], upTo(round % 3 == 0 ? 700 : 180)));
    // Every letter across the limit, on a byte boundary and next to one, and every other character once.
    for (char letter = 'G'; letter <= 'Z'; ++letter)
        for (size_t before = 2 * 259 - 60; before <= 2 * 259 + 1; ++before)
            expectSameMCC(std::string(before, '5') + letter + "V7");
    for (int c = 0; c < 256; ++c)
        for (const size_t before : {size_t{0}, size_t{1}, size_t{16}, size_t{33}, size_t{518}})
            expectSameMCC(std::string(before, 'A') + static_cast<char>(c) + "12");
}

TEST(ClosedCaptionsText, SCCWordsDecodeAsHalfByteByHalfByte)
{
    const std::string_view alphabets[] = {"0123456789abcdefABCDEF", "0123456789abcdef ", "0123 ",
                                          "0000000000000000000000000000000000000000000,"};
    for (size_t round = 0; round < 4000; ++round)
    {
        std::string content = randomText(alphabets[round % std::size(alphabets)], upTo(700));
        if (round % 2 == 0)
            for (size_t at = 4; at < content.size(); at += 5)
                content[at] = ' ';
        expectSame(kiv::decodeHexWords, &Reference::decodeSCC, content);
    }
}

TEST(ClosedCaptionsText, EveryLevelDecodesTheSamePairs)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    using kiv::CpuLevel;
    for (const CpuLevel level : {CpuLevel::portable, CpuLevel::sse42, CpuLevel::avx2, CpuLevel::avx512})
    {
        if (level > kiv::cpuLevel())
            continue;
        for (int character = 0; character < 256; ++character)
            for (size_t length = 0; length <= 80; length += character % 7 + 1)
            {
                std::string content = randomText(digits, length);
                const size_t at = upTo(80);
                if (at < length)
                    content[at] = static_cast<char>(character);
                const bool digit = digits.find(static_cast<char>(character)) != digits.npos;
                const size_t room = upTo(45);
                const size_t whole = at < length && !digit ? at / 2 : length / 2;
                const size_t expected = std::min(whole, room);
                const std::vector<char> exact{content.begin(), content.end()};
                Bytes out(room, 0);
                ASSERT_EQ(kiv::decodeHexPairs(level, {exact.data(), length}, out), expected) << content;
                for (size_t index = 0; index < room; ++index)
                    ASSERT_EQ(out[index],
                              index < expected ? std::stoi(content.substr(2 * index, 2), nullptr, 16) : 0)
                        << content << " at " << index;
            }
    }
}

// The rule taken literally: every row in order, a later one only if it is longer.
std::string compressPlainly(const Bytes &packet)
{
    std::string text;
    for (size_t position = 0; position < packet.size();)
    {
        const size_t remaining = packet.size() - position;
        char best = 0;
        size_t longest = 0;
        for (char letter = 'G'; letter <= 'Z'; ++letter)
        {
            const Bytes bytes = bytesOfLetter(letter);
            if (!bytes.empty() && bytes.size() < remaining && bytes.size() > longest &&
                std::equal(bytes.begin(), bytes.end(), packet.begin() + static_cast<ptrdiff_t>(position)))
            {
                best = letter;
                longest = bytes.size();
            }
        }
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02X", packet[position]);
        text += best != 0 ? std::string(1, best) : pair;
        position += best != 0 ? longest : 1;
    }
    return text;
}

TEST(ClosedCaptionsText, CompressionIsTheRowScan)
{
    const Bytes common{0xFA, 0x00, 0x00, 0x00, 0xFB, 0xFC, 0xFD, 0x80,
                       0x80, 0x96, 0x69, 0x61, 0x01, 0xE1, 0x12};
    for (size_t round = 0; round < 6000; ++round)
    {
        Bytes packet;
        const size_t size = upTo(264);
        while (packet.size() < size)
        {
            // Whole sequences, their beginnings, first bytes of letters, and any bytes.
            const Bytes sequence = bytesOfLetter(static_cast<char>('G' + upTo(19)));
            const size_t kind = upTo(5);
            if (kind <= 2)
                packet.insert(packet.end(), sequence.begin(), sequence.end());
            else if (kind == 3 && !sequence.empty())
                packet.insert(packet.end(), sequence.begin(),
                              sequence.begin() + static_cast<ptrdiff_t>(upTo(sequence.size() - 1)));
            else
                packet.push_back(kind == 4 ? common[upTo(common.size() - 1)]
                                           : static_cast<uint8_t>(upTo(255)));
        }
        packet.resize(size);
        std::string text(2 * packet.size(), '?');
        text.resize(kiv::compressMCCPacket(packet, text.data()));
        ASSERT_EQ(text, compressPlainly(packet));
        KIVCS2ClosedCaption caption{};
        if (packet.size() > kiv::kCaptionBytesMax)
            continue;
        ASSERT_EQ(kiv::decodeMCCPacket(text, caption), KIVCS2STATUS_OK);
        ASSERT_EQ(Bytes(caption.m_captionData, caption.m_captionData + caption.m_captionSize), packet);
    }
}
} // namespace
