// Link trees: nodes as elements of their parents' lists of children.
#include "KIVCS2LinkTree.h"

#include "Private/Support/Check.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>

// A link element has the address of its node.
static_assert(offsetof(KIVCS2LinkTreeNode, m_link) == 0);

namespace
{
KIVCS2LinkTreeNode *nodeOf(KIVCS2LinkElem *elem)
{
    return reinterpret_cast<KIVCS2LinkTreeNode *>(elem);
}

// Returns the node whose list of children holds `node`; this may differ from the parent that was given.
KIVCS2LinkTreeNode *holderOf(const KIVCS2LinkTreeNode *node)
{
    auto *list = reinterpret_cast<std::byte *>(node->m_link.m_list);
    return reinterpret_cast<KIVCS2LinkTreeNode *>(list - offsetof(KIVCS2LinkTreeNode, m_children));
}

bool hasFlag(const KIVCS2LinkTreeNode *node, uint32_t mask)
{
    return (node->m_flags & mask) != 0;
}

// Releases the children of a node whose list is about to end: unlinking a child later must not write to that
// list. Their m_next stays, for a walk that has noted them.
void abandonChildren(KIVCS2LinkTreeNode *node, KIVCS2LinkTreeNode *parentLeft)
{
    for (KIVCS2LinkElem *child = node->m_children.m_next; child; child = child->m_next)
    {
        child->m_list = nullptr;
        if (nodeOf(child)->m_parent == node)
            nodeOf(child)->m_parent = parentLeft;
    }
}

// One walk over a tree: the callback, and the condition that ends it.
struct Walk
{
    KIVCS2LinkTree *tree;
    KIVCS2LinkTreeCallback callback;
    void *context;
    bool all;

    // A result that ends the walk, or 0.
    [[nodiscard]] KIVCS2Status visit(KIVCS2LinkTreeNode *node) const
    {
        const KIVCS2LinkTreeCallback call = callback ? callback : node->m_callback;
        const KIVCS2Status result = call ? call(tree, node, context) : KIVCS2STATUS_OK;
        return all ? KIVCS2STATUS_OK : result;
    }
};

// The depth that one call covers; deeper levels need another call. This keeps the stack of a deep tree small.
constexpr size_t kLevelsPerCall = 64;

// Walks the siblings from `first` on and all nodes below. Visits may release their nodes, so the walk keeps
// only the next sibling of each level, noted before the visit. `top` is the node of `first`'s level in whose
// subtree the walk is.
[[nodiscard]] KIVCS2Status walkSiblings(const Walk &walk, KIVCS2LinkElem *first, KIVCS2LinkTreeNode *&top)
{
    std::array<KIVCS2LinkElem *, kLevelsPerCall> pending;
    size_t level = 0;
    pending[0] = first;
    for (;;)
    {
        KIVCS2LinkTreeNode *node = nodeOf(pending[level]);
        if (!node)
        {
            if (level == 0)
                return KIVCS2STATUS_OK;
            --level;
            continue;
        }
        pending[level] = node->m_link.m_next;
        if (level == 0)
            top = node;
        if (hasFlag(node, KIVCS2LinkTreeNodeFlag_Skip))
            continue;

        KIVCS2LinkElem *children = node->m_children.m_next;
        if (const KIVCS2Status result = walk.visit(node); result != KIVCS2STATUS_OK)
            return result;
        if (level + 1 < kLevelsPerCall)
        {
            pending[++level] = children;
            continue;
        }
        KIVCS2LinkTreeNode *below = nullptr;
        if (const KIVCS2Status result = walkSiblings(walk, children, below); result != KIVCS2STATUS_OK)
            return result;
    }
}
} // namespace

KIVCS2Status _kivCS2LinkTree_init(KIVCS2LinkTree *tree)
{
    if (!tree)
        return KIVCS2STATUS_PARAM_ERR;

    tree->m_root = nullptr;
    return KIVCS2STATUS_OK;
}

KIVCS2LinkTreeNode *_kivCS2LinkTree_newNode(uint32_t size, KIVCS2LinkTreeCallback callback)
{
    auto *node = static_cast<KIVCS2LinkTreeNode *>(
        kivCS2ZeroMalloc(std::max<size_t>(size, sizeof(KIVCS2LinkTreeNode))));
    if (!node)
        return nullptr;
    node->m_callback = callback;
    node->m_flags = KIVCS2LinkTreeNodeFlag_Owned;
    return node;
}

KIVCS2Status _kivCS2LinkTree_initNode(KIVCS2LinkTreeNode *node, KIVCS2LinkTreeCallback callback)
{
    if (!node)
        return KIVCS2STATUS_PARAM_ERR;

    *node = {};
    node->m_callback = callback;
    return KIVCS2STATUS_OK;
}

KIVCS2Status _kivCS2LinkTree_setNodeFlag(KIVCS2LinkTreeNode *node, uint32_t mask)
{
    if (!node)
        return KIVCS2STATUS_PARAM_ERR;

    node->m_flags |= mask;
    return KIVCS2STATUS_OK;
}

