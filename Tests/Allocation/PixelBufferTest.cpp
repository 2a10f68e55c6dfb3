// The buffers that operations make, failed: the status, no result, and the locks each of them leaves.
#include "KIVCS2PixelBuffer.h"

#include "FailingAllocator.h"
#include "Picture.h"
#include "TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

using kiv::test::Picture;

TEST(PixelBufferAllocation, WithoutMemoryThereIsNoBuffer)
{
    const kiv::test::TemporaryFolder folder;
    const std::string path = folder.path("picture");
    const Picture video{16, 16, kCVPixelFormatType_422YpCbCr8};
    struct Case
    {
        std::function<KIVCS2Status(CVPixelBufferRef *)> call;
        size_t locksLeft;
    };
    const Case cases[] = {
        {[&](CVPixelBufferRef *out)
         { return kivCS2PixelBuffer_convert(video.get(), out, KIVCS2PixelBuffer_Convert2vuyToRGBA); },
         0},
        {[&](CVPixelBufferRef *out) { return kivCS2PixelBuffer_scale(video.get(), out, 8, 8); }, 1},
        {[&](CVPixelBufferRef *) { return kivCS2PixelBuffer_save(video.get(), path.c_str(), false); }, 0},
    };
    for (const Case &c : cases)
        EXPECT_GE(kiv::test::forEachAllocation(
                      [&](size_t index)
                      {
                          Picture made;
                          CVPixelBufferRef *out = made.out();
                          const KIVCS2Status status = c.call(out);
                          if (index == 0)
                          {
                              EXPECT_EQ(status, KIVCS2STATUS_MEMORY_ERR);
                              EXPECT_EQ(*out, nullptr);
                              EXPECT_FALSE(std::filesystem::exists(path));
                              EXPECT_EQ(video.locks(), c.locksLeft);
                              for (size_t lock = 0; lock < c.locksLeft; ++lock)
                                  video.unlock();
                              return;
                          }
                          EXPECT_EQ(status, KIVCS2STATUS_OK);
                          EXPECT_EQ(video.locks(), 0u);
                      }),
                  1u);
}
