// The project timecode when memory runs out.
#include "KIVProjectTimecode.h"

#include "FailingAllocator.h"
#include "Private/Support/CFRef.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace
{
using kiv::test::allocationFailed;
using kiv::test::forEachAllocation;

// First in this program: the shared objects are made with the first rate.
TEST(ProjectTimecodeAllocation, ARateThatCannotBeSetLeavesTheOldOne)
{
    const auto trySet = [](KIVCS2FrameRate rate, KIVCS2FrameRate before)
    {
        return forEachAllocation(
            [=](size_t index)
            {
                KIVProjectTimecode::setFrameRate(rate);
                EXPECT_EQ(KIVProjectTimecode::currentFrameRate(), allocationFailed() ? before : rate)
                    << index;
            });
    };
    EXPECT_GT(trySet(KIVCS2FrameRate_25, KIVCS2FrameRate_MAX), 0u);
    EXPECT_EQ(trySet(KIVCS2FrameRate_60, KIVCS2FrameRate_25), 1u); // one block of tables
    EXPECT_EQ(trySet(KIVCS2FrameRate_25, KIVCS2FrameRate_60), 0u); // kept: they are still there
}

TEST(ProjectTimecodeAllocation, TextsAndDatesAreNull)
{
    KIVProjectTimecode::fps25();
    const KIVProjectTimecode text = KIVProjectTimecode::timecodeWithString("15.3.2024 10:00:00:12");
    const KIVProjectTimecode table = KIVProjectTimecode::timecodeWithString("15.3.2019 10:00:00:12");
    const std::string longText(300, 'x');
    struct Row
    {
        const char *name;
        std::function<CFTypeRef()> make;
    };
    const Row rows[] = {
        {"description", [&] { return text.description(); }},
        {"XMLRepresentation", [&] { return text.XMLRepresentation(); }},
        {"descriptionWithCalendarFormat", [&] { return text.descriptionWithCalendarFormat("%d %Z"); }},
        {"descriptionWithPrefix", [&] { return text.descriptionWithPrefix(longText); }},
        {"toDate by text", [&] { return text.toDate(); }},
        {"toDate by table", [&] { return table.toDate(); }},
        {"toCFDate", [&] { return table.toCFDate(); }},
    };
    for (const Row &row : rows)
    {
        const kiv::CFRef<CFTypeRef> warm{
            row.make()}; // ICU's own data are loaded once, and not by wrapped calls
        ASSERT_TRUE(warm) << row.name;
        const size_t count = forEachAllocation(
            [&](size_t index)
            {
                const kiv::CFRef<CFTypeRef> made{row.make()};
                EXPECT_EQ(!made, allocationFailed()) << row.name << ' ' << index;
            });
        EXPECT_GT(count, 0u) << row.name;
    }
    char buffer[KIVProjectTimecode::kTextSize];
    EXPECT_EQ(forEachAllocation(
                  [&](size_t)
                  {
                      EXPECT_EQ(KIVProjectTimecode::timecodeWithString("15.3.2024 10:00::12"),
                                KIVProjectTimecode::timecodeWithString("15.3.2024 10:00:00:12"));
                      EXPECT_EQ(text.SMPTERepresentation(buffer, sizeof buffer), "15.3.2024 10:00:00:12");
                  }),
              0u);
}

// Kept: a field that cannot be read is 0, which is stored as 255 for the day and the month.
TEST(ProjectTimecodeAllocation, ADateLosesTheFieldThatFails)
{
    KIVProjectTimecode::fps25();
    const kiv::CFRef<CFDateRef> date{CFDateCreate(nullptr, 757503912.5)}; // 2 January 2025 09:45:12.5 UTC
    for (const auto read : {&KIVProjectTimecode::fromDate, &KIVProjectTimecode::fromCFDate})
    {
        KIVProjectTimecode whole;
        (whole.*read)(date.get(), true);
        EXPECT_GE(forEachAllocation(
                      [&](size_t index)
                      {
                          KIVProjectTimecode tc;
                          (tc.*read)(date.get(), true);
                          const int lost = (tc.day() == 255) + (tc.month() == 255) + (tc.year() == 0) +
                                           !tc.isSameTimecode(whole);
                          EXPECT_EQ(tc == whole, lost == 0) << index;
                          EXPECT_LE(lost, allocationFailed() ? 1 : 0) << index;
                      }),
                  7u);
    }
    kiv::test::failAllocation(0);
    EXPECT_EQ(KIVProjectTimecode::now(), KIVProjectTimecode{});
    kiv::test::failAllocation(0);
    EXPECT_FALSE(KIVProjectTimecode{}.isToday());
    kiv::test::allowAllocations();
}
} // namespace
