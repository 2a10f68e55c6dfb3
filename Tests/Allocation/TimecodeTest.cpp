// Timecode, the C operations and the class, when memory runs out.
#include "KIVProjectTimecode.h"

#include "FailingAllocator.h"
#include "Private/Support/CFRef.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace
{
using PT = KIVProjectTimecode;
using kiv::test::allocationFailed;
using kiv::test::expectOkOrMemory;
using kiv::test::forEachAllocation;

// Runs first: the shared formatters are made with the first rate.
TEST(TimecodeAllocation, ARateThatCannotBeSetLeavesTheOldOne)
{
    uint32_t perDay = 0;
    const auto trySet = [&](KIVCS2FrameRate rate, uint32_t before, uint32_t after)
    {
        const size_t count = forEachAllocation(
            [&](size_t index)
            {
                expectOkOrMemory(kivCS2Timecode_setFrameRate(rate));
                EXPECT_EQ(kivCS2Timecode_getFramesPerDay(&perDay), KIVCS2STATUS_OK);
                EXPECT_EQ(perDay, allocationFailed() ? before : after) << index;
            });
        EXPECT_GT(count, 0u);
    };
    trySet(KIVCS2FrameRate_25, 0, 2160000);
    trySet(KIVCS2FrameRate_29_97, 2160000, 2589408);

    // The tables of the old rate still work after a failure.
    kiv::test::failAllocation(0);
    EXPECT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_60), KIVCS2STATUS_MEMORY_ERR);
    kiv::test::allowAllocations();
    KIVCS2Timecode tc = 0;
    EXPECT_EQ(kivCS2Timecode_initWithTimecodeFields(&tc, 0, 1, 0, 2), KIVCS2STATUS_OK);
    EXPECT_EQ(tc, 1800u);
}

TEST(TimecodeAllocation, ARateOfTheClassThatCannotBeSetLeavesTheOldOne)
{
    const auto trySet = [](KIVCS2FrameRate rate, KIVCS2FrameRate before)
    {
        return forEachAllocation(
            [=](size_t index)
            {
                PT::setFrameRate(rate);
                EXPECT_EQ(PT::currentFrameRate(), allocationFailed() ? before : rate) << index;
            });
    };
    EXPECT_GT(trySet(KIVCS2FrameRate_25, KIVCS2FrameRate_MAX), 0u);
    EXPECT_EQ(trySet(KIVCS2FrameRate_60, KIVCS2FrameRate_25), 1u); // one block of tables
    EXPECT_EQ(trySet(KIVCS2FrameRate_25, KIVCS2FrameRate_60), 0u); // its tables still exist
}

TEST(TimecodeAllocation, TextAndDatesReportIt)
{
    ASSERT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25), KIVCS2STATUS_OK);
    KIVCS2Timecode tc = 0;
    // ASCII needs no memory, even with an empty field; a system string is split into string objects.
    EXPECT_EQ(forEachAllocation(
                  [&](size_t)
                  { EXPECT_EQ(kivCS2Timecode_initWithString(&tc, "15.3.2024 10:00::00"), KIVCS2STATUS_OK); }),
              0u);
    const kiv::CFRef<CFStringRef> text{
        CFStringCreateWithCString(nullptr, "15.3.2024 10:00::00", kCFStringEncodingASCII)};
    EXPECT_GT(forEachAllocation([&](size_t)
                                { expectOkOrMemory(kivCS2Timecode_initWithCFString(&tc, text.get())); }),
              0u);
    EXPECT_GT(forEachAllocation(
                  [&](size_t index)
                  {
                      CFDateRef date = nullptr;
                      const KIVCS2Status status = kivCS2Timecode_createCFDate(&tc, &date);
                      EXPECT_EQ(KIVCS2_FAILED(status), allocationFailed()) << index;
                      EXPECT_EQ(date == nullptr, allocationFailed()) << index;
                      if (date != nullptr)
                          CFRelease(date);
                  }),
              0u);
    // Without a date object the timecode does not change.
    tc = 7;
    kiv::test::failAllocation(0);
    EXPECT_EQ(kivCS2Timecode_initWithNow(&tc), KIVCS2STATUS_MEMORY_ERR);
    EXPECT_EQ(tc, 7u);
}

TEST(TimecodeAllocation, TextsAndDatesOfTheClassAreNull)
{
    PT::fps25();
    const PT text = PT::timecodeWithString("15.3.2024 10:00:00:12");
    const PT table = PT::timecodeWithString("15.3.2019 10:00:00:12");
    const std::string longText(300, 'x');
    const auto expectNull = [](const char *name, const std::function<CFTypeRef()> &make)
    {
        const kiv::CFRef<CFTypeRef> warm{make()}; // ICU loads its data once, without the wrapped calls
        ASSERT_TRUE(warm) << name;
        const size_t count = forEachAllocation(
            [&](size_t index)
            {
                const kiv::CFRef<CFTypeRef> made{make()};
                EXPECT_EQ(!made, allocationFailed()) << name << ' ' << index;
            });
        EXPECT_GT(count, 0u) << name;
    };
    expectNull("description", [&] { return text.description(); });
    expectNull("XMLRepresentation", [&] { return text.XMLRepresentation(); });
    expectNull("calendar format", [&] { return text.descriptionWithCalendarFormat("%d %Z"); });
    expectNull("prefix", [&] { return text.descriptionWithPrefix(longText); });
    expectNull("toDate by text", [&] { return text.toDate(); });
    expectNull("toDate by table", [&] { return table.toDate(); });
    expectNull("toCFDate", [&] { return table.toCFDate(); });
    char buffer[PT::kTextSize];
    EXPECT_EQ(forEachAllocation(
                  [&](size_t)
                  {
                      EXPECT_EQ(PT::timecodeWithString("15.3.2024 10:00::12"), text);
                      EXPECT_EQ(text.SMPTERepresentation(buffer, sizeof buffer), "15.3.2024 10:00:00:12");
                  }),
              0u);
}

// Kept: a field that cannot be read is 0, which is stored as 255 for the day and the month.
TEST(TimecodeAllocation, ADateLosesTheFieldThatFails)
{
    PT::fps25();
    ASSERT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25), KIVCS2STATUS_OK);
    const kiv::CFRef<CFDateRef> date{CFDateCreate(nullptr, 757503912.5)}; // 2 January 2025 09:45:12.5 UTC
    const auto read = [&](int reader)
    {
        PT tc;
        KIVCS2Timecode record = 7;
        if (reader == 0)
            tc.fromDate(date.get(), true);
        else if (reader == 1)
            tc.fromCFDate(date.get(), true);
        else
        {
            EXPECT_EQ(kivCS2Timecode_initWithDate(&record, date.get(), 1), KIVCS2STATUS_OK);
            tc.setCS2Timecode(record);
        }
        return tc;
    };
    for (int reader = 0; reader < 3; ++reader)
    {
        const PT whole = read(reader);
        EXPECT_GE(forEachAllocation(
                      [&](size_t index)
                      {
                          const PT tc = read(reader);
                          const int lost = (tc.day() == 255) + (tc.month() == 255) + (tc.year() == 0) +
                                           !tc.isSameTimecode(whole);
                          EXPECT_EQ(tc == whole, lost == 0) << index;
                          EXPECT_LE(lost, allocationFailed() ? 1 : 0) << index;
                      }),
                  7u);
    }
    kiv::test::failAllocation(0);
    EXPECT_EQ(PT::now(), PT{});
    kiv::test::failAllocation(0);
    EXPECT_FALSE(PT{}.isToday());
    kiv::test::allowAllocations();
}
} // namespace
