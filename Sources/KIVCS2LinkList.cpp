// Linked lists: intrusive, in the caller's memory.
#include "KIVCS2LinkList.h"

#include "Private/Lists/Links.h"
#include "Private/Lists/Sort.h"
#include "Private/Support/Check.h"

namespace
{
bool isSingle(const KIVCS2LinkList *list)
{
    const KIVCS2LinkElem *elem = list->m_next;
    return elem && elem == list->m_prev && elem->m_list == list && !elem->m_next && !elem->m_prev;
}
} // namespace

void kivCS2LinkList_appendElem(KIVCS2LinkList *list, KIVCS2LinkElem *elem)
{
    kivCS2LinkElem_unlink(elem);
    kiv::link(elem, list, list->m_prev, nullptr);
}

void kivCS2LinkList_prependElem(KIVCS2LinkList *list, KIVCS2LinkElem *elem)
{
    kivCS2LinkElem_unlink(elem);
    kiv::link(elem, list, nullptr, list->m_next);
}

void kivCS2LinkList_removeElem(KIVCS2LinkList *_list, KIVCS2LinkElem *_elem)
{
    KIV_ASSERT(_list);
    KIV_ASSERT(_elem);

    if (_elem->m_list != _list || _list->m_count == 0)
        return;
    kiv::unlink(_elem, _list);
}

void kivCS2LinkElem_unlink(KIVCS2LinkElem *elem)
{
    if (elem->m_list)
        kivCS2LinkList_removeElem(elem->m_list, elem);
}

void kivCS2LinkList_insertElemAfter(KIVCS2LinkElem *_f_elem, KIVCS2LinkElem *_b_elem)
{
    KIV_ASSERT(_f_elem);
    KIV_ASSERT(_b_elem);
    KIV_ASSERT(_b_elem->m_list);
    KIV_ASSERT(_f_elem != _b_elem);

    // Kept: an element of another list stays counted there; callers unlink first.
    kiv::link(_f_elem, _b_elem->m_list, _b_elem, _b_elem->m_next);
}

void kivCS2LinkList_insertElemBefore(KIVCS2LinkElem *_f_elem, KIVCS2LinkElem *_b_elem)
{
    KIV_ASSERT(_f_elem);
    KIV_ASSERT(_b_elem);
    KIV_ASSERT(_b_elem->m_list);
    KIV_ASSERT(_f_elem != _b_elem);

    kiv::link(_f_elem, _b_elem->m_list, _b_elem->m_prev, _b_elem);
}

void kivCS2LinkList_sortedInsert(KIVCS2LinkList *_list, KIVCS2LinkElem *_elem,
                                 KIVCS2LinkListCmpFunc _cmp_func)
{
    KIV_ASSERT(_list);
    KIV_ASSERT(_elem);
    KIV_ASSERT(_cmp_func);

    // Kept: in front of its equals, so the latest of them comes first.
    KIVCS2LinkElem *behind = _list->m_next;
    while (behind && _cmp_func(_elem, behind) > 0)
        behind = behind->m_next;
    if (behind)
        kivCS2LinkList_insertElemBefore(_elem, behind);
    else
        kivCS2LinkList_appendElem(_list, _elem);
}

KIVCS2LinkElem *kivCS2LinkList_find(const KIVCS2LinkList *_list, KIVCS2LinkListCmpFunc _cmp_func,
                                    KIVCS2LinkElem *_cmp_elem)
{
    KIV_ASSERT(_list);
    KIV_ASSERT(_cmp_func);
    KIV_ASSERT(_cmp_elem);

    KIVCS2LinkElem *elem = _list->m_next;
    while (elem && _cmp_func(elem, _cmp_elem) != 0)
        elem = elem->m_next;
    return elem;
}

KIVCS2LinkElem *kivCS2LinkList_findInSortedList(const KIVCS2LinkList *_list, KIVCS2LinkListCmpFunc _cmp_func,
                                                KIVCS2LinkElem *_cmp_elem)
{
    KIV_ASSERT(_list);
    KIV_ASSERT(_cmp_func);
    KIV_ASSERT(_cmp_elem);

    for (KIVCS2LinkElem *elem = _list->m_next; elem; elem = elem->m_next)
    {
        const int32_t order = _cmp_func(elem, _cmp_elem);
        if (order >= 0)
            return order == 0 ? elem : nullptr;
    }
    return nullptr;
}

