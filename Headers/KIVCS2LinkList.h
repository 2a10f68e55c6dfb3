/**
 * @file
 * Linked lists: intrusive, doubly linked, in the caller's own memory.
 *
 * The caller embeds a KIVCS2LinkElem in its record and casts between the two. The list does not allocate,
 * copy or free memory: records belong to the caller, who must take an element out of its list before
 * releasing it. Zeroing makes a list or an element ready; there is no init operation, and
 * kivCS2LinkList_free() returns a list to that state.
 *
 * Append, prepend, unlink, remove and move take the element out of the list that holds it; the
 * insertions do not, so give them an element that is in no list.
 *
 * kivCS2LinkList_sort() leaves the list's `m_prev` at the element that was last before the sort. If that
 * element has moved, appending an element or moving one to the end would cut off the elements after it: walk
 * to the last element and store it in `m_prev` first.
 *
 * No operation returns a status. With assertions a missing argument stops the process; without them the
 * operation continues and the behaviour is undefined. Nothing is locked: callers that share a list serialise
 * its use.
 *
 * @code
 * typedef struct Cue { KIVCS2LinkElem link; int number; } Cue; // the link comes first
 * Cue cues[2] = {{.number = 2}, {.number = 1}};
 * KIVCS2LinkList list = {0}; // zeroes are an empty list
 * kivCS2LinkList_appendElem(&list, &cues[0].link);
 * kivCS2LinkList_prependElem(&list, &cues[1].link);
 * for (KIVCS2LinkElem *link = list.m_next; link != NULL; link = link->m_next)
 *     printf("%d ", ((Cue *)link)->number); // prints: 1 2
 * kivCS2LinkList_free(&list); // the cues stay the host's
 * @endcode
 */
#ifndef KIVCS2_LINK_LIST_H
#define KIVCS2_LINK_LIST_H

#include "KIVCS2Base.h"

KIVCS2_BEGIN_DECLS

struct KIVCS2LinkList;

/** An element's links; all null while it is in no list. */
typedef struct KIVCS2LinkElem
{
    struct KIVCS2LinkElem *m_next; /**< the following element, null at the end */
    struct KIVCS2LinkElem *m_prev; /**< the preceding element, null at the start */
    struct KIVCS2LinkList *m_list; /**< the list that holds the element */
} KIVCS2LinkElem;

/** A list. Its ends mirror the links of an element. */
typedef struct KIVCS2LinkList
{
    KIVCS2LinkElem *m_next; /**< the first element, null when empty */
    KIVCS2LinkElem *m_prev; /**< the last element, null when empty */
    uint32_t m_count;       /**< elements in the list */
} KIVCS2LinkList;

/**
 * Compares two elements: negative if `a` sorts before `b`, 0 if they are equal (for searches: found),
 * positive if `a` sorts after `b`. It must not touch the links. Results that contradict each other give some
 * order, and lose no element.
 */
typedef int32_t (*KIVCS2LinkListCmpFunc)(KIVCS2LinkElem *a, KIVCS2LinkElem *b);

/**
 * Puts `elem` at the end of `list`, taking it out of the list that holds it. Constant time.
 * Thread safety: the lists' owner.
 */
KIVCS2_API void kivCS2LinkList_appendElem(KIVCS2LinkList *list, KIVCS2LinkElem *elem);

/** As kivCS2LinkList_appendElem(), at the start. */
KIVCS2_API void kivCS2LinkList_prependElem(KIVCS2LinkList *list, KIVCS2LinkElem *elem);

/**
 * Takes `_elem` out of `_list` and clears its links; does nothing if `_elem` is in another list or in no
 * list. Constant time. Thread safety: the list's owner.
 */
KIVCS2_API void kivCS2LinkList_removeElem(KIVCS2LinkList *_list, KIVCS2LinkElem *_elem);

/**
 * Takes `elem` out of the list that holds it and clears its links; does nothing if it is in no list. Constant
 * time. Thread safety: the list's owner.
 */
KIVCS2_API void kivCS2LinkElem_unlink(KIVCS2LinkElem *elem);

/**
 * Puts `_f_elem`, which must be in no list, directly after `_b_elem`, which must be in one. Constant
 * time. Thread safety: the list's owner.
 */
KIVCS2_API void kivCS2LinkList_insertElemAfter(KIVCS2LinkElem *_f_elem, KIVCS2LinkElem *_b_elem);

/** As kivCS2LinkList_insertElemAfter(), directly before `_b_elem`. */
KIVCS2_API void kivCS2LinkList_insertElemBefore(KIVCS2LinkElem *_f_elem, KIVCS2LinkElem *_b_elem);

