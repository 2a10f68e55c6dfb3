// A stable merge sort of a chain of link elements without the heap.
#ifndef KIV_PRIVATE_LISTS_SORT_H
#define KIV_PRIVATE_LISTS_SORT_H

#include "KIVCS2LinkList.h"

namespace kiv
{
// Sorts a chain that ends with a null m_next; sets both links of every element and returns the first.
// Contradicting results of `cmp` give some order of the same elements.
[[nodiscard]] KIVCS2LinkElem *sortChain(KIVCS2LinkElem *first, KIVCS2LinkListCmpFunc cmp);
} // namespace kiv

#endif
