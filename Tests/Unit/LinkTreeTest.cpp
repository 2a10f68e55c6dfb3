// Link trees: attaching and detaching, walks and what they answer, locks, and releases in any order.
#include <KIVCoreServices2/KIVCS2LinkTree.h>

#include "ArgumentCheck.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <map>
#include <vector>

namespace
{
static_assert(offsetof(KIVCS2LinkTree, m_root) == 0);
static_assert(offsetof(KIVCS2LinkTreeNode, m_link) == 0);
static_assert(offsetof(KIVCS2LinkTreeNode, m_children) == 24);
static_assert(offsetof(KIVCS2LinkTreeNode, m_parent) == 48);
static_assert(offsetof(KIVCS2LinkTreeNode, m_callback) == 56);
static_assert(offsetof(KIVCS2LinkTreeNode, m_flags) == 64);
static_assert(offsetof(KIVCS2LinkTreeNode, m_ID) == 68);
static_assert(sizeof(KIVCS2LinkTreeNode) == 72);

using Node = KIVCS2LinkTreeNode;
using IDs = std::vector<uint32_t>;

// Notes the IDs it visits and answers `result` at the ID `match`.
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
        EXPECT_EQ(_kivCS2LinkTree_init(&tree), KIVCS2STATUS_OK);
        constexpr uint32_t kParents[] = {0, 0, 1, 1, 1, 2, 2, 6, 4};
        for (uint32_t ID = 0; ID < nodes.size(); ++ID)
        {
            EXPECT_EQ(_kivCS2LinkTree_initNode(&nodes[ID], nullptr), KIVCS2STATUS_OK);
            EXPECT_EQ(_kivCS2LinkTree_setNodeID(&nodes[ID], ID), KIVCS2STATUS_OK);
            if (ID > 0)
                attach(kParents[ID] == 0 ? nullptr : &nodes[kParents[ID]], &nodes[ID]);
        }
    }
    void attach(Node *parent, Node *node)
    {
        EXPECT_EQ(kivCS2LinkTree_attachNode(&tree, parent, node), KIVCS2STATUS_OK);
    }
    void flag(uint32_t ID, uint32_t mask)
    {
        EXPECT_EQ(_kivCS2LinkTree_setNodeFlag(&nodes[ID], mask), KIVCS2STATUS_OK);
    }
    IDs walk(Node *start = nullptr)
    {
        Visits visits;
        EXPECT_EQ(_kivCS2LinkTree_traverseNodes(&tree, start, nullptr, Visits::visit, &visits, 1),
                  KIVCS2STATUS_OK);
        return visits.ids;
    }
    uint32_t count(Node *start = nullptr)
    {
        uint32_t counted = 100; // added to, never reset
        EXPECT_EQ(_kivCS2LinkTree_countNodes(&tree, start, &counted), KIVCS2STATUS_OK);
        return counted - 100;
    }
};

TEST(LinkTree, WalksParentsFirstAndChildrenInOrder)
{
    Sample sample;
    EXPECT_EQ(sample.walk(), (IDs{1, 2, 5, 6, 7, 3, 4, 8}));
    EXPECT_EQ(sample.walk(&sample.nodes[2]), (IDs{2, 5, 6, 7}));
    EXPECT_EQ(sample.count(), 8u);
    EXPECT_EQ(sample.count(&sample.nodes[2]), 4u);
    EXPECT_EQ(sample.count(&sample.nodes[3]), 1u);

    KIVCS2LinkTree empty{};
    Visits visits;
    uint32_t count = 5;
    EXPECT_EQ(_kivCS2LinkTree_traverseNodes(&empty, nullptr, nullptr, Visits::visit, &visits, 0),
              KIVCS2STATUS_OK);
    EXPECT_EQ(_kivCS2LinkTree_countNodes(&empty, nullptr, &count), KIVCS2STATUS_OK);
    EXPECT_EQ(count, 5u);
    EXPECT_TRUE(visits.ids.empty());
}

