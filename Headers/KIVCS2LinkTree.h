/**
 * @file
 * Link trees: each node is a link element in its parent's list of children and holds a list of its own.
 *
 * A caller's record begins with a KIVCS2LinkTreeNode. Either the tree allocates the record, with room for the
 * caller's fields after the node, and frees it with the tree (owned), or the record lies in the caller's
 * memory and is made ready with _kivCS2LinkTree_initNode().
 *
 * Detaching a node makes it new: it forgets its children, flags and ID, so an owned node becomes the
 * caller's, who releases it with free(). Its former children still name it as their parent: attach them
 * elsewhere, or release them, before releasing that memory.
 *
 * The caller keeps the tree a tree: do not attach a node below itself, nor a tree's root below a node. Walks
 * use the stack, about 10 bytes for each level of depth in a release build. The operations that begin with an
 * underscore do the work; the others forward to them. Nothing is locked: callers that share a tree serialise
 * its use.
 *
 * @code
 * KIVCS2LinkTree tree;
 * KIVCS2LinkTreeNode *root, *child;
 * uint32_t count = 0;
 * _kivCS2LinkTree_init(&tree);
 * if (KIVCS2_SUCCEEDED(kivCS2LinkTree_attachNewNode(&tree, NULL, 0, NULL, &root)))
 *     kivCS2LinkTree_attachNewNode(&tree, root, 0, NULL, &child);
 * _kivCS2LinkTree_countNodes(&tree, NULL, &count);
 * printf("%u nodes\n", count); // prints: 2 nodes
 * _kivCS2LinkTree_free(&tree); // and its owned nodes
 * @endcode
 */
#ifndef KIVCS2_LINK_TREE_H
#define KIVCS2_LINK_TREE_H

#include "KIVCS2LinkList.h"

KIVCS2_BEGIN_DECLS

/** Properties of a node, combined with "or". Flags are only added; re-initialising the node clears them. */
typedef uint32_t KIVCS2LinkTreeNodeFlag;
enum
{
    KIVCS2LinkTreeNodeFlag_Skip = 1,   /**< walks neither visit the node nor enter its subtree */
    KIVCS2LinkTreeNodeFlag_Locked = 2, /**< attach, insert, detach and free refuse the node */
    KIVCS2LinkTreeNodeFlag_Owned = 4   /**< allocated by the tree and freed by it */
};

struct KIVCS2LinkTreeNode;

/** A tree. */
typedef struct KIVCS2LinkTree
{
    struct KIVCS2LinkTreeNode *m_root; /**< the root; null while the tree is empty */
} KIVCS2LinkTree;

/** Visits a node; 0 continues, any other result ends a search. It may release or detach its node. */
typedef KIVCS2Status (*KIVCS2LinkTreeCallback)(KIVCS2LinkTree *tree, struct KIVCS2LinkTreeNode *node,
                                               void *context);

/** A node; the caller's fields follow it. */
typedef struct KIVCS2LinkTreeNode
{
    KIVCS2LinkElem m_link;               /**< link in the parent's list of children */
    KIVCS2LinkList m_children;           /**< the children, in order */
    struct KIVCS2LinkTreeNode *m_parent; /**< null for the root and for loose nodes */
    KIVCS2LinkTreeCallback m_callback;   /**< visits this node if a walk has no callback; may be null */
    uint32_t m_flags;                    /**< KIVCS2LinkTreeNodeFlag */
    uint32_t m_ID;                       /**< the caller's; 0 after init */
} KIVCS2LinkTreeNode;

/**
 * Makes `tree` empty; nodes it held are forgotten.
 * @retval KIVCS2STATUS_PARAM_ERR  `tree` is null
 * Thread safety: the tree's owner, as for all operations below.
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_init(KIVCS2LinkTree *tree);

/**
 * Returns a new owned node with `callback` and `size` bytes, at least those of a node; the rest is zero.
 * Release it with kivCS2LinkTree_freeNode() and free flag 1, or with the tree it is attached to.
 * @return null if there is no memory
 */
KIVCS2_API KIVCS2LinkTreeNode *_kivCS2LinkTree_newNode(uint32_t size, KIVCS2LinkTreeCallback callback);

