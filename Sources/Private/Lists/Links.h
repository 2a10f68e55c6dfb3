// Setting and clearing the links of an element, for the list's own operations and for modules that take and
// put one element per call.
#ifndef KIV_PRIVATE_LISTS_LINKS_H
#define KIV_PRIVATE_LISTS_LINKS_H

#include "KIVCS2LinkList.h"

namespace kiv
{
// The pointer to the element after `prev`: that of the list itself if `prev` is null.
inline KIVCS2LinkElem *&nextOf(KIVCS2LinkElem *prev, KIVCS2LinkList *list)
{
    return prev ? prev->m_next : list->m_next;
}

inline KIVCS2LinkElem *&prevOf(KIVCS2LinkElem *next, KIVCS2LinkList *list)
{
    return next ? next->m_prev : list->m_prev;
}

// Links an element that is in no list between two neighbours; null stands for the list's end.
inline void link(KIVCS2LinkElem *elem, KIVCS2LinkList *list, KIVCS2LinkElem *prev, KIVCS2LinkElem *next)
{
    nextOf(prev, list) = elem;
    prevOf(next, list) = elem;
    *elem = {next, prev, list};
    ++list->m_count;
}

// Takes an element out of the list that holds it.
inline void unlink(KIVCS2LinkElem *elem, KIVCS2LinkList *list)
{
    nextOf(elem->m_prev, list) = elem->m_next;
    prevOf(elem->m_next, list) = elem->m_prev;
    *elem = {};
    --list->m_count;
}
} // namespace kiv

#endif
