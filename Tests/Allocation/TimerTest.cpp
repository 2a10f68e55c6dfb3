// Every allocation of timers and run loops fails once in turn.
#include "KIVCS2Timer.h"

#include "CFText.h"
#include "FailingAllocator.h"

#include <gtest/gtest.h>

#include <limits>
#include <sys/resource.h>
#include <thread>
#include <tuple>

namespace
{
using namespace kiv::test;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

int32_t neverCalled(void *)
{
    ADD_FAILURE();
    return KIVCS2TimerResult_End;
}

KIVCS2Status create(KIVCS2Timer **timer, KIVCS2TimerFlags flags)
{
    return kivCS2Timer_create(timer, neverCalled, nullptr, flags, 1, kInfinity);
}
} // namespace

TEST(TimerAllocation, CreateAnswersMemoryAndLeavesNull)
{
    using Row = std::tuple<KIVCS2TimerFlags, size_t>;
    for (const auto &[flags, allocations] :
         {Row{0, 1}, Row{KIVCS2TimerFlags_Thread, 2}, Row{KIVCS2TimerFlags_RunLoop, 3},
          Row{KIVCS2TimerFlags_MainRunLoop, 3}, Row{KIVCS2TimerFlags_CurrentRunLoop, 3 + 1}})
    {
        SCOPED_TRACE(flags);
        EXPECT_EQ(forEachAllocation(
                      [asked = flags](size_t index)
                      {
                          allowAllocations(); // for the thread itself; its loop does not exist yet
                          std::thread{[asked, index]
                                      {
                                          KIVCS2Timer *timer = nullptr;
                                          failAllocation(index);
                                          const KIVCS2Status status = create(&timer, asked);
                                          allowAllocations();
                                          EXPECT_EQ(status, allocationFailed() ? KIVCS2STATUS_MEMORY_ERR
                                                                               : KIVCS2STATUS_OK);
                                          EXPECT_EQ(timer == nullptr, allocationFailed());
                                          if (timer != nullptr)
                                          {
                                              EXPECT_EQ(kivCS2Timer_free(timer), KIVCS2STATUS_OK);
                                          }
                                      }}
                              .join();
                      }),
                  allocations);
    }
}

TEST(TimerAllocation, AModeWithoutMemoryIsNotAddedAndMayBeTriedAgain)
{
    const kiv::CFRef<CFMutableStringRef> mode{
        CFStringCreateMutableCopy(nullptr, 0, fromBytes("ingest").get())};
    EXPECT_EQ(forEachAllocation(
                  [&](size_t index)
                  {
                      KIVCS2Timer *timer = nullptr;
                      allowAllocations();
                      ASSERT_EQ(create(&timer, KIVCS2TimerFlags_RunLoop), KIVCS2STATUS_OK);
                      failAllocation(index);
                      const auto add = [&]
                      { return kivCS2Timer_addToRunLoop(timer, CFRunLoopGetMain(), mode.get()); };
                      expectOkOrMemory(add());
                      EXPECT_EQ(add(), KIVCS2STATUS_OK);
                      EXPECT_EQ(kivCS2Timer_free(timer), KIVCS2STATUS_OK);
                  }),
              2u); // a copy of the name and a place for it; none if it is already added
}

TEST(TimerAllocation, ATimerWithoutADescriptorIsNone)
{
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    for (const KIVCS2TimerFlags flags : {KIVCS2TimerFlags_RunLoop, KIVCS2TimerFlags_CurrentRunLoop})
    {
        std::thread{[&, asked = flags] // a thread without a loop
                    {
                        const rlimit none{0, saved.rlim_max};
                        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
                        KIVCS2Timer *timer = nullptr;
                        const KIVCS2Status status = create(&timer, asked);
                        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
                        EXPECT_EQ(status, KIVCS2STATUS_MEMORY_ERR);
                        EXPECT_EQ(timer, nullptr);
                    }}
            .join();
    }
}
