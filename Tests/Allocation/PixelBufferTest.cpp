// Allocations of pixel buffers fail in turn: the documented status, nothing lost or half made.
#include "KIVCS2PixelBuffer.h"

#include "FailingAllocator.h"
#include "Picture.h"
#include "TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

namespace
{
using kiv::test::forEachAllocation;
using kiv::test::Picture;

KIVCS2Status failsIf(bool failed)
{
    return failed ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK;
}

// The status, no result, and the locks that remain after each operation.
TEST(PixelBufferAllocation, WithoutMemoryThereIsNoBuffer)
{
    const kiv::test::TemporaryFolder folder;
    const std::string path = folder.path("picture");
    const Picture video{16, 16, kCVPixelFormatType_422YpCbCr8};
    const auto check = [&](const std::function<KIVCS2Status(CVPixelBufferRef *)> &call, size_t locksLeft)
    {
        const auto attempt = [&](size_t index)
        {
            Picture made;
            CVPixelBufferRef *out = made.out();
            EXPECT_EQ(call(out), failsIf(index == 0));
            EXPECT_EQ(video.locks(), index == 0 ? locksLeft : 0);
            if (index > 0)
                return;
            EXPECT_EQ(*out, nullptr);
            EXPECT_FALSE(std::filesystem::exists(path));
            for (size_t lock = 0; lock < locksLeft; ++lock)
                video.unlock();
        };
        EXPECT_GE(forEachAllocation(attempt), 1u);
    };
    check([&](auto out)
          { return kivCS2PixelBuffer_convert(video.get(), out, KIVCS2PixelBuffer_Convert2vuyToRGBA); },
          0);
    check([&](auto out) { return kivCS2PixelBuffer_scale(video.get(), out, 8, 8); }, 1);
    check([&](auto) { return kivCS2PixelBuffer_save(video.get(), path.c_str(), false); }, 0);
}
} // namespace
