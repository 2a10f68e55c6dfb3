/**
 * @file
 * Link trees: each node is a link element in its parent's list of children and holds a list of its own.
 *
 * A caller's record begins with a KIVCS2LinkTreeNode. Either the tree allocates it, with room for the
 * caller's fields behind the node, and frees it with the tree (owned), or it lies in the caller's memory
 * and is made ready with _kivCS2LinkTree_initNode().
 *
 * Detaching a node makes it new: it forgets its children, flags and ID, so an owned node becomes the
 * caller's, who releases it with free(). Its former children keep naming it as their parent: attach them
 * elsewhere, or release them, before that memory goes.
 *
 * The caller keeps the tree a tree: attach no node below itself, and no tree's root below a node.
 * Walks use the stack, about 10 bytes a level of depth in a release build. The operations that begin with an
 * underscore do the work; the others forward to them. Nothing is locked: who shares a tree serialises its
 * use.
 */
#ifndef KIVCS2_LINK_TREE_H
#define KIVCS2_LINK_TREE_H

#include "KIVCS2LinkList.h"

KIVCS2_BEGIN_DECLS

/** What a node is, combined with "or". Flags are only added; re-initialising the node clears them. */
typedef uint32_t KIVCS2LinkTreeNodeFlag;
enum
{
    KIVCS2LinkTreeNodeFlag_Skip = 1,   /**< walks neither visit the node nor enter its subtree */
    KIVCS2LinkTreeNodeFlag_Locked = 2, /**< attach, insert, detach and free refuse the node */
    KIVCS2LinkTreeNodeFlag_Owned = 4   /**< allocated by the tree and freed by it */
};

struct KIVCS2LinkTreeNode;

/** A tree; null while it is empty. */
typedef struct KIVCS2LinkTree
{
    struct KIVCS2LinkTreeNode *m_root;
} KIVCS2LinkTree;

/** Visits a node; 0 goes on, anything else ends a search. It may release or detach the node it is given. */
typedef KIVCS2Status (*KIVCS2LinkTreeCallback)(KIVCS2LinkTree *tree, struct KIVCS2LinkTreeNode *node,
                                               void *context);

/** A node; the caller's fields follow it. */
typedef struct KIVCS2LinkTreeNode
{
    KIVCS2LinkElem m_link;               /**< membership of the parent's children */
    KIVCS2LinkList m_children;           /**< the children, in order */
    struct KIVCS2LinkTreeNode *m_parent; /**< null for the root and for loose nodes */
    KIVCS2LinkTreeCallback m_callback;   /**< visits this node where a walk has no callback; may be null */
    uint32_t m_flags;                    /**< KIVCS2LinkTreeNodeFlag */
    uint32_t m_ID;                       /**< the caller's; 0 after init */
} KIVCS2LinkTreeNode;

/**
 * Makes `tree` empty; nodes it held are forgotten.
 * @retval KIVCS2STATUS_PARAM_ERR  `tree` is null
 * Thread safety: the tree's owner, as for all below.
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_init(KIVCS2LinkTree *tree);

/**
 * A new owned node of `size` bytes, and never fewer than a node has; the rest is zero. Released by
 * kivCS2LinkTree_freeNode() with free flag 1, or with the tree it is attached to.
 * @return null when there is no memory
 */
KIVCS2_API KIVCS2LinkTreeNode *_kivCS2LinkTree_newNode(uint32_t size, KIVCS2LinkTreeCallback callback);