/**
 * Turns `node` into a loose node with `callback`, whatever it held; nothing is read or released.
 * @retval KIVCS2STATUS_PARAM_ERR  `node` is null
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_initNode(KIVCS2LinkTreeNode *node, KIVCS2LinkTreeCallback callback);

/**
 * Adds the flags of `mask`.
 * @retval KIVCS2STATUS_PARAM_ERR  `node` is null
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_setNodeFlag(KIVCS2LinkTreeNode *node, uint32_t mask);

/**
 * Stores whether the node has any flag of `mask`.
 * @retval KIVCS2STATUS_PARAM_ERR  `node` or `isSet` is null
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_getNodeFlag(const KIVCS2LinkTreeNode *node, uint32_t mask,
                                                    bool *isSet);

/**
 * Sets the caller's identifier; it need not be unique.
 * @retval KIVCS2STATUS_PARAM_ERR  `node` is null
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_setNodeID(KIVCS2LinkTreeNode *node, uint32_t ID);

/**
 * Stores the caller's identifier.
 * @retval KIVCS2STATUS_PARAM_ERR  `node` or `ID` is null
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_getNodeID(const KIVCS2LinkTreeNode *node, uint32_t *ID);

/**
 * Takes `node` out of its place and makes it the last child of `parent`, or the root if `parent` is null; the
 * old root is then detached first. Locks of `parent` and of its ancestors are ignored.
 * @retval KIVCS2STATUS_PARAM_ERR        `tree` or `node` is null
 * @retval KIVCS2STATUS_NODE_LOCKED_ERR  `node` is locked and stays; or the old root is locked, and `node` has
 *                                       been taken out of its former parent's children
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_attachNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent,
                                                   KIVCS2LinkTreeNode *node);

/**
 * Allocates an owned node as _kivCS2LinkTree_newNode() does and attaches it.
 * @param[in,out] tree      initialised
 * @param[in]     parent    null: the new node becomes the root
 * @param[in]     size      bytes of the record, the node at its start included
 * @param[in]     callback  visits the node if a walk has no callback; may be null
 * @param[out]    node      the new node; null on failure
 * @retval KIVCS2STATUS_PARAM_ERR        `tree` or `node` is null
 * @retval KIVCS2STATUS_MEMORY_ERR       no memory; the tree is unchanged
 * @retval KIVCS2STATUS_NODE_LOCKED_ERR  the old root is locked; the tree is unchanged
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_attachNewNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent,
                                                      uint32_t size, KIVCS2LinkTreeCallback callback,
                                                      KIVCS2LinkTreeNode **node);

/**
 * Takes `node` out of its place, puts it directly before `sibling` and makes `parent` its parent; the caller
 * must make sure that `parent` holds `sibling`. Without a sibling as _kivCS2LinkTree_attachNode().
 * @retval KIVCS2STATUS_PARAM_ERR        `tree`, `parent` or `node` is null, or `sibling` is `node` or in no
 *                                       list of children; nothing has changed
 * @retval KIVCS2STATUS_NODE_LOCKED_ERR  `node` or `sibling` is locked; nothing has changed
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_insertNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent,
                                                   KIVCS2LinkTreeNode *sibling, KIVCS2LinkTreeNode *node);

/**
 * Takes `node` out of the tree and makes it new, with its callback kept; its children are then out of reach.
 * An owned node becomes the caller's, to be released with free(). Linear in its children.
 * @retval KIVCS2STATUS_PARAM_ERR        `tree` or `node` is null
 * @retval KIVCS2STATUS_NODE_LOCKED_ERR  `node` is locked; nothing has changed
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_detachNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *node);

/**
 * Takes `node` out of its parent's children. With `freeFlag` 1 an owned node is freed and any other node is
 * left unchanged; with any other flag the node is made new, with its callback kept. Children of a freed node
 * become loose. Linear in the children. If the node is a tree's root, do not use that tree before it has a
 * new root.
 * @retval KIVCS2STATUS_PARAM_ERR        `node` is null
 * @retval KIVCS2STATUS_NODE_LOCKED_ERR  `node` is locked; nothing has changed
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_freeNode(KIVCS2LinkTreeNode *node, uint32_t freeFlag);

/**
 * Releases every node that a walk reaches, parents first: owned nodes are freed, the caller's are made new.
 * Locked nodes and nodes in skipped subtrees are unchanged and belong to the caller. The tree is empty.
 * @retval KIVCS2STATUS_PARAM_ERR  `tree` is null
 * @retval KIVCS2STATUS_OK         otherwise, whatever happened
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_free(KIVCS2LinkTree *tree);

/**
 * Visits `start`, or the root if it is null, and the nodes below it, parents before their children and
 * children in order. A node with flag 1 is left out with its subtree. The first child is noted before a node
 * is visited and the next sibling before a child is, so a visit may release or detach its node.
 * @param[in,out] tree      initialised
 * @param[in]     start     a node of the tree, or null
 * @param[out]    node      may be null; if the walk ended early: the child of the start node in whose subtree
 *                          it ended, or the start node itself; otherwise untouched
 * @param[in]     callback  visits each node; if null, each node's own callback does, if it has one
 * @param[in]     context   passed to each visit; may be null
 * @param[in]     all       0: the first visit that does not return 0 ends the walk with its result; otherwise
 *                          results are ignored
 * @retval KIVCS2STATUS_PARAM_ERR  `tree` is null
 * @retval KIVCS2STATUS_OK         every node was visited, or there is no node
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_traverseNodes(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *start,
                                                      KIVCS2LinkTreeNode **node,
                                                      KIVCS2LinkTreeCallback callback, void *context,
                                                      uint32_t all);

/**
 * Adds the number of nodes from `start`, or the root if it is null, downwards to `*count`, which the caller
 * sets to 0 first. Nodes with flag 1 count too.
 * @retval KIVCS2STATUS_PARAM_ERR  `tree` or `count` is null
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_countNodes(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *start,
                                                   uint32_t *count);

/**
 * Checks whether `node` is the root, or has the root among the parents above it.
 * @retval KIVCS2STATUS_PARAM_ERR      `tree` or `node` is null
 * @retval KIVCS2STATUS_NOT_FOUND_ERR  it is not in the tree
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_isTreeNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *node);

/**
 * Checks whether one of the parents above `node` is locked; the node's own lock is ignored.
 * @retval KIVCS2STATUS_PARAM_ERR        `node` is null
 * @retval KIVCS2STATUS_NODE_LOCKED_ERR  one of them is locked
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_anyParentNodeLocked(KIVCS2LinkTreeNode *node);

/**
 * The visit of _kivCS2LinkTree_free(): releases `node` with free flag 1 if it is owned, otherwise with 0.
 * @retval KIVCS2STATUS_PARAM_ERR        `tree` or `node` is null
 * @retval KIVCS2STATUS_NODE_LOCKED_ERR  `node` is locked; nothing has changed
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_freeNodeCallback(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *node,
                                                         void *context);

/**
 * As _kivCS2LinkTree_newNode(), with a status.
 * @param[in]  size      bytes of the record, the node at its start included
 * @param[in]  callback  visits the node if a walk has no callback; may be null
 * @param[out] node      the new node; null on failure
 * @retval KIVCS2STATUS_PARAM_ERR   `node` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no memory
 */