KIVCS2LinkElem *kivCS2LinkList_getElem(const KIVCS2LinkList *list, int32_t index)
{
    // Kept: the count is read as a signed number.
    if (index < 0 || index >= static_cast<int32_t>(list->m_count))
        return nullptr;
    KIVCS2LinkElem *elem = list->m_next;
    for (; elem && index > 0; --index)
        elem = elem->m_next;
    return elem;
}

bool kivCS2LinkElem_moveInFront(KIVCS2LinkElem *_f_elem, KIVCS2LinkElem *_b_elem)
{
    KIV_ASSERT(_f_elem);
    KIV_ASSERT(_f_elem->m_list);
    KIV_ASSERT(_f_elem != _b_elem);

    if (!_b_elem)
    {
        // Kept: returns "moved" even if it was the last already.
        kivCS2LinkList_appendElem(_f_elem->m_list, _f_elem);
        return true;
    }
    KIV_ASSERT(_f_elem->m_list == _b_elem->m_list);
    if (_b_elem->m_next == _f_elem)
        return false;
    kivCS2LinkElem_unlink(_f_elem);
    kivCS2LinkList_insertElemAfter(_f_elem, _b_elem);
    return true;
}

bool kivCS2LinkElem_moveBehind(KIVCS2LinkElem *_f_elem, KIVCS2LinkElem *_b_elem)
{
    KIV_ASSERT(_f_elem);
    KIV_ASSERT(_f_elem->m_list);
    KIV_ASSERT(_f_elem != _b_elem);

    if (!_b_elem)
    {
        // Kept: returns "moved" even if it was the first already.
        kivCS2LinkList_prependElem(_f_elem->m_list, _f_elem);
        return true;
    }
    KIV_ASSERT(_f_elem->m_list == _b_elem->m_list);
    if (_b_elem->m_prev == _f_elem)
        return false;
    kivCS2LinkElem_unlink(_f_elem);
    kivCS2LinkList_insertElemBefore(_f_elem, _b_elem);
    return true;
}

KIVCS2LinkElem *kivCS2LinkList_sort(KIVCS2LinkList *_list, KIVCS2LinkListCmpFunc _cmp_func)
{
    KIV_ASSERT(_list);
    KIV_ASSERT(_cmp_func);

    // Kept: m_prev stays at the element that was last before the sort.
    if (_list->m_count >= 2)
        _list->m_next = kivCS2LinkList_sortElems(_list->m_next, _cmp_func);
    return _list->m_next;
}

KIVCS2LinkElem *kivCS2LinkList_sortElems(KIVCS2LinkElem *_list, KIVCS2LinkListCmpFunc cmp)
{
    KIV_ASSERT(_list);
    KIV_ASSERT(_list->m_next);

    return kiv::sortChain(_list, cmp);
}

void kivCS2LinkList_unlinkElems(KIVCS2LinkList *list)
{
    // From the start: after a sort m_prev may point to an element that has left the list since.
    KIVCS2LinkElem *elem = list->m_next;
    while (elem && elem->m_list == list)
    {
        KIVCS2LinkElem *next = elem->m_next;
        *elem = {};
        elem = next;
    }
    *list = {};
}

void kivCS2LinkList_free(KIVCS2LinkList *list)
{
    kivCS2LinkList_unlinkElems(list);
}

bool kivCS2LinkList_checkValid(KIVCS2LinkList *list)
{
    if (!list)
        return false;
    if (list->m_count == 0)
    {
        if (!list->m_next && !list->m_prev)
            return true;
        (void)kivCS2LinkList_checkFailed(list, 1);
        return false;
    }
    if (list->m_count == 1)
    {
        if (isSingle(list))
            return true;
        (void)kivCS2LinkList_checkFailed(list, 2);
        return false;
    }

    // Kept: here a failure is not announced, and the elements are not counted.
    if (!list->m_next || !list->m_prev || list->m_next->m_prev || list->m_prev->m_next)
        return false;
    for (const KIVCS2LinkElem *elem = list->m_next; elem; elem = elem->m_next)
        if (elem->m_list != list || (elem->m_next && elem->m_next->m_prev != elem))
            return false;
    return true;
}

uint32_t kivCS2LinkList_checkFailed(KIVCS2LinkList *list, uint32_t reason)
{
    (void)list;
    return reason;
}
