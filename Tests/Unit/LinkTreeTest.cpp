// Link trees: results that hosts rely on, walks. Fuzzers/LinkTreeFuzzer.cpp has a model of the rest.
#include <KIVCoreServices2/KIVCS2LinkTree.h>

#include "RequiredPointers.h"

#include <array>
#include <cstddef>
#include <vector>

namespace
{
static_assert(offsetof(KIVCS2LinkTree, m_root) == 0 && offsetof(KIVCS2LinkTreeNode, m_link) == 0 &&
              offsetof(KIVCS2LinkTreeNode, m_children) == 24 &&
              offsetof(KIVCS2LinkTreeNode, m_parent) == 48 &&
              offsetof(KIVCS2LinkTreeNode, m_callback) == 56 && offsetof(KIVCS2LinkTreeNode, m_flags) == 64 &&
              offsetof(KIVCS2LinkTreeNode, m_ID) == 68 && sizeof(KIVCS2LinkTreeNode) == 72);

using Node = KIVCS2LinkTreeNode;
using IDs = std::vector<uint32_t>;

// Stores the IDs it visits and returns `result` at the ID `match`.
struct Visits
{
    IDs ids;
    uint32_t match = 0;
    KIVCS2Status result = KIVCS2STATUS_OK;

    static KIVCS2Status visit(KIVCS2LinkTree *, Node *node, void *context)
    {
        auto *visits = static_cast<Visits *>(context);
        visits->ids.push_back(node->m_ID);
        return node->m_ID == visits->match ? visits->result : KIVCS2STATUS_OK;
    }
};

// Nodes in the test's memory: 1 with the children 2, 3 and 4; 5 and 6 below 2; 7 below 6; 8 below 4.
struct Sample
{
    KIVCS2LinkTree tree{};
    std::array<Node, 9> nodes; // by ID; 0 is not in the tree