KIVCS2_API KIVCS2Status kivCS2LinkTree_newNode(uint32_t size, KIVCS2LinkTreeCallback callback,
                                               KIVCS2LinkTreeNode **node);

/** As _kivCS2LinkTree_attachNode(). */
KIVCS2_API KIVCS2Status kivCS2LinkTree_attachNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent,
                                                  KIVCS2LinkTreeNode *node);

/** As _kivCS2LinkTree_attachNewNode(). */
KIVCS2_API KIVCS2Status kivCS2LinkTree_attachNewNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent,
                                                     uint32_t size, KIVCS2LinkTreeCallback callback,
                                                     KIVCS2LinkTreeNode **node);

/** As _kivCS2LinkTree_insertNode(). */
KIVCS2_API KIVCS2Status kivCS2LinkTree_insertNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent,
                                                  KIVCS2LinkTreeNode *sibling, KIVCS2LinkTreeNode *node);

/** As _kivCS2LinkTree_detachNode(). */
KIVCS2_API KIVCS2Status kivCS2LinkTree_detachNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *node);

/** As _kivCS2LinkTree_freeNode(). */
KIVCS2_API KIVCS2Status kivCS2LinkTree_freeNode(KIVCS2LinkTreeNode *node, uint32_t freeFlag);

KIVCS2_END_DECLS

#endif