KIVCS2Status _kivCS2LinkTree_getNodeFlag(const KIVCS2LinkTreeNode *node, uint32_t mask, bool *isSet)
{
    if (!node || !isSet)
        return KIVCS2STATUS_PARAM_ERR;

    *isSet = hasFlag(node, mask);
    return KIVCS2STATUS_OK;
}

KIVCS2Status _kivCS2LinkTree_setNodeID(KIVCS2LinkTreeNode *node, uint32_t ID)
{
    if (!node)
        return KIVCS2STATUS_PARAM_ERR;

    node->m_ID = ID;
    return KIVCS2STATUS_OK;
}

KIVCS2Status _kivCS2LinkTree_getNodeID(const KIVCS2LinkTreeNode *node, uint32_t *ID)
{
    if (!node || !ID)
        return KIVCS2STATUS_PARAM_ERR;

    *ID = node->m_ID;
    return KIVCS2STATUS_OK;
}

KIVCS2Status _kivCS2LinkTree_attachNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent,
                                        KIVCS2LinkTreeNode *node)
{
    if (!tree || !node)
        return KIVCS2STATUS_PARAM_ERR;
    // Kept: locks of the parent and above it do not refuse; hosts lock a node and still add below it.
    if (hasFlag(node, KIVCS2LinkTreeNodeFlag_Locked))
        return KIVCS2STATUS_NODE_LOCKED_ERR;

    kivCS2LinkElem_unlink(&node->m_link);
    if (parent)
    {
        kivCS2LinkList_appendElem(&parent->m_children, &node->m_link);
    }
    else
    {
        if (tree->m_root)
            KIV_TRY(_kivCS2LinkTree_detachNode(tree, tree->m_root));
        tree->m_root = node;
    }
    node->m_parent = parent;
    return KIVCS2STATUS_OK;
}

KIVCS2Status _kivCS2LinkTree_attachNewNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent, uint32_t size,
                                           KIVCS2LinkTreeCallback callback, KIVCS2LinkTreeNode **node)
{
    if (!tree || !node)
        return KIVCS2STATUS_PARAM_ERR;

    *node = nullptr;
    KIVCS2LinkTreeNode *created = _kivCS2LinkTree_newNode(size, callback);
    if (!created)
        return KIVCS2STATUS_MEMORY_ERR;
    if (const KIVCS2Status status = _kivCS2LinkTree_attachNode(tree, parent, created); KIVCS2_FAILED(status))
    {
        std::free(created);
        return status;
    }
    *node = created;
    return KIVCS2STATUS_OK;
}

KIVCS2Status _kivCS2LinkTree_insertNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent,
                                        KIVCS2LinkTreeNode *sibling, KIVCS2LinkTreeNode *node)
{
    if (!tree || !parent || !node)
        return KIVCS2STATUS_PARAM_ERR;
    if (!sibling)
        return _kivCS2LinkTree_attachNode(tree, parent, node);
    if (hasFlag(node, KIVCS2LinkTreeNodeFlag_Locked) || hasFlag(sibling, KIVCS2LinkTreeNodeFlag_Locked))
        return KIVCS2STATUS_NODE_LOCKED_ERR;
    // A root or a loose node is in no list, so nothing can be inserted before it.
    if (sibling == node || !sibling->m_link.m_list)
        return KIVCS2STATUS_PARAM_ERR;

    kivCS2LinkElem_unlink(&node->m_link);
    kivCS2LinkList_insertElemBefore(&node->m_link, &sibling->m_link);
    // Kept: the parent is the one given, even if it does not hold the sibling.
    node->m_parent = parent;
    return KIVCS2STATUS_OK;
}

KIVCS2Status _kivCS2LinkTree_detachNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *node)
{
    if (!tree || !node)
        return KIVCS2STATUS_PARAM_ERR;

    const bool isRoot = tree->m_root == node;
    KIV_TRY(_kivCS2LinkTree_freeNode(node, 0));
    if (isRoot)
        tree->m_root = nullptr;
    return KIVCS2STATUS_OK;
}

KIVCS2Status _kivCS2LinkTree_freeNode(KIVCS2LinkTreeNode *node, uint32_t freeFlag)
{
    if (!node)
        return KIVCS2STATUS_PARAM_ERR;
    if (hasFlag(node, KIVCS2LinkTreeNodeFlag_Locked))
        return KIVCS2STATUS_NODE_LOCKED_ERR;

    kivCS2LinkElem_unlink(&node->m_link);
    if (freeFlag != 1)
    {
        // Kept: the children still name it as their parent, and the node forgets them and its flags.
        abandonChildren(node, node);
        return _kivCS2LinkTree_initNode(node, node->m_callback);
    }
    if (hasFlag(node, KIVCS2LinkTreeNodeFlag_Owned))
    {
        abandonChildren(node, nullptr);
        std::free(node);
    }
    return KIVCS2STATUS_OK;
}