/**
 * Puts `_elem`, which must be in no list, before the first element that does not sort before it, so in front
 * of equal elements; otherwise at the end. Calls `_cmp_func(_elem, element)`; linear time.
 * Thread safety: the list's owner.
 */
KIVCS2_API void kivCS2LinkList_sortedInsert(KIVCS2LinkList *_list, KIVCS2LinkElem *_elem,
                                            KIVCS2LinkListCmpFunc _cmp_func);

/**
 * Returns the first element for which `_cmp_func(element, _cmp_elem)` is 0, or null. `_cmp_elem` need not be
 * in a list. Linear time. Thread safety: together with other readers.
 */
KIVCS2_API KIVCS2LinkElem *kivCS2LinkList_find(const KIVCS2LinkList *_list, KIVCS2LinkListCmpFunc _cmp_func,
                                               KIVCS2LinkElem *_cmp_elem);

/** As kivCS2LinkList_find() in an ascending list: stops at the first element that sorts after. */
KIVCS2_API KIVCS2LinkElem *kivCS2LinkList_findInSortedList(const KIVCS2LinkList *_list,
                                                           KIVCS2LinkListCmpFunc _cmp_func,
                                                           KIVCS2LinkElem *_cmp_elem);

/**
 * Returns the element at `index`, counted from 0 at the start; null if the index, read as a signed number, is
 * below 0 or not below the count. Linear time. Thread safety: together with other readers.
 */
KIVCS2_API KIVCS2LinkElem *kivCS2LinkList_getElem(const KIVCS2LinkList *list, int32_t index);

/**
 * Moves `_f_elem` directly after `_b_elem` of the same list, or to the list's end when `_b_elem` is null.
 * Constant time. Thread safety: the list's owner.
 * @return false if `_f_elem` followed `_b_elem` already; without `_b_elem` always true
 */
KIVCS2_API bool kivCS2LinkElem_moveInFront(KIVCS2LinkElem *_f_elem, KIVCS2LinkElem *_b_elem);

/**
 * Moves `_f_elem` directly before `_b_elem` of the same list, or to the list's start when `_b_elem` is
 * null. Constant time. Thread safety: the list's owner.
 * @return false if `_f_elem` preceded `_b_elem` already; without `_b_elem` always true
 */
KIVCS2_API bool kivCS2LinkElem_moveBehind(KIVCS2LinkElem *_f_elem, KIVCS2LinkElem *_b_elem);

/**
 * Sorts the list in ascending order; equal elements keep their order. `m_next` becomes the new first element,
 * `m_prev` stays the element that was last before the sort. O(n log n) time, no heap, about 20 KiB of stack.
 * Thread safety: the list's owner.
 * @return the first element, null for an empty list
 */
KIVCS2_API KIVCS2LinkElem *kivCS2LinkList_sort(KIVCS2LinkList *_list, KIVCS2LinkListCmpFunc _cmp_func);

/**
 * Sorts the chain of at least two elements that starts at `_list` and ends with a null `m_next`, as
 * kivCS2LinkList_sort() does. Sets both links of every element and leaves `m_list` alone; no list is updated
 * with its new ends. Thread safety: the chain's owner.
 * @return the chain's new first element
 */
KIVCS2_API KIVCS2LinkElem *kivCS2LinkList_sortElems(KIVCS2LinkElem *_list, KIVCS2LinkListCmpFunc cmp);

/**
 * Takes every element out of the list and clears their links, also after a sort that moved its last
 * element; linear time. Thread safety: the list's owner.
 */
KIVCS2_API void kivCS2LinkList_unlinkElems(KIVCS2LinkList *list);

/**
 * Takes every element out as kivCS2LinkList_unlinkElems() does and zeroes the list; the caller still owns the
 * elements' memory. Thread safety: the list's owner.
 */
KIVCS2_API void kivCS2LinkList_free(KIVCS2LinkList *list);

/**
 * True if the links of `list` agree with each other; false for a null list. With two or more elements the
 * count itself is not checked; after a sort that moved the last element the list is not valid.
 * Linear time. Thread safety: together with other readers.
 */
KIVCS2_API bool kivCS2LinkList_checkValid(KIVCS2LinkList *list);

/**
 * Returns `reason` (1: an empty list with an end, 2: a single element with other links) and reads nothing:
 * the one place for a debugger's breakpoint on kivCS2LinkList_checkValid(). Thread safety: any thread.
 */
KIVCS2_API uint32_t kivCS2LinkList_checkFailed(KIVCS2LinkList *list, uint32_t reason);

KIVCS2_END_DECLS

#endif
