// The one allocation of a ring, failed.
#include "KIVCS2RingBuffer.h"

#include "FailingAllocator.h"

#include <gtest/gtest.h>

#include <cstring>

TEST(RingBufferAllocation, WithoutStorageTheRecordIsUnchanged)
{
    EXPECT_EQ(kiv::test::forEachAllocation(
                  [](size_t)
                  {
                      KIVCS2RingBuffer rb;
                      std::memset(&rb, 0xA5, sizeof rb);
                      const KIVCS2RingBuffer before = rb;
                      const KIVCS2Status status = kivCS2RingBuffer_init(&rb, 1u << 16);
                      if (kiv::test::allocationFailed())
                      {
                          EXPECT_EQ(status, KIVCS2STATUS_MEMORY_ERR);
                          EXPECT_EQ(std::memcmp(&rb, &before, sizeof rb), 0);
                          return;
                      }
                      EXPECT_EQ(status, KIVCS2STATUS_OK);
                      EXPECT_EQ(kivCS2RingBuffer_store(&rb, "abc", 3), KIVCS2STATUS_OK);
                      EXPECT_EQ(kivCS2RingBuffer_dispose(&rb), KIVCS2STATUS_OK);
                  }),
              1u);
}
