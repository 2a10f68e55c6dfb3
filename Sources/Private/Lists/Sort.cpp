// Sorting of chains: chunks of pointers are merged in the cache, then many sorted chains at a time, so that
// for a million elements each element's memory is fetched three times instead of twenty.
#include "Private/Lists/Sort.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace kiv
{
namespace
{
using Elem = KIVCS2LinkElem;
using Compare = KIVCS2LinkListCmpFunc;

constexpr size_t kChunk = 1024;   // elements sorted as pointers; two buffers of 8 KiB
constexpr size_t kWays = 32;      // chains merged at a time
constexpr size_t kLevels = 11;    // kChunk * kWays^kLevels elements are more than memory holds
constexpr size_t kOrderTest = 16; // runs of at least this length are first checked for being in order

// `second` or `first` without a branch, which the compilers would make of ?: here. In random order the branch
// is a coin toss, and a wrong guess costs more than the comparison.
[[nodiscard]] uintptr_t select(bool takeSecond, uintptr_t first, uintptr_t second)
{
    return first ^ ((first ^ second) & (uintptr_t{0} - takeSecond));
}

[[nodiscard]] Elem *select(bool takeSecond, Elem *first, Elem *second)
{
    return reinterpret_cast<Elem *>(
        select(takeSecond, reinterpret_cast<uintptr_t>(first), reinterpret_cast<uintptr_t>(second)));
}

// Merges two runs.
void mergeRuns(Elem *const *left, size_t lefts, Elem *const *right, size_t rights, Elem **to, Compare cmp)
{
    size_t l = 0;
    size_t r = 0;
    while (l < lefts && r < rights)
    {
        Elem *const a = left[l];
        Elem *const b = right[r];
        const bool takeRight = cmp(a, b) > 0;
        *to++ = select(takeRight, a, b);
        r += takeRight;
        l += !takeRight;
    }
    to = std::copy(left + l, left + lefts, to);
    std::copy(right + r, right + rights, to);
}

// Merges two runs of equal length from both ends at once. The two chains of comparisons do not wait for each
// other, and no end of a run needs watching, because each run lasts for `count` steps. False, with the result
// void, if contradicting comparisons keep the ends from meeting.
[[nodiscard]] bool mergeFromBothEnds(Elem *const *left, Elem *const *right, size_t count, Elem **to,
                                     Compare cmp)
{
    size_t l = 0;
    size_t r = 0;
    size_t leftEnd = count;
    size_t rightEnd = count;
    for (size_t step = 0; step < count; ++step)
    {
        Elem *const a = left[l];
        Elem *const b = right[r];
        const bool takeRight = cmp(a, b) > 0;
        to[step] = select(takeRight, a, b);
        r += takeRight;
        l += !takeRight;
        Elem *const y = left[leftEnd - 1];
        Elem *const z = right[rightEnd - 1];
        const bool takeLeft = cmp(y, z) > 0;
        to[2 * count - 1 - step] = select(takeLeft, z, y);
        leftEnd -= takeLeft;
        rightEnd -= !takeLeft;
    }
    return l == leftEnd && r == rightEnd;
}

void mergeNeighbours(Elem *const *left, size_t lefts, size_t rights, Elem **to, Compare cmp)
{
    Elem *const *right = left + lefts;
    if (lefts >= kOrderTest && rights > 0)
    {
        if (cmp(right[-1], right[0]) <= 0)
        {
            std::copy_n(left, lefts + rights, to);
            return;
        }
        if (cmp(left[0], right[rights - 1]) > 0)
        {
            std::copy_n(left, lefts, std::copy_n(right, rights, to));
            return;
        }
    }
    if (lefts != rights || !mergeFromBothEnds(left, right, lefts, to, cmp))
        mergeRuns(left, lefts, right, rights, to, cmp);
}

// Sorts `count` pointers and returns the buffer that holds them in order.
[[nodiscard]] Elem **sortPointers(Elem **from, Elem **to, size_t count, Compare cmp)
{
    for (size_t at = 0; at + 1 < count; at += 2)
    {
        Elem *const left = from[at];
        Elem *const right = from[at + 1];
        const bool swap = cmp(left, right) > 0;
        from[at] = select(swap, left, right);
        from[at + 1] = select(swap, right, left);
    }
    for (size_t run = 2; run < count; run *= 2)
    {
        for (size_t at = 0; at < count; at += 2 * run)
        {
            const size_t lefts = std::min(run, count - at);
            const size_t rights = std::min(run, count - at - lefts);
            mergeNeighbours(from + at, lefts, rights, to + at, cmp);
        }
        std::swap(from, to);
    }
    return from;
}

struct Chain
{
    Elem *first;
    Elem *last;
};

void join(Elem *prev, Elem *next)
{
    prev->m_next = next;
    next->m_prev = prev;
}

[[nodiscard]] Chain chainOf(Elem *const *sorted, size_t count)
{
    for (size_t at = 1; at < count; ++at)
        join(sorted[at - 1], sorted[at]);
    sorted[0]->m_prev = nullptr;
    sorted[count - 1]->m_next = nullptr;
    return {sorted[0], sorted[count - 1]};
}

// Merges up to kWays chains with a tournament: a leaf for the head of each chain, and in each node the winner
// of the two nodes below.
class Tournament
{
public:
    Tournament(Elem *const *chains, size_t count, Compare cmp) : m_cmp{cmp}, m_leaves{std::bit_ceil(count)}
    {
        for (size_t leaf = 0; leaf < m_leaves; ++leaf)
            m_nodes[m_leaves + leaf] = {leaf < count ? head(chains[leaf]) : nullptr, m_leaves + leaf};
        for (size_t node = m_leaves - 1; node > 0; --node)
            m_nodes[node] = better(m_nodes[2 * node], m_nodes[2 * node + 1]);
    }

    [[nodiscard]] Elem *merge()
    {
        Elem *const first = m_nodes[1].elem;
        Elem *last = nullptr;
        for (Entry winner = m_nodes[1]; winner.elem;)
        {
            Elem *const taken = winner.elem;
            winner.elem = head(taken->m_next);
            taken->m_prev = last;
            if (last)
                last->m_next = taken;
            last = taken;
            winner = replay(winner);
        }
        last->m_next = nullptr;
        return first;
    }

private:
    struct Entry
    {
        Elem *elem; // null if a chain has ended
        size_t leaf;
    };

    [[nodiscard]] static Entry select(bool takeSecond, const Entry &first, const Entry &second)
    {
        return {kiv::select(takeSecond, first.elem, second.elem),
                kiv::select(takeSecond, first.leaf, second.leaf)};
    }

    // The successor of the next head is needed some comparisons later: start fetching it now.
    [[nodiscard]] static Elem *head(Elem *elem)
    {
        if (elem)
            __builtin_prefetch(elem->m_next);
        return elem;
    }

    // Earlier chains are on the left, and the left one wins a tie.
    [[nodiscard]] Entry better(const Entry &left, const Entry &right) const
    {
        if (!left.elem || !right.elem)
            return left.elem ? left : right;
        const bool takeRight = m_cmp(left.elem, right.elem) > 0;
        return select(takeRight, left, right);
    }

    // Puts a leaf's new head through the nodes above it.
    [[nodiscard]] Entry replay(Entry winner)
    {
        for (size_t node = winner.leaf; node > 1; node /= 2)
        {
            m_nodes[node] = winner;
            const Entry other = m_nodes[node ^ 1];
            const bool isRight = (node & 1) != 0;
            winner = better(select(isRight, winner, other), select(isRight, other, winner));
        }
        return winner;
    }

    std::array<Entry, 2 * kWays> m_nodes;
    Compare m_cmp;
    size_t m_leaves;
};

[[nodiscard]] Elem *mergeChains(Elem *const *chains, size_t count, Compare cmp)
{
    return count == 1 ? chains[0] : Tournament{chains, count, cmp}.merge();
}

// Sorted chains that wait to be merged, each level kWays times as long as the one below. Earlier elements are
// on higher levels.
class Levels
{
public:
    explicit Levels(Compare cmp) : m_cmp{cmp} {}

    void push(Elem *chain)
    {
        for (size_t level = 0;; ++level)
        {
            m_chains[level][m_counts[level]++] = chain;
            if (m_counts[level] < kWays)
                return;
            chain = takeAll(level);
        }
    }

    [[nodiscard]] Elem *mergeAll()
    {
        Elem *rest = nullptr;
        for (size_t level = 0; level < kLevels; ++level)
        {
            if (m_counts[level] == 0)
                continue;
            if (rest)
                m_chains[level][m_counts[level]++] = rest;
            rest = takeAll(level);
        }
        return rest;
    }

private:
    [[nodiscard]] Elem *takeAll(size_t level)
    {
        return mergeChains(m_chains[level].data(), std::exchange(m_counts[level], 0), m_cmp);
    }

    Compare m_cmp;
    std::array<size_t, kLevels> m_counts{};
    std::array<std::array<Elem *, kWays>, kLevels> m_chains;
};

// Extends `run` by the chain that follows it if the two are in order or in reverse order.
[[nodiscard]] bool extend(Chain &run, const Chain &next, Compare cmp)
{
    if (cmp(run.last, next.first) <= 0)
    {
        join(run.last, next.first);
        run.last = next.last;
        return true;
    }
    if (cmp(run.first, next.last) > 0)
    {
        join(next.last, run.first);
        run.first = next.first;
        return true;
    }
    return false;
}
} // namespace

KIVCS2LinkElem *sortChain(KIVCS2LinkElem *first, KIVCS2LinkListCmpFunc cmp)
{
    if (!first)
        return nullptr;

    std::array<Elem *, kChunk> pointers;
    std::array<Elem *, kChunk> scratch;
    const auto sortChunk = [&]
    {
        size_t count = 0;
        for (; first && count < kChunk; first = first->m_next)
            pointers[count++] = first;
        return chainOf(sortPointers(pointers.data(), scratch.data(), count, cmp), count);
    };

    Chain run = sortChunk();
    if (!first)
        return run.first;
    Levels levels{cmp};
    while (first)
    {
        const Chain next = sortChunk();
        if (extend(run, next, cmp))
            continue;
        levels.push(run.first);
        run = next;
    }
    levels.push(run.first);
    return levels.mergeAll();
}
} // namespace kiv
