// Operations on a tree, compared with vectors of children. Each operation takes three bytes of the input: the
// operation and two nodes. Every second node belongs to the tree, the others to the caller; locks and skips
// come and go.
#include "Require.h"

#include "KIVCS2LinkTree.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace
{
constexpr size_t kNodes = 16;
constexpr size_t kMaxSteps = 100; // longer inputs find no more faults
constexpr int kNone = -1;

using Node = KIVCS2LinkTreeNode;

// The expected state of a node: whether it exists, its flags and its place.
struct NodeModel
{
    Node *node = nullptr;
    uint32_t flags = 0;
    int holder = kNone; // its parent
    std::vector<int> children;
};

class Trees
{
public:
    Trees()
    {
        for (int index = 0; index < static_cast<int>(kNodes); ++index)
            make(index);
    }

    Trees(const Trees &) = delete;
    Trees &operator=(const Trees &) = delete;

    ~Trees()
    {
        for (NodeModel &model : m_models)
            model.node->m_flags &= ~(KIVCS2LinkTreeNodeFlag_Locked | KIVCS2LinkTreeNodeFlag_Skip);
        for (NodeModel &model : m_models)
            model.flags = model.node->m_flags;
        freeTree();
        for (int index = 0; index < static_cast<int>(kNodes); ++index)
            if (index % 2 == 0 && model(index).node)
                std::free(model(index).node);
    }

    void run(const uint8_t *step)
    {
        const int node = step[1] % static_cast<int>(kNodes);
        const int other = step[2] % static_cast<int>(kNodes);
        switch (step[0] % 8)
        {
        case 0:
        case 1:
            attach(node, other);
            break;
        case 2:
            attach(node, kNone);
            break;
        case 3:
            insert(node, other);
            break;
        case 4:
            detach(node);
            break;
        case 5:
            freeNode(node, step[2] % 3);
            break;
        case 6:
            mark(node, step[2]);
            break;
        default:
            if (step[2] < 16)
                freeTree();
        }
        compare();
    }

private:
    NodeModel &model(int index)
    {
        return m_models[static_cast<size_t>(index)];
    }

    // Even nodes belong to the tree, odd ones to the caller.
    void make(int index)
    {
        NodeModel &made = model(index);
        made = {};
        if (index % 2 == 0)
        {
            require(kivCS2LinkTree_newNode(sizeof(Node) + 3, nullptr, &made.node) == KIVCS2STATUS_OK);
            made.flags = KIVCS2LinkTreeNodeFlag_Owned;
        }
        else
        {
            made.node = &m_embedded[static_cast<size_t>(index)];
            require(_kivCS2LinkTree_initNode(made.node, nullptr) == KIVCS2STATUS_OK);
        }
        made.node->m_ID = static_cast<uint32_t>(index);
    }

    [[nodiscard]] bool locked(int index)
    {
        return (model(index).flags & KIVCS2LinkTreeNodeFlag_Locked) != 0;
    }

    [[nodiscard]] bool isBelow(int index, int ancestor)
    {
        for (; index != kNone; index = model(index).holder)
            if (index == ancestor)
                return true;
        return false;
    }

    void takeOut(int index)
    {
        if (model(index).holder != kNone)
            std::erase(model(model(index).holder).children, index);
        model(index).holder = kNone;
    }

    // A node that was initialised again is alone and has no flags.
    void renew(int index)
    {
        takeOut(index);
        for (const int child : model(index).children)
            model(child).holder = kNone;
        model(index).children.clear();
        model(index).flags = 0;
        model(index).node->m_ID = static_cast<uint32_t>(index);
    }

    void attach(int node, int parent)
    {
        // Duties of the caller: no rings, and the root stays the root until another node replaces it.
        if ((parent != kNone && isBelow(parent, node)) || node == m_root)
            return;
        const bool rootStays = parent == kNone && m_root != kNone && locked(m_root);
        const KIVCS2Status status = kivCS2LinkTree_attachNode(
            &m_tree, parent == kNone ? nullptr : model(parent).node, model(node).node);
        require(status == (locked(node) || rootStays ? KIVCS2STATUS_NODE_LOCKED_ERR : KIVCS2STATUS_OK));
        if (locked(node))
            return;
        takeOut(node);
        if (parent != kNone)
        {
            model(parent).children.push_back(node);
            model(node).holder = parent;
        }
        else if (!rootStays)
        {
            if (m_root != kNone)
                renew(m_root);
            m_root = node;
        }
    }

    void insert(int node, int sibling)
    {
        const int parent = model(sibling).holder;
        if (node == m_root || (parent != kNone && isBelow(parent, node)))
            return;
        const KIVCS2Status status = kivCS2LinkTree_insertNode(
            &m_tree, model(parent == kNone ? sibling : parent).node, model(sibling).node, model(node).node);
        if (locked(node) || locked(sibling))
        {
            require(status == KIVCS2STATUS_NODE_LOCKED_ERR);
            return;
        }
        if (node == sibling || parent == kNone)
        {
            require(status == KIVCS2STATUS_PARAM_ERR);
            return;
        }
        require(status == KIVCS2STATUS_OK);
        takeOut(node);
        std::vector<int> &children = model(parent).children;
        children.insert(std::find(children.begin(), children.end(), sibling), node);
        model(node).holder = parent;
    }

    void detach(int node)
    {
        const KIVCS2Status status = kivCS2LinkTree_detachNode(&m_tree, model(node).node);
        require(status == (locked(node) ? KIVCS2STATUS_NODE_LOCKED_ERR : KIVCS2STATUS_OK));
        if (locked(node))
            return;
        renew(node);
        if (node == m_root)
            m_root = kNone;
    }

    void freeNode(int node, uint8_t freeFlag)
    {
        if (node == m_root)
            return;
        const bool owned = (model(node).flags & KIVCS2LinkTreeNodeFlag_Owned) != 0;
        const KIVCS2Status status = kivCS2LinkTree_freeNode(model(node).node, freeFlag);
        require(status == (locked(node) ? KIVCS2STATUS_NODE_LOCKED_ERR : KIVCS2STATUS_OK));
        if (locked(node))
            return;
        takeOut(node);
        if (freeFlag == 1 && owned)
            gone(node);
        else if (freeFlag != 1)
            renew(node);
    }

    // The memory of the node is freed; a new node takes its number.
    void gone(int node)
    {
        takeOut(node);
        for (const int child : model(node).children)
            model(child).holder = kNone;
        make(node);
    }

    void mark(int node, uint8_t bits)
    {
        // The owner of the record removes locks and skips.
        constexpr uint32_t kMarks = KIVCS2LinkTreeNodeFlag_Locked | KIVCS2LinkTreeNodeFlag_Skip;
        NodeModel &marked = model(node);
        marked.flags = (marked.flags & ~kMarks) | (bits & kMarks);
        marked.node->m_flags &= ~kMarks;
        require(_kivCS2LinkTree_setNodeFlag(marked.node, bits & kMarks) == KIVCS2STATUS_OK);
    }

    void collect(int node, bool skips, std::vector<int> &nodes)
    {
        if (skips && (model(node).flags & KIVCS2LinkTreeNodeFlag_Skip) != 0)
            return;
        nodes.push_back(node);
        for (const int child : model(node).children)
            collect(child, skips, nodes);
    }

    void freeTree()
    {
        std::vector<int> nodes;
        if (m_root != kNone)
            collect(m_root, true, nodes);
        require(_kivCS2LinkTree_free(&m_tree) == KIVCS2STATUS_OK && !m_tree.m_root);
        m_root = kNone;
        for (const int node : nodes)
        {
            if (locked(node))
                continue;
            if ((model(node).flags & KIVCS2LinkTreeNodeFlag_Owned) != 0)
                gone(node);
            else
                renew(node);
        }
    }

    static KIVCS2Status note(KIVCS2LinkTree *, Node *node, void *context)
    {
        static_cast<std::vector<int> *>(context)->push_back(static_cast<int>(node->m_ID));
        return KIVCS2STATUS_OK;
    }

    void compareBelow(int start)
    {
        m_wanted.clear();
        m_all.clear();
        m_visited.clear();
        collect(start, true, m_wanted);
        collect(start, false, m_all);
        Node *const node = model(start).node;
        uint32_t count = 0;
        require(_kivCS2LinkTree_traverseNodes(&m_tree, node, nullptr, note, &m_visited, 0) ==
                KIVCS2STATUS_OK);
        require(_kivCS2LinkTree_countNodes(&m_tree, node, &count) == KIVCS2STATUS_OK);
        require(m_visited == m_wanted && count == m_all.size());
    }

    void compare()
    {
        require(m_tree.m_root == (m_root == kNone ? nullptr : model(m_root).node));
        for (int index = 0; index < static_cast<int>(kNodes); ++index)
        {
            NodeModel &known = model(index);
            require(known.node->m_flags == known.flags);
            require(kivCS2LinkList_checkValid(&known.node->m_children));
            require(known.node->m_children.m_count == known.children.size());
            const bool held = known.holder != kNone;
            require((known.node->m_link.m_list != nullptr) == held);
            if (held)
                require(known.node->m_parent == model(known.holder).node);
            if (!held || index == m_root)
                compareBelow(index);
        }
    }

    KIVCS2LinkTree m_tree{};
    int m_root = kNone;
    std::array<NodeModel, kNodes> m_models;
    std::array<Node, kNodes> m_embedded;
    std::vector<int> m_wanted; // the nodes of one comparison
    std::vector<int> m_all;
    std::vector<int> m_visited;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Trees trees;
    for (size_t at = 0; at + 3 <= std::min(size, 3 * kMaxSteps); at += 3)
        trees.run(data + at);
    return 0;
}