    Sample()
    {
        EXPECT_OK(_kivCS2LinkTree_init(&tree));
        constexpr uint32_t kParents[] = {0, 0, 1, 1, 1, 2, 2, 6, 4};
        for (uint32_t ID = 0; ID < nodes.size(); ++ID)
        {
            EXPECT_OK(_kivCS2LinkTree_initNode(&nodes[ID], nullptr));
            EXPECT_OK(_kivCS2LinkTree_setNodeID(&nodes[ID], ID));
            if (ID > 0)
                attach(kParents[ID] == 0 ? nullptr : &nodes[kParents[ID]], &nodes[ID]);
        }
    }
    void attach(Node *parent, Node *node)
    {
        EXPECT_OK(kivCS2LinkTree_attachNode(&tree, parent, node));
    }
    void flag(uint32_t ID, uint32_t mask)
    {
        EXPECT_OK(_kivCS2LinkTree_setNodeFlag(&nodes[ID], mask));
    }
    IDs walk(Node *start = nullptr)
    {
        Visits visits;
        EXPECT_OK(_kivCS2LinkTree_traverseNodes(&tree, start, nullptr, Visits::visit, &visits, 1));
        return visits.ids;
    }
};

TEST(LinkTree, CountsAreAddedAndSkippedSubtreesAreIncluded)
{
    Sample sample;
    KIVCS2LinkTree empty{};
    Visits visits;
    sample.flag(2, KIVCS2LinkTreeNodeFlag_Skip);
    EXPECT_EQ(sample.walk(), (IDs{1, 3, 4, 8}));
    uint32_t count = 100;
    for (KIVCS2LinkTree *tree : {&sample.tree, &empty})
        EXPECT_OK(_kivCS2LinkTree_countNodes(tree, nullptr, &count));
    EXPECT_EQ(count, 108u);
    EXPECT_OK(_kivCS2LinkTree_traverseNodes(&empty, nullptr, nullptr, Visits::visit, &visits, 0));
    EXPECT_TRUE(visits.ids.empty());
}

TEST(LinkTree, AStoppedSearchReturnsTheNodeBelowItsStart)
{
    Sample sample;
    using Row = std::tuple<uint32_t, uint32_t, uint32_t, IDs>;
    for (const auto &[start, match, first, visited] : {
             Row{1, 1, 1, {1}},
             {1, 2, 2, {1, 2}},
             {1, 7, 2, {1, 2, 5, 6, 7}},
             {1, 8, 4, {1, 2, 5, 6, 7, 3, 4, 8}},
             {2, 7, 6, {2, 5, 6, 7}},
             {1, 99, 0, {1, 2, 5, 6, 7, 3, 4, 8}},
         })
    {
        SCOPED_TRACE(match);
        const KIVCS2Status wanted = first == 0 ? KIVCS2STATUS_OK : 7u; // any value but 0 stops
        Visits visits{{}, match, 7u};
        Node *found = nullptr;
        EXPECT_EQ(_kivCS2LinkTree_traverseNodes(&sample.tree, &sample.nodes[start], &found, Visits::visit,
                                                &visits, 0),
                  wanted);
        EXPECT_EQ(found, first == 0 ? nullptr : &sample.nodes[first]);
        EXPECT_EQ(visits.ids, visited);
        EXPECT_EQ(_kivCS2LinkTree_traverseNodes(&sample.tree, &sample.nodes[start], nullptr, Visits::visit,
                                                &visits, 0),
                  wanted);
    }
}

TEST(LinkTree, NodesVisitThemselvesWithoutACallback)
{
    Sample sample;
    Visits visits;
    for (const uint32_t ID : {2u, 7u, 8u})
        sample.nodes[ID].m_callback = Visits::visit;
    EXPECT_OK(_kivCS2LinkTree_traverseNodes(&sample.tree, nullptr, nullptr, nullptr, &visits, 0));
    EXPECT_EQ(visits.ids, (IDs{2, 7, 8}));
}

TEST(LinkTree, AnInsertedNodeHasTheParentThatIsGiven)
{
    Sample sample;
    EXPECT_OK(kivCS2LinkTree_insertNode(&sample.tree, &sample.nodes[3], nullptr, &sample.nodes[0]));
    EXPECT_OK(kivCS2LinkTree_insertNode(&sample.tree, &sample.nodes[4], &sample.nodes[5], &sample.nodes[7]));
    EXPECT_EQ(sample.walk(), (IDs{1, 2, 7, 5, 6, 3, 0, 4, 8}));
    EXPECT_EQ(sample.nodes[7].m_parent, &sample.nodes[4]);
    // It keeps its parent when the node that held it is initialised again, as any free flag but 1 does.
    EXPECT_OK(kivCS2LinkTree_freeNode(&sample.nodes[2], 2));
    EXPECT_EQ(sample.nodes[7].m_parent, &sample.nodes[4]);
}

TEST(LinkTree, ANewRootDetachesTheOldOneWhichForgetsItsChildren)
{
    Sample sample;
    sample.nodes[1].m_callback = Visits::visit;
    sample.flag(1, 0x70);
    sample.attach(nullptr, &sample.nodes[2]);
    EXPECT_EQ(sample.walk(), (IDs{2, 5, 6, 7}));
    const Node &old = sample.nodes[1];
    EXPECT_TRUE(!old.m_children.m_next && old.m_flags == 0 && old.m_ID == 0);
    EXPECT_EQ(old.m_callback, Visits::visit);
    EXPECT_TRUE(!sample.nodes[2].m_parent && sample.nodes[3].m_parent == &old); // but still points to it
}

TEST(LinkTree, LockedNodesStay)
{
    Sample sample;
    sample.flag(1, KIVCS2LinkTreeNodeFlag_Locked);
    EXPECT_EQ(_kivCS2LinkTree_anyParentNodeLocked(&sample.nodes[7]), KIVCS2STATUS_NODE_LOCKED_ERR);
    EXPECT_OK(_kivCS2LinkTree_anyParentNodeLocked(&sample.nodes[1])); // its own lock
    Node *added = nullptr;
    EXPECT_EQ(kivCS2LinkTree_attachNewNode(&sample.tree, nullptr, 0, nullptr, &added),
              KIVCS2STATUS_NODE_LOCKED_ERR);
    EXPECT_EQ(added, nullptr);
}

TEST(LinkTree, KnowsItsNodesAndTheirMarks)
{
    Sample sample;
    EXPECT_OK(_kivCS2LinkTree_isTreeNode(&sample.tree, &sample.nodes[7]));
    EXPECT_OK(_kivCS2LinkTree_isTreeNode(&sample.tree, &sample.nodes[1]));
    EXPECT_EQ(_kivCS2LinkTree_isTreeNode(&sample.tree, &sample.nodes[0]), KIVCS2STATUS_NOT_FOUND_ERR);
    sample.flag(3, 0x10);
    sample.flag(3, 0x40); // keeps the first
    bool isSet = false;
    EXPECT_OK(_kivCS2LinkTree_getNodeFlag(&sample.nodes[3], 0x11, &isSet));
    EXPECT_TRUE(isSet);
    EXPECT_OK(_kivCS2LinkTree_getNodeFlag(&sample.nodes[3], 0x2f, &isSet));
    EXPECT_FALSE(isSet);
    uint32_t ID = 0;
    EXPECT_OK(_kivCS2LinkTree_getNodeID(&sample.nodes[3], &ID));
    EXPECT_EQ(ID, 3u);
}

TEST(LinkTree, DeepTreesNeedLittleStack)
{
    constexpr uint32_t kDepth = 100000;
    KIVCS2LinkTree tree{};
    Node *node = nullptr;
    for (uint32_t level = 0; level < kDepth; ++level)
        ASSERT_OK(kivCS2LinkTree_attachNewNode(&tree, node, sizeof(Node) + 4, nullptr, &node));
    EXPECT_EQ(*reinterpret_cast<uint32_t *>(node + 1), 0u);
    uint32_t count = 0;
    EXPECT_OK(_kivCS2LinkTree_countNodes(&tree, nullptr, &count));
    EXPECT_EQ(count, kDepth);
    node->m_ID = 1;
    Visits visits{{}, 1, KIVCS2STATUS_NOT_FOUND_ERR};
    Node *found = nullptr;
    EXPECT_EQ(_kivCS2LinkTree_traverseNodes(&tree, nullptr, &found, Visits::visit, &visits, 0),
              KIVCS2STATUS_NOT_FOUND_ERR);
    EXPECT_EQ(found->m_parent, tree.m_root);
    EXPECT_EQ(visits.ids.size(), kDepth);
    EXPECT_OK(_kivCS2LinkTree_free(&tree));
}

TEST(LinkTree, MissingArgumentsAreRefused)
{
    KIV_REQUIRES_EACH(_kivCS2LinkTree_init, "!");
    KIV_REQUIRES_EACH(_kivCS2LinkTree_initNode, "!, -");
    KIV_REQUIRES_EACH(_kivCS2LinkTree_setNodeFlag, "!");
    KIV_REQUIRES_EACH(_kivCS2LinkTree_getNodeFlag, "!, !");
    KIV_REQUIRES_EACH(_kivCS2LinkTree_setNodeID, "!");
    KIV_REQUIRES_EACH(_kivCS2LinkTree_getNodeID, "!, !");
    KIV_REQUIRES_EACH(kivCS2LinkTree_attachNode, "!, -, !");
    KIV_REQUIRES_EACH(kivCS2LinkTree_attachNewNode, "!, -, -, !");
    KIV_REQUIRES_EACH(kivCS2LinkTree_insertNode, "!, !, -, !");
    KIV_REQUIRES_EACH(kivCS2LinkTree_detachNode, "!, !");
    KIV_REQUIRES_EACH(kivCS2LinkTree_freeNode, "!");
    KIV_REQUIRES_EACH(_kivCS2LinkTree_free, "!");
    KIV_REQUIRES_EACH(_kivCS2LinkTree_traverseNodes, "!, -, -, -, -");
    KIV_REQUIRES_EACH(_kivCS2LinkTree_countNodes, "!, -, !");
    KIV_REQUIRES_EACH(_kivCS2LinkTree_isTreeNode, "!, !");
    KIV_REQUIRES_EACH(_kivCS2LinkTree_anyParentNodeLocked, "!");
    KIV_REQUIRES_EACH(_kivCS2LinkTree_freeNodeCallback, "!, !, -");
    KIV_REQUIRES_NOT_NULL(kivCS2LinkTree_newNode, "-, node");
    Sample sample;
    Node *node = &sample.nodes[1];
    Node *child = &sample.nodes[2];
    EXPECT_EQ(kivCS2LinkTree_insertNode(&sample.tree, node, node, &sample.nodes[0]),
              KIVCS2STATUS_PARAM_ERR); // has no siblings
    EXPECT_EQ(kivCS2LinkTree_insertNode(&sample.tree, node, child, child), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(sample.walk(), (IDs{1, 2, 5, 6, 7, 3, 4, 8}));
}
} // namespace
