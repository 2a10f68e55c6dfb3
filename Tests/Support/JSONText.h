// A property list as JSON by both passes, with the checks that hold for every list.
#ifndef KIV_TEST_JSONTEXT_H
#define KIV_TEST_JSONTEXT_H

#include <KIVCoreServices2/KIVCS2JSON.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kiv::test
{
struct JSONText
{
    KIVCS2Status status = KIVCS2STATUS_OK; // of the writing pass
    std::string text;
    uint32_t measured = 0;
};

// Writes into exactly the measured room, so that AddressSanitizer detects one byte too many.
inline JSONText jsonOf(CFTypeRef plist)
{
    JSONText result;
    const KIVCS2Status measuring = kivCS2JSON_createFromPlist(plist, nullptr, &result.measured);
    EXPECT_TRUE(KIVCS2_SUCCEEDED(measuring) || measuring == KIVCS2STATUS_UNSUPPORTED_ERR);
    std::vector<char> room(size_t{result.measured} + 1, '\x7f');
    room.shrink_to_fit();
    char *cursor = room.data();
    uint32_t length = 0;
    result.status = kivCS2JSON_createFromPlist(plist, &cursor, &length);
    EXPECT_EQ(cursor - room.data(), length);
    EXPECT_LE(length, result.measured);
    if (length > 0)
    {
        EXPECT_EQ(*cursor, '\0');
    }
    result.text.assign(room.data(), length);
    return result;
}
} // namespace kiv::test

#endif