/**
 * Makes a loose node of whatever `node` held, with `callback`; nothing is read or released.
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
 * Makes `node`, taken out of where it is, the last child of `parent`, or the root when `parent` is null;
 * the old root is then detached first. Locks of `parent` and of its ancestors are not looked at.
 * @retval KIVCS2STATUS_PARAM_ERR        `tree` or `node` is null
 * @retval KIVCS2STATUS_NODE_LOCKED_ERR  `node` is locked and stays; or the old root is locked, and `node`
 *                                       has been taken out of the children it was in
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_attachNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent,
                                                   KIVCS2LinkTreeNode *node);

/**
 * Allocates an owned node as _kivCS2LinkTree_newNode() does and attaches it.
 * @param[out] node  the new node; null on failure
 * @retval KIVCS2STATUS_PARAM_ERR        `tree` or `node` is null
 * @retval KIVCS2STATUS_MEMORY_ERR       no memory; the tree is as before
 * @retval KIVCS2STATUS_NODE_LOCKED_ERR  the old root is locked; the tree is as before
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_attachNewNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent,
                                                      uint32_t size, KIVCS2LinkTreeCallback callback,
                                                      KIVCS2LinkTreeNode **node);

/**
 * Puts `node`, taken out of where it is, directly before `sibling` and makes `parent` its parent; that
 * `parent` holds `sibling` is the caller's care. Without a sibling as _kivCS2LinkTree_attachNode().
 * @retval KIVCS2STATUS_PARAM_ERR        `tree`, `parent` or `node` is null, or `sibling` is `node` or
 *                                       nobody's child; nothing has changed
 * @retval KIVCS2STATUS_NODE_LOCKED_ERR  `node` or `sibling` is locked; nothing has changed
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_insertNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *parent,
                                                   KIVCS2LinkTreeNode *sibling, KIVCS2LinkTreeNode *node);

/**
 * Takes `node` out of the tree and makes it new, with its callback kept; its children are out of reach
 * from then on. An owned node becomes the caller's, to be released with free(). Linear in its children.
 * @retval KIVCS2STATUS_PARAM_ERR        `tree` or `node` is null
 * @retval KIVCS2STATUS_NODE_LOCKED_ERR  `node` is locked; nothing has changed
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_detachNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *node);

/**
 * Takes `node` out of its parent's children and, with `freeFlag` 1, frees it when it is owned and else
 * leaves it as it is; with any other flag it is made new, with its callback kept. Children of a freed node
 * become loose. Linear in the children. A tree whose root this is must not be used before it has a new one.
 * @retval KIVCS2STATUS_PARAM_ERR        `node` is null
 * @retval KIVCS2STATUS_NODE_LOCKED_ERR  `node` is locked; nothing has changed
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_freeNode(KIVCS2LinkTreeNode *node, uint32_t freeFlag);

/**
 * Releases every node that a walk reaches, parents first: owned ones are freed, the caller's are made new.
 * Locked nodes and nodes in skipped subtrees stay as they are and belong to the caller. The tree is empty.
 * @retval KIVCS2STATUS_PARAM_ERR  `tree` is null
 * @retval KIVCS2STATUS_OK         otherwise, whatever happened
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_free(KIVCS2LinkTree *tree);

/**
 * Visits `start`, or the root when it is null, and what lies below, parents before their children and
 * children in order. A node with flag 1 is left out with its subtree. The first child is noted before a
 * node is visited and the next sibling before a child is, so a visit may release or detach its node.
 * @param[in] callback  visits each node; when null, each node's own callback does, where it has one
 * @param[in] all       0: the first visit that does not return 0 ends the walk with its result;
 *                      otherwise results are ignored
 * @param[out] node     may be null; for a walk that ended early the child of the start node on whose side
 *                      it ended, or the start node itself; else untouched
 * @retval KIVCS2STATUS_PARAM_ERR  `tree` is null
 * @retval KIVCS2STATUS_OK         every node was visited, or there is none
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_traverseNodes(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *start,
                                                      KIVCS2LinkTreeNode **node,
                                                      KIVCS2LinkTreeCallback callback, void *context,
                                                      uint32_t all);

/**
 * Adds the number of nodes from `start`, or the root when it is null, downwards to `*count`, which the
 * caller sets to 0 first. Nodes with flag 1 count too.
 * @retval KIVCS2STATUS_PARAM_ERR  `tree` or `count` is null
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_countNodes(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *start,
                                                   uint32_t *count);

/**
 * Whether `node` is the root, or has it among the parents above it.
 * @retval KIVCS2STATUS_PARAM_ERR      `tree` or `node` is null
 * @retval KIVCS2STATUS_NOT_FOUND_ERR  it has not
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_isTreeNode(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *node);

/**
 * Whether one of the parents above `node` is locked; its own lock is not looked at.
 * @retval KIVCS2STATUS_PARAM_ERR        `node` is null
 * @retval KIVCS2STATUS_NODE_LOCKED_ERR  one is
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_anyParentNodeLocked(KIVCS2LinkTreeNode *node);

/**
 * The visit of _kivCS2LinkTree_free(): releases `node` with free flag 1 when it is owned, else 0.
 * @retval KIVCS2STATUS_PARAM_ERR        `tree` or `node` is null
 * @retval KIVCS2STATUS_NODE_LOCKED_ERR  `node` is locked; nothing has changed
 */
KIVCS2_API KIVCS2Status _kivCS2LinkTree_freeNodeCallback(KIVCS2LinkTree *tree, KIVCS2LinkTreeNode *node,
                                                         void *context);

/**
 * As _kivCS2LinkTree_newNode(), with a status.
 * @param[out] node  the new node; null on failure
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