TEST(LinkTree, SkippedSubtreesAreCountedButNotVisited)
{
    Sample sample;
    sample.flag(2, KIVCS2LinkTreeNodeFlag_Skip);
    EXPECT_EQ(sample.walk(), (IDs{1, 3, 4, 8}));
    EXPECT_EQ(sample.walk(&sample.nodes[2]), IDs{});
    EXPECT_EQ(sample.count(), 8u);
}

TEST(LinkTree, AStoppedSearchAnswersTheFirstLevel)
{
    struct Case
    {
        uint32_t start;
        uint32_t match;
        uint32_t found;
        IDs visited;
    };
    const Case cases[] = {
        {1, 1, 1, {1}},
        {1, 2, 2, {1, 2}},
        {1, 7, 2, {1, 2, 5, 6, 7}},
        {1, 8, 4, {1, 2, 5, 6, 7, 3, 4, 8}},
        {2, 7, 6, {2, 5, 6, 7}},
        {1, 99, 0, {1, 2, 5, 6, 7, 3, 4, 8}},
    };
    Sample sample;
    for (const Case &c : cases)
    {
        SCOPED_TRACE(c.match);
        const KIVCS2Status wanted = c.found == 0 ? KIVCS2STATUS_OK : 7u; // any other value than 0 stops
        Visits visits{{}, c.match, 7u};
        Node *found = nullptr;
        EXPECT_EQ(_kivCS2LinkTree_traverseNodes(&sample.tree, &sample.nodes[c.start], &found, Visits::visit,
                                                &visits, 0),
                  wanted);
        EXPECT_EQ(found, c.found == 0 ? nullptr : &sample.nodes[c.found]);
        EXPECT_EQ(visits.ids, c.visited);
        EXPECT_EQ(_kivCS2LinkTree_traverseNodes(&sample.tree, &sample.nodes[c.start], nullptr, Visits::visit,
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
    EXPECT_EQ(_kivCS2LinkTree_traverseNodes(&sample.tree, nullptr, nullptr, nullptr, &visits, 0),
              KIVCS2STATUS_OK);
    EXPECT_EQ(visits.ids, (IDs{2, 7, 8}));
}

TEST(LinkTree, InsertsBeforeTheSibling)
{
    Sample sample;
    EXPECT_EQ(kivCS2LinkTree_insertNode(&sample.tree, &sample.nodes[1], &sample.nodes[2], &sample.nodes[8]),
              KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2LinkTree_insertNode(&sample.tree, &sample.nodes[1], &sample.nodes[4], &sample.nodes[6]),
              KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2LinkTree_insertNode(&sample.tree, &sample.nodes[3], nullptr, &sample.nodes[0]),
              KIVCS2STATUS_OK);
    EXPECT_EQ(sample.walk(), (IDs{1, 8, 2, 5, 3, 0, 6, 7, 4}));
    EXPECT_EQ(sample.nodes[6].m_parent, &sample.nodes[1]);
    // The parent is the one that is given.
    EXPECT_EQ(kivCS2LinkTree_insertNode(&sample.tree, &sample.nodes[4], &sample.nodes[5], &sample.nodes[7]),
              KIVCS2STATUS_OK);
    EXPECT_EQ(sample.walk(), (IDs{1, 8, 2, 7, 5, 3, 0, 6, 4}));
    EXPECT_EQ(sample.nodes[7].m_parent, &sample.nodes[4]);
    EXPECT_EQ(sample.count(), 9u);
    // And stays so when the one that held it is made new, as any free flag but 1 does.
    EXPECT_EQ(kivCS2LinkTree_freeNode(&sample.nodes[2], 2), KIVCS2STATUS_OK);
    EXPECT_TRUE(sample.nodes[2].m_ID == 0 && !sample.nodes[2].m_children.m_next);
    EXPECT_EQ(sample.nodes[7].m_parent, &sample.nodes[4]);
    EXPECT_EQ(sample.nodes[5].m_parent, &sample.nodes[2]);
}

TEST(LinkTree, ANewRootDetachesTheOldOne)
{
    Sample sample;
    sample.nodes[1].m_callback = Visits::visit;
    sample.attach(nullptr, &sample.nodes[2]);
    EXPECT_EQ(sample.tree.m_root, &sample.nodes[2]);
    EXPECT_EQ(sample.nodes[2].m_parent, nullptr);
    EXPECT_EQ(sample.walk(), (IDs{2, 5, 6, 7}));
    const Node &old = sample.nodes[1];
    EXPECT_TRUE(!old.m_children.m_next && old.m_children.m_count == 0 && old.m_flags == 0 && old.m_ID == 0);
    EXPECT_EQ(old.m_callback, Visits::visit);
    EXPECT_EQ(sample.nodes[3].m_parent, &old); // out of its reach, but still naming it
}

TEST(LinkTree, ADetachedNodeIsNewAndItsChildrenMayReturn)
{
    Sample sample;
    Node &node = sample.nodes[2];
    sample.flag(2, 0x70);
    EXPECT_EQ(kivCS2LinkTree_detachNode(&sample.tree, &node), KIVCS2STATUS_OK);
    EXPECT_TRUE(!node.m_parent && !node.m_link.m_list && node.m_flags == 0 && node.m_ID == 0);
    EXPECT_EQ(sample.walk(), (IDs{1, 3, 4, 8}));
    EXPECT_EQ(sample.nodes[5].m_parent, &node);
    // In another order than before; the counts of the lists must follow.
    sample.attach(&sample.nodes[1], &node);
    sample.attach(&node, &sample.nodes[6]);
    sample.attach(&node, &sample.nodes[5]);
    EXPECT_TRUE(kivCS2LinkList_checkValid(&node.m_children));
    EXPECT_EQ(node.m_children.m_count, 2u);
    EXPECT_EQ(sample.walk(), (IDs{1, 3, 4, 8, 0, 6, 7, 5}));
    EXPECT_EQ(kivCS2LinkTree_detachNode(&sample.tree, &sample.nodes[1]), KIVCS2STATUS_OK);
    EXPECT_EQ(sample.tree.m_root, nullptr);
}

TEST(LinkTree, LockedNodesStayButTheirTreeMayGrow)
{
    Sample sample;
    sample.flag(1, KIVCS2LinkTreeNodeFlag_Locked);
    sample.flag(2, KIVCS2LinkTreeNodeFlag_Locked);
    Node *locked = &sample.nodes[2];
    const KIVCS2Status refusals[] = {
        kivCS2LinkTree_attachNode(&sample.tree, &sample.nodes[3], locked),
        kivCS2LinkTree_insertNode(&sample.tree, &sample.nodes[4], &sample.nodes[8], locked),
        kivCS2LinkTree_insertNode(&sample.tree, &sample.nodes[1], locked, &sample.nodes[8]),
        kivCS2LinkTree_detachNode(&sample.tree, locked),
        kivCS2LinkTree_detachNode(&sample.tree, &sample.nodes[1]),
        kivCS2LinkTree_freeNode(locked, 0),
        kivCS2LinkTree_freeNode(locked, 1),
    };
    for (const KIVCS2Status status : refusals)
        EXPECT_EQ(status, KIVCS2STATUS_NODE_LOCKED_ERR);
    EXPECT_EQ(sample.walk(), (IDs{1, 2, 5, 6, 7, 3, 4, 8}));

    // A locked root goes on being the root; the node has left its place.
    EXPECT_EQ(kivCS2LinkTree_attachNode(&sample.tree, nullptr, &sample.nodes[4]),
              KIVCS2STATUS_NODE_LOCKED_ERR);
    EXPECT_EQ(sample.walk(), (IDs{1, 2, 5, 6, 7, 3}));
    Node *added = nullptr;
    EXPECT_EQ(kivCS2LinkTree_attachNewNode(&sample.tree, nullptr, 0, nullptr, &added),
              KIVCS2STATUS_NODE_LOCKED_ERR);
    EXPECT_EQ(added, nullptr);
}

TEST(LinkTree, LockedAncestorsDoNotRefuse)
{
    Sample sample;
    sample.flag(1, KIVCS2LinkTreeNodeFlag_Locked);
    sample.flag(2, KIVCS2LinkTreeNodeFlag_Locked);
    EXPECT_EQ(_kivCS2LinkTree_anyParentNodeLocked(&sample.nodes[7]), KIVCS2STATUS_NODE_LOCKED_ERR);
    EXPECT_EQ(_kivCS2LinkTree_anyParentNodeLocked(&sample.nodes[1]), KIVCS2STATUS_OK); // its own lock
    sample.attach(&sample.nodes[2], &sample.nodes[8]);
    sample.attach(&sample.nodes[7], &sample.nodes[3]);
    EXPECT_EQ(kivCS2LinkTree_insertNode(&sample.tree, &sample.nodes[2], &sample.nodes[5], &sample.nodes[4]),
              KIVCS2STATUS_OK);
    EXPECT_EQ(sample.walk(), (IDs{1, 2, 4, 5, 6, 7, 3, 8}));
}

TEST(LinkTree, KnowsItsNodesAndTheirMarks)
{
    Sample sample;
    EXPECT_EQ(_kivCS2LinkTree_isTreeNode(&sample.tree, &sample.nodes[7]), KIVCS2STATUS_OK);
    EXPECT_EQ(_kivCS2LinkTree_isTreeNode(&sample.tree, &sample.nodes[1]), KIVCS2STATUS_OK);
    EXPECT_EQ(_kivCS2LinkTree_isTreeNode(&sample.tree, &sample.nodes[0]), KIVCS2STATUS_NOT_FOUND_ERR);
    sample.flag(3, 0x10);
    sample.flag(3, 0x40); // added to the first
    bool isSet = false;
    EXPECT_EQ(_kivCS2LinkTree_getNodeFlag(&sample.nodes[3], 0x11, &isSet), KIVCS2STATUS_OK);
    EXPECT_TRUE(isSet);
    EXPECT_EQ(_kivCS2LinkTree_getNodeFlag(&sample.nodes[3], 0x2f, &isSet), KIVCS2STATUS_OK);
    EXPECT_FALSE(isSet);
    uint32_t ID = 0;
    EXPECT_EQ(_kivCS2LinkTree_getNodeID(&sample.nodes[3], &ID), KIVCS2STATUS_OK);
    EXPECT_EQ(ID, 3u);
}

// A tree of owned nodes with room for one number each, which is their ID.
Node *grow(KIVCS2LinkTree &tree, Node *parent, uint32_t depth, uint32_t &ID)
{
    Node *node = nullptr;
    EXPECT_EQ(kivCS2LinkTree_attachNewNode(&tree, parent, sizeof(Node) + 4, nullptr, &node), KIVCS2STATUS_OK);
    EXPECT_EQ(*reinterpret_cast<uint32_t *>(node + 1), 0u);
    node->m_ID = *reinterpret_cast<uint32_t *>(node + 1) = ++ID;
    for (uint32_t child = 0; depth > 0 && child < 3; ++child)
        grow(tree, node, depth - 1, ID);
    return node;
}

TEST(LinkTree, FreeReleasesParentsFirst)
{
    // What a release writes into memory that has gone, and what it forgets, the sanitizers see.
    KIVCS2LinkTree tree{};
    uint32_t ID = 0;
    Node *root = grow(tree, nullptr, 3, ID);
    uint32_t count = 0;
    EXPECT_EQ(_kivCS2LinkTree_countNodes(&tree, nullptr, &count), KIVCS2STATUS_OK);
    EXPECT_EQ(count, 40u);
    Node embedded{};
    EXPECT_EQ(kivCS2LinkTree_attachNode(&tree, root, &embedded), KIVCS2STATUS_OK);
    grow(tree, &embedded, 1, ID);
    EXPECT_EQ(_kivCS2LinkTree_free(&tree), KIVCS2STATUS_OK);
    EXPECT_EQ(tree.m_root, nullptr);
    EXPECT_TRUE(!embedded.m_parent && !embedded.m_link.m_list && !embedded.m_children.m_next);
    EXPECT_EQ(_kivCS2LinkTree_free(&tree), KIVCS2STATUS_OK);
}

TEST(LinkTree, FreeLeavesLockedAndSkippedNodes)
{
    KIVCS2LinkTree tree{};
    uint32_t ID = 0;
    Node *root = grow(tree, nullptr, 0, ID);
    Node *locked = grow(tree, root, 1, ID);
    Node *skipped = grow(tree, root, 1, ID);
    Node *below = grow(tree, locked, 0, ID);
    (void)_kivCS2LinkTree_setNodeFlag(locked, KIVCS2LinkTreeNodeFlag_Locked);
    (void)_kivCS2LinkTree_setNodeFlag(below, KIVCS2LinkTreeNodeFlag_Locked);
    (void)_kivCS2LinkTree_setNodeFlag(skipped, KIVCS2LinkTreeNodeFlag_Skip);
    EXPECT_EQ(_kivCS2LinkTree_free(&tree), KIVCS2STATUS_OK);

    // The parent of both has gone; the locked one keeps just its locked child.
    EXPECT_TRUE(!locked->m_parent && !locked->m_link.m_list && !skipped->m_parent && !skipped->m_link.m_list);
    EXPECT_EQ(locked->m_children.m_count, 1u);
    EXPECT_EQ(locked->m_children.m_next, &below->m_link);
    EXPECT_EQ(below->m_parent, locked);
    EXPECT_EQ(skipped->m_children.m_count, 3u);
    for (Node *node : {below, locked})
        node->m_flags = KIVCS2LinkTreeNodeFlag_Owned;
    skipped->m_flags = KIVCS2LinkTreeNodeFlag_Owned;
    for (Node *node : {locked, skipped})
    {
        EXPECT_EQ(kivCS2LinkTree_attachNode(&tree, nullptr, node), KIVCS2STATUS_OK);
        EXPECT_EQ(_kivCS2LinkTree_free(&tree), KIVCS2STATUS_OK);
    }
}

TEST(LinkTree, ChildrenOutliveAFreedParent)
{
    KIVCS2LinkTree tree{};
    uint32_t ID = 0;
    Node *root = grow(tree, nullptr, 1, ID);
    std::vector<Node *> children;
    for (KIVCS2LinkElem *elem = root->m_children.m_next; elem; elem = elem->m_next)
        children.push_back(reinterpret_cast<Node *>(elem));
    EXPECT_EQ(kivCS2LinkTree_freeNode(root, 1), KIVCS2STATUS_OK);
    tree.m_root = nullptr;

    Node *newRoot = grow(tree, nullptr, 0, ID);
    for (Node *child : children)
    {
        EXPECT_EQ(child->m_parent, nullptr);
        EXPECT_EQ(kivCS2LinkTree_attachNode(&tree, newRoot, child), KIVCS2STATUS_OK);
    }
    EXPECT_TRUE(kivCS2LinkList_checkValid(&newRoot->m_children));
    EXPECT_EQ(kivCS2LinkTree_freeNode(children[1], 1), KIVCS2STATUS_OK);
    EXPECT_EQ(newRoot->m_children.m_count, 2u);
    // An owned node that is detached is the caller's.
    EXPECT_EQ(kivCS2LinkTree_detachNode(&tree, children[0]), KIVCS2STATUS_OK);
    EXPECT_EQ(children[0]->m_flags, 0u);
    EXPECT_EQ(kivCS2LinkTree_freeNode(children[0], 1), KIVCS2STATUS_OK); // no longer the tree's to free
    std::free(children[0]);
    EXPECT_EQ(_kivCS2LinkTree_free(&tree), KIVCS2STATUS_OK);
}

TEST(LinkTree, DeepTreesNeedLittleStack)
{
    constexpr uint32_t kDepth = 100000;
    KIVCS2LinkTree tree{};
    Node *node = nullptr;
    for (uint32_t level = 0; level < kDepth; ++level)
        ASSERT_EQ(kivCS2LinkTree_attachNewNode(&tree, node, 0, nullptr, &node), KIVCS2STATUS_OK);
    uint32_t count = 0;
    EXPECT_EQ(_kivCS2LinkTree_countNodes(&tree, nullptr, &count), KIVCS2STATUS_OK);
    EXPECT_EQ(count, kDepth);
    node->m_ID = 1;
    Visits visits{{}, 1, KIVCS2STATUS_NOT_FOUND_ERR};
    Node *found = nullptr;
    EXPECT_EQ(_kivCS2LinkTree_traverseNodes(&tree, nullptr, &found, Visits::visit, &visits, 0),
              KIVCS2STATUS_NOT_FOUND_ERR);
    EXPECT_EQ(found->m_parent, tree.m_root);
    EXPECT_EQ(visits.ids.size(), kDepth);
    EXPECT_EQ(_kivCS2LinkTree_free(&tree), KIVCS2STATUS_OK);
}

TEST(LinkTree, MissingArgumentsAreRefused)
{
    Sample sample;
    KIVCS2LinkTree *tree = &sample.tree;
    Node *node = &sample.nodes[1];
    Node *loose = &sample.nodes[0];
    Node *made = nullptr;
    bool isSet = false;
    uint32_t number = 0;
    const std::function<KIVCS2Status()> calls[] = {
        KIV_CALL(_kivCS2LinkTree_init(nullptr)),
        KIV_CALL(_kivCS2LinkTree_initNode(nullptr, nullptr)),
        KIV_CALL(_kivCS2LinkTree_setNodeFlag(nullptr, 1)),
        KIV_CALL(_kivCS2LinkTree_getNodeFlag(nullptr, 1, &isSet)),
        KIV_CALL(_kivCS2LinkTree_getNodeFlag(node, 1, nullptr)),
        KIV_CALL(_kivCS2LinkTree_setNodeID(nullptr, 1)),
        KIV_CALL(_kivCS2LinkTree_getNodeID(nullptr, &number)),
        KIV_CALL(_kivCS2LinkTree_getNodeID(node, nullptr)),
        KIV_CALL(kivCS2LinkTree_attachNode(nullptr, node, loose)),
        KIV_CALL(kivCS2LinkTree_attachNode(tree, node, nullptr)),
        KIV_CALL(kivCS2LinkTree_attachNewNode(nullptr, node, 0, nullptr, &made)),
        KIV_CALL(kivCS2LinkTree_attachNewNode(tree, node, 0, nullptr, nullptr)),
        KIV_CALL(kivCS2LinkTree_insertNode(nullptr, node, nullptr, loose)),
        KIV_CALL(kivCS2LinkTree_insertNode(tree, nullptr, nullptr, loose)),
        KIV_CALL(kivCS2LinkTree_insertNode(tree, node, nullptr, nullptr)),
        KIV_CALL(kivCS2LinkTree_insertNode(tree, node, node, loose)), // the root has no siblings
        KIV_CALL(kivCS2LinkTree_insertNode(tree, node, &sample.nodes[2], &sample.nodes[2])),
        KIV_CALL(kivCS2LinkTree_detachNode(nullptr, node)),
        KIV_CALL(kivCS2LinkTree_detachNode(tree, nullptr)),
        KIV_CALL(kivCS2LinkTree_freeNode(nullptr, 1)),
        KIV_CALL(_kivCS2LinkTree_free(nullptr)),
        KIV_CALL(_kivCS2LinkTree_traverseNodes(nullptr, node, nullptr, nullptr, nullptr, 0)),
        KIV_CALL(_kivCS2LinkTree_countNodes(nullptr, node, &number)),
        KIV_CALL(_kivCS2LinkTree_countNodes(tree, node, nullptr)),
        KIV_CALL(_kivCS2LinkTree_isTreeNode(nullptr, node)),
        KIV_CALL(_kivCS2LinkTree_isTreeNode(tree, nullptr)),
        KIV_CALL(_kivCS2LinkTree_anyParentNodeLocked(nullptr)),
        KIV_CALL(_kivCS2LinkTree_freeNodeCallback(nullptr, node, nullptr)),
        KIV_CALL(_kivCS2LinkTree_freeNodeCallback(tree, nullptr, nullptr)),
    };
    for (const auto &call : calls)
        EXPECT_EQ(call(), KIVCS2STATUS_PARAM_ERR) << &call - calls;
    EXPECT_EQ(sample.walk(), (IDs{1, 2, 5, 6, 7, 3, 4, 8}));
    kiv::test::expectRefused({"kivCS2LinkTree_newNode", "(node) != NULL", KIVCS2STATUS_PARAM_ERR,
                              KIV_CALL(kivCS2LinkTree_newNode(0, nullptr, nullptr))});
}
} // namespace