KIVCS2Status _kivCS2LinkTree_free(KIVCS2LinkTree *tree)
{
    if (!tree)
        return KIVCS2STATUS_PARAM_ERR;

    // Kept: nodes that refuse and nodes that the walk skips stay with the host, and the tree is empty.
    (void)_kivCS2LinkTree_traverseNodes(tree, nullptr, nullptr, _kivCS2LinkTree_freeNodeCallback, nullptr, 1);
    tree->m_root = nullptr;
    return KIVCS2STATUS_OK;
}

KIVCS2Status _kivCS2LinkTree_traverseNodes(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *start,
                                           KIVCS2LinkTreeNode **node, KIVCS2LinkTreeCallback callback,
                                           void *context, uint32_t all)
{
    if (!tree)
        return KIVCS2STATUS_PARAM_ERR;
    KIVCS2LinkTreeNode *first = start ? start : tree->m_root;
    if (!first || hasFlag(first, KIVCS2LinkTreeNodeFlag_Skip))
        return KIVCS2STATUS_OK;

    const Walk walk{tree, callback, context, all != 0};
    KIVCS2LinkElem *children = first->m_children.m_next;
    // Kept: a search that ends further down returns the node's ancestor on the first level.
    KIVCS2LinkTreeNode *found = first;
    KIVCS2Status result = walk.visit(first);
    if (result == KIVCS2STATUS_OK)
        result = walkSiblings(walk, children, found);
    if (result != KIVCS2STATUS_OK && node)
        *node = found;
    return result;
}

KIVCS2Status _kivCS2LinkTree_countNodes(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *start, uint32_t *count)
{
    if (!tree || !count)
        return KIVCS2STATUS_PARAM_ERR;
    KIVCS2LinkTreeNode *first = start ? start : tree->m_root;
    if (!first)
        return KIVCS2STATUS_OK;

    // Kept: skipped nodes count, and the count is added to the caller's value. Nothing is released meanwhile,
    // so the lists lead back up without a stack.
    for (KIVCS2LinkTreeNode *node = first;; node = nodeOf(node->m_link.m_next))
    {
        ++*count;
        for (; node->m_children.m_next; ++*count)
            node = nodeOf(node->m_children.m_next);
        while (node != first && !node->m_link.m_next)
            node = holderOf(node);
        if (node == first)
            return KIVCS2STATUS_OK;
    }
}

KIVCS2Status _kivCS2LinkTree_isTreeNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *node)
{
    if (!tree || !node)
        return KIVCS2STATUS_PARAM_ERR;

    while (node && node != tree->m_root)
        node = node->m_parent;
    return node ? KIVCS2STATUS_OK : KIVCS2STATUS_NOT_FOUND_ERR;
}

KIVCS2Status _kivCS2LinkTree_anyParentNodeLocked(KIVCS2LinkTreeNode *node)
{
    if (!node)
        return KIVCS2STATUS_PARAM_ERR;

    for (const KIVCS2LinkTreeNode *parent = node->m_parent; parent; parent = parent->m_parent)
        if (hasFlag(parent, KIVCS2LinkTreeNodeFlag_Locked))
            return KIVCS2STATUS_NODE_LOCKED_ERR;
    return KIVCS2STATUS_OK;
}

KIVCS2Status _kivCS2LinkTree_freeNodeCallback(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *node, void *context)
{
    (void)context;
    if (!tree || !node)
        return KIVCS2STATUS_PARAM_ERR;

    return _kivCS2LinkTree_freeNode(node, hasFlag(node, KIVCS2LinkTreeNodeFlag_Owned) ? 1 : 0);
}

KIVCS2Status kivCS2LinkTree_newNode(uint32_t size, KIVCS2LinkTreeCallback callback, KIVCS2LinkTreeNode **node)
{
    KIV_CHECK_AS(node, "(node) != NULL", KIVCS2STATUS_PARAM_ERR);

    *node = _kivCS2LinkTree_newNode(size, callback);
    return *node ? KIVCS2STATUS_OK : KIVCS2STATUS_MEMORY_ERR;
}

KIVCS2Status kivCS2LinkTree_attachNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent,
                                       KIVCS2LinkTreeNode *node)
{
    return _kivCS2LinkTree_attachNode(tree, parent, node);
}

KIVCS2Status kivCS2LinkTree_attachNewNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent, uint32_t size,
                                          KIVCS2LinkTreeCallback callback, KIVCS2LinkTreeNode **node)
{
    return _kivCS2LinkTree_attachNewNode(tree, parent, size, callback, node);
}

KIVCS2Status kivCS2LinkTree_insertNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent,
                                       KIVCS2LinkTreeNode *sibling, KIVCS2LinkTreeNode *node)
{
    return _kivCS2LinkTree_insertNode(tree, parent, sibling, node);
}

KIVCS2Status kivCS2LinkTree_detachNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *node)
{
    return _kivCS2LinkTree_detachNode(tree, node);
}

KIVCS2Status kivCS2LinkTree_freeNode(KIVCS2LinkTreeNode *node, uint32_t freeFlag)
{
    return _kivCS2LinkTree_freeNode(node, freeFlag);
}
