// Link trees when memory runs out: nothing is attached, nothing is leaked.
#include "FailingAllocator.h"

#include <KIVCoreServices2/KIVCS2LinkTree.h>

#include <gtest/gtest.h>

namespace
{
TEST(LinkTree, ANodeThatCannotBeMadeLeavesTheTree)
{
    const size_t allocations = kiv::test::forEachAllocation(
        [](size_t index)
        {
            KIVCS2LinkTree tree{};
            KIVCS2LinkTreeNode *nodes[2]{};
            for (size_t made = 0; made < 2; ++made)
            {
                const KIVCS2Status status =
                    kivCS2LinkTree_attachNewNode(&tree, nodes[0], 100, nullptr, &nodes[made]);
                EXPECT_EQ(status, index == made ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
                EXPECT_EQ(nodes[made] == nullptr, index == made);
            }
            KIVCS2LinkTreeNode *loose = nodes[0];
            EXPECT_EQ(kivCS2LinkTree_newNode(16, nullptr, &loose),
                      index == 2 ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
            EXPECT_EQ(loose == nullptr, index == 2);
            if (loose)
            {
                EXPECT_EQ(kivCS2LinkTree_freeNode(loose, 1), KIVCS2STATUS_OK);
            }
            uint32_t count = 0;
            EXPECT_EQ(_kivCS2LinkTree_countNodes(&tree, nullptr, &count), KIVCS2STATUS_OK);
            EXPECT_EQ(count, index < 2 ? 1u : 2u);
            EXPECT_EQ(_kivCS2LinkTree_free(&tree), KIVCS2STATUS_OK);
        });
    EXPECT_EQ(allocations, 3u);
}
} // namespace
