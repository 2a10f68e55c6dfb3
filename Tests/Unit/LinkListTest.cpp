// Linked lists: links and counts after every kind of change, searches, the stable sort, the check.
#include <KIVCoreServices2/KIVCS2LinkList.h>

#include "ArgumentCheck.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace
{
static_assert(offsetof(KIVCS2LinkElem, m_next) == 0);
static_assert(offsetof(KIVCS2LinkElem, m_prev) == 8);
static_assert(offsetof(KIVCS2LinkElem, m_list) == 16);
static_assert(offsetof(KIVCS2LinkList, m_next) == 0);
static_assert(offsetof(KIVCS2LinkList, m_prev) == 8);
static_assert(offsetof(KIVCS2LinkList, m_count) == 16);

struct Record
{
    KIVCS2LinkElem link;
    int key;
    int number; // tells equals apart
};

Record &recordOf(KIVCS2LinkElem *elem)
{
    return *reinterpret_cast<Record *>(elem);
}

size_t g_comparisons = 0;

int32_t byKey(KIVCS2LinkElem *a, KIVCS2LinkElem *b)
{
    ++g_comparisons;
    return recordOf(a).key - recordOf(b).key;
}

// A list that holds records with the given keys; freed at the end, when all must be loose.
struct Records
{
    std::vector<Record> records;
    KIVCS2LinkList list{};

    explicit Records(const std::vector<int> &keys)
    {
        for (const int key : keys)
            records.push_back({{}, key, static_cast<int>(records.size())});
        for (Record &record : records)
            kivCS2LinkList_appendElem(&list, &record.link);
    }
    Records(const Records &) = delete;
    Records &operator=(const Records &) = delete;
    ~Records()
    {
        kivCS2LinkList_free(&list);
        EXPECT_TRUE(!list.m_next && !list.m_prev && list.m_count == 0);
        for (const Record &record : records)
            EXPECT_TRUE(!record.link.m_next && !record.link.m_prev && !record.link.m_list);
    }
    KIVCS2LinkElem *at(size_t index)
    {
        return &records[index].link;
    }
};

// The keys forwards, once every link has been looked at.
std::vector<int> keysOf(KIVCS2LinkList &list)
{
    EXPECT_TRUE(kivCS2LinkList_checkValid(&list));
    std::vector<int> keys;
    KIVCS2LinkElem *last = nullptr;
    for (KIVCS2LinkElem *elem = list.m_next; elem; last = elem, elem = elem->m_next)
    {
        EXPECT_EQ(elem->m_prev, last);
        keys.push_back(recordOf(elem).key);
    }
    EXPECT_EQ(list.m_prev, last);
    EXPECT_EQ(list.m_count, keys.size());
    return keys;
}

using Keys = std::vector<int>;

TEST(LinkList, PutsElementsAtEndsAndAroundOthers)
{
    Records held{{1, 2, 3}};
    Record others[] = {{{}, 10, 0}, {{}, 11, 0}, {{}, 12, 0}, {{}, 13, 0}, {{}, 14, 0}};
    kivCS2LinkList_prependElem(&held.list, &others[0].link);
    kivCS2LinkList_insertElemAfter(&others[1].link, held.at(1));
    kivCS2LinkList_insertElemAfter(&others[2].link, held.at(2));
    kivCS2LinkList_insertElemBefore(&others[3].link, held.at(2));
    kivCS2LinkList_insertElemBefore(&others[4].link, &others[0].link);
    EXPECT_EQ(keysOf(held.list), (Keys{14, 10, 1, 2, 11, 13, 3, 12}));
    kivCS2LinkList_unlinkElems(&held.list);
    EXPECT_EQ(keysOf(held.list), Keys{});
}

TEST(LinkList, AppendAndPrependTakeTheElementFromItsList)
{
    Records from{{1, 2, 3}};
    Records to{{4}};
    kivCS2LinkList_appendElem(&to.list, from.at(1));
    kivCS2LinkList_prependElem(&to.list, from.at(0));
    kivCS2LinkList_prependElem(&to.list, to.at(0));
    EXPECT_EQ(keysOf(from.list), Keys{3});
    EXPECT_EQ(keysOf(to.list), (Keys{4, 1, 2}));
}

TEST(LinkList, InsertionLeavesTheElementCountedWhereItWas)
{
    Records from{{1, 2}};
    Records to{{3}};
    kivCS2LinkList_insertElemAfter(from.at(1), to.at(0));
    EXPECT_EQ(from.list.m_count, 2u);
    EXPECT_EQ(keysOf(to.list), (Keys{3, 2}));
    kivCS2LinkList_free(&from.list); // takes nothing out of the other list
    EXPECT_EQ(keysOf(to.list), (Keys{3, 2}));
    kivCS2LinkElem_unlink(from.at(1));
}

TEST(LinkList, RemovesOnlyWhatItHolds)
{
    Records held{{1, 2, 3}};
    Records other{{4}};
    Record loose{{}, 5, 0};
    kivCS2LinkElem_unlink(&loose.link);
    kivCS2LinkList_removeElem(&held.list, &loose.link);
    kivCS2LinkList_removeElem(&held.list, other.at(0));
    EXPECT_EQ(keysOf(held.list), (Keys{1, 2, 3}));
    EXPECT_EQ(keysOf(other.list), Keys{4});
    // A list that was zeroed with an element in it holds none.
    const KIVCS2LinkList filled = std::exchange(other.list, {});
    kivCS2LinkElem_unlink(other.at(0));
    EXPECT_TRUE(other.list.m_count == 0 && other.at(0)->m_list == &other.list);
    other.list = filled;

    kivCS2LinkList_removeElem(&held.list, held.at(1));
    EXPECT_EQ(keysOf(held.list), (Keys{1, 3}));
    EXPECT_EQ(held.at(1)->m_list, nullptr);
    kivCS2LinkElem_unlink(held.at(0));
    kivCS2LinkElem_unlink(held.at(2));
    EXPECT_EQ(keysOf(held.list), Keys{});
}

TEST(LinkList, MovesNextToAnotherOrToAnEnd)
{
    struct Case
    {
        bool (*move)(KIVCS2LinkElem *, KIVCS2LinkElem *);
        size_t elem;
        int neighbour; // -1: none
        bool moved;
        Keys after;
    };
    const auto inFront = kivCS2LinkElem_moveInFront;
    const auto behind = kivCS2LinkElem_moveBehind;
    const Case cases[] = {
        {inFront, 0, 2, true, {1, 2, 0, 3}},  {inFront, 0, 3, true, {1, 2, 3, 0}},
        {inFront, 3, 0, true, {0, 3, 1, 2}},  {inFront, 2, 1, false, {0, 1, 2, 3}},
        {inFront, 1, -1, true, {0, 2, 3, 1}}, {inFront, 3, -1, true, {0, 1, 2, 3}},
        {behind, 3, 1, true, {0, 3, 1, 2}},   {behind, 3, 0, true, {3, 0, 1, 2}},
        {behind, 0, 3, true, {1, 2, 0, 3}},   {behind, 1, 2, false, {0, 1, 2, 3}},
        {behind, 2, -1, true, {2, 0, 1, 3}},  {behind, 0, -1, true, {0, 1, 2, 3}},
        {behind, 0, 1, false, {0, 1, 2, 3}},
    };
    for (const Case &c : cases)
    {
        SCOPED_TRACE(&c - cases);
        Records held{{0, 1, 2, 3}};
        KIVCS2LinkElem *neighbour = c.neighbour < 0 ? nullptr : held.at(static_cast<size_t>(c.neighbour));
        EXPECT_EQ(c.move(held.at(c.elem), neighbour), c.moved);
        EXPECT_EQ(keysOf(held.list), c.after);
    }
}

TEST(LinkList, SortedInsertGoesInFrontOfEquals)
{
    Records held{{}};
    Record records[] = {{{}, 5, 0}, {{}, 3, 1}, {{}, 5, 2}, {{}, 9, 3}, {{}, 5, 4}, {{}, 1, 5}};
    for (Record &record : records)
        kivCS2LinkList_sortedInsert(&held.list, &record.link, byKey);
    EXPECT_EQ(keysOf(held.list), (Keys{1, 3, 5, 5, 5, 9}));
    std::vector<int> numbers;
    for (KIVCS2LinkElem *elem = held.list.m_next; elem; elem = elem->m_next)
        numbers.push_back(recordOf(elem).number);
    EXPECT_EQ(numbers, (std::vector<int>{5, 1, 4, 2, 0, 3}));
    kivCS2LinkList_free(&held.list);
}

TEST(LinkList, FindsTheFirstThatMatches)
{
    Records held{{1, 3, 3, 7, 5}};
    Record sought{{}, 3, 0};
    EXPECT_EQ(kivCS2LinkList_find(&held.list, byKey, &sought.link), held.at(1));
    EXPECT_EQ(kivCS2LinkList_findInSortedList(&held.list, byKey, &sought.link), held.at(1));
    sought.key = 5; // behind a larger one
    EXPECT_EQ(kivCS2LinkList_find(&held.list, byKey, &sought.link), held.at(4));
    EXPECT_EQ(kivCS2LinkList_findInSortedList(&held.list, byKey, &sought.link), nullptr);
    sought.key = 8;
    EXPECT_EQ(kivCS2LinkList_find(&held.list, byKey, &sought.link), nullptr);
    EXPECT_EQ(kivCS2LinkList_findInSortedList(&held.list, byKey, &sought.link), nullptr);
}

TEST(LinkList, GetElemReadsTheCountAsSigned)
{
    Records held{{1, 2, 3}};
    EXPECT_EQ(kivCS2LinkList_getElem(&held.list, 0), held.at(0));
    EXPECT_EQ(kivCS2LinkList_getElem(&held.list, 2), held.at(2));
    for (const int32_t index : {-1, 3, INT32_MIN, INT32_MAX})
        EXPECT_EQ(kivCS2LinkList_getElem(&held.list, index), nullptr) << index;
    held.list.m_count = 0x80000000u;
    EXPECT_EQ(kivCS2LinkList_getElem(&held.list, 0), nullptr);
    held.list.m_count = 3;
}

TEST(LinkList, SortLeavesTheLastPointerAsItWas)
{
    Records held{{3, 1, 2}};
    EXPECT_EQ(kivCS2LinkList_sort(&held.list, byKey), held.at(1));
    EXPECT_EQ(held.list.m_next, held.at(1));
    EXPECT_EQ(held.list.m_prev, held.at(2)); // now in the middle
    EXPECT_FALSE(kivCS2LinkList_checkValid(&held.list));
    held.list.m_prev = held.at(0);
    EXPECT_EQ(keysOf(held.list), (Keys{1, 2, 3}));
}

TEST(LinkList, FreeAfterASortNeedsNoLastPointer)
{
    // The element that was last before the sort, and that m_prev still names, is gone.
    Records held{{3, 1}};
    auto last = std::make_unique<Record>(Record{{}, 2, 0});
    kivCS2LinkList_appendElem(&held.list, &last->link);
    kivCS2LinkList_sort(&held.list, byKey);
    kivCS2LinkElem_unlink(&last->link);
    last.reset();
    kivCS2LinkList_free(&held.list);
    EXPECT_EQ(held.at(0)->m_list, nullptr);
    EXPECT_EQ(held.at(1)->m_list, nullptr);
}

TEST(LinkList, SortLeavesFewerThanTwoAlone)
{
    Records empty{{}};
    EXPECT_EQ(kivCS2LinkList_sort(&empty.list, byKey), nullptr);
    Records single{{1}};
    EXPECT_EQ(kivCS2LinkList_sort(&single.list, byKey), single.at(0));
    EXPECT_EQ(keysOf(single.list), Keys{1});
}

// Sizes around those of the chunks and of the merges above them.
constexpr size_t kSizes[] = {2,    3,    4,    5,    7,    16,    17,    31,    100,
                             1023, 1024, 1025, 2048, 2049, 33000, 36000, 100001};

// Random, few keys, ascending, descending, and steps up and down.
int keyOf(int kind, int index, int size, std::mt19937 &random)
{
    const auto any = static_cast<int>(random() >> 1);
    const int keys[] = {any, any % 7, index, size - index, index / 3 % 1500, (size - index) / 3};
    return keys[kind];
}

TEST(LinkList, SortIsStable)
{
    std::mt19937 random{1};
    for (const size_t size : kSizes)
    {
        for (int kind = 0; kind < 6; ++kind)
        {
            Keys keys(size);
            for (size_t index = 0; index < size; ++index)
                keys[index] = keyOf(kind, static_cast<int>(index), static_cast<int>(size), random);
            Records held{keys};
            std::vector<int> expected(size);
            std::iota(expected.begin(), expected.end(), 0);
            const auto byKeys = [&](int a, int b)
            {
                return keys[static_cast<size_t>(a)] < keys[static_cast<size_t>(b)];
            };
            std::stable_sort(expected.begin(), expected.end(), byKeys);

            g_comparisons = 0;
            kivCS2LinkList_sort(&held.list, byKey);
            const auto count = static_cast<double>(size);
            EXPECT_LE(static_cast<double>(g_comparisons), count * (std::log2(count) + 1))
                << kind; // the most seen is 0.6
            held.list.m_prev = held.at(static_cast<size_t>(expected.back()));
            ASSERT_EQ(keysOf(held.list).size(), size);
            size_t index = 0;
            for (KIVCS2LinkElem *elem = held.list.m_next; elem; elem = elem->m_next)
                ASSERT_EQ(recordOf(elem).number, expected[index++]) << size;
        }
    }
}

int32_t alwaysAfter(KIVCS2LinkElem *, KIVCS2LinkElem *)
{
    return 1;
}

int32_t alwaysBefore(KIVCS2LinkElem *, KIVCS2LinkElem *)
{
    return -1;
}

int32_t anything(KIVCS2LinkElem *, KIVCS2LinkElem *)
{
    static std::minstd_rand random;
    return static_cast<int32_t>(random() % 5) - 2;
}

TEST(LinkList, ContradictingAnswersLoseNothing)
{
    for (const size_t size : kSizes)
    {
        for (const KIVCS2LinkListCmpFunc liar : {alwaysAfter, alwaysBefore, anything})
        {
            Records held{Keys(size)};
            std::vector<bool> seen(size);
            size_t count = 0;
            for (KIVCS2LinkElem *elem = kivCS2LinkList_sort(&held.list, liar); elem && count <= size;
                 elem = elem->m_next, ++count)
                seen[static_cast<size_t>(recordOf(elem).number)] = true;
            ASSERT_EQ(count, size);
            ASSERT_TRUE(std::find(seen.begin(), seen.end(), false) == seen.end());
        }
    }
}

TEST(LinkList, CheckValidSeesBrokenLinks)
{
    Record records[3]{};
    KIVCS2LinkElem *const elems[] = {&records[0].link, &records[1].link, &records[2].link};
    KIVCS2LinkList list{};
    struct Case
    {
        size_t elements;
        std::function<void()> damage;
    };
    const Case cases[] = {
        {0, KIV_CALL(list.m_prev = elems[0])},      {1, KIV_CALL(list.m_count = 0)},
        {1, KIV_CALL(list.m_prev = nullptr)},       {1, KIV_CALL(list.m_next = nullptr)},
        {1, KIV_CALL(elems[0]->m_list = nullptr)},  {1, KIV_CALL(elems[0]->m_next = elems[0])},
        {1, KIV_CALL(elems[0]->m_prev = elems[0])}, {2, KIV_CALL(list.m_count = 1)},
        {3, KIV_CALL(list.m_next = nullptr)},       {3, KIV_CALL(list.m_next = elems[2])},
        {3, KIV_CALL(list.m_prev = elems[0])},      {3, KIV_CALL(elems[1]->m_list = nullptr)},
        {3, KIV_CALL(elems[1]->m_prev = nullptr)},  {3, KIV_CALL(elems[2]->m_next = elems[0])}, // a ring
    };
    EXPECT_FALSE(kivCS2LinkList_checkValid(nullptr));
    for (const Case &c : cases)
    {
        SCOPED_TRACE(&c - cases);
        list = {};
        std::fill(std::begin(records), std::end(records), Record{});
        for (size_t index = 0; index < c.elements; ++index)
            kivCS2LinkList_appendElem(&list, elems[index]);
        EXPECT_TRUE(kivCS2LinkList_checkValid(&list));
        c.damage();
        EXPECT_FALSE(kivCS2LinkList_checkValid(&list));
    }
    EXPECT_EQ(kivCS2LinkList_checkFailed(nullptr, 7), 7u);
}

TEST(LinkList, CheckValidDoesNotCompareTheCount)
{
    Records held{{1, 2, 3}};
    held.list.m_count = 9;
    EXPECT_TRUE(kivCS2LinkList_checkValid(&held.list));
}

#ifndef NDEBUG
// These operations have no status: without assertions the call goes on.
TEST(LinkListDeathTest, MissingArgumentsAreNamed)
{
    struct Case
    {
        const char *operation;
        const char *text;
        std::function<void()> call;
    };
    Records held{{1, 2}};
    Records other{{3}};
    Record loose{{}, 4, 0};
    KIVCS2LinkList *list = &held.list;
    KIVCS2LinkElem *a = held.at(0);
    const Case cases[] = {
        {"kivCS2LinkList_removeElem", "_list", KIV_CALL(kivCS2LinkList_removeElem(nullptr, a))},
        {"kivCS2LinkList_removeElem", "_elem", KIV_CALL(kivCS2LinkList_removeElem(list, nullptr))},
        {"kivCS2LinkList_insertElemAfter", "_f_elem", KIV_CALL(kivCS2LinkList_insertElemAfter(nullptr, a))},
        {"kivCS2LinkList_insertElemAfter", "_b_elem", KIV_CALL(kivCS2LinkList_insertElemAfter(a, nullptr))},
        {"kivCS2LinkList_insertElemAfter", "_b_elem->m_list",
         KIV_CALL(kivCS2LinkList_insertElemAfter(a, &loose.link))},
        {"kivCS2LinkList_insertElemAfter", "_f_elem != _b_elem",
         KIV_CALL(kivCS2LinkList_insertElemAfter(a, a))},
        {"kivCS2LinkList_insertElemBefore", "_f_elem", KIV_CALL(kivCS2LinkList_insertElemBefore(nullptr, a))},
        {"kivCS2LinkList_insertElemBefore", "_b_elem", KIV_CALL(kivCS2LinkList_insertElemBefore(a, nullptr))},
        {"kivCS2LinkList_insertElemBefore", "_b_elem->m_list",
         KIV_CALL(kivCS2LinkList_insertElemBefore(a, &loose.link))},
        {"kivCS2LinkList_insertElemBefore", "_f_elem != _b_elem",
         KIV_CALL(kivCS2LinkList_insertElemBefore(a, a))},
        {"kivCS2LinkList_sortedInsert", "_list", KIV_CALL(kivCS2LinkList_sortedInsert(nullptr, a, byKey))},
        {"kivCS2LinkList_sortedInsert", "_elem", KIV_CALL(kivCS2LinkList_sortedInsert(list, nullptr, byKey))},
        {"kivCS2LinkList_sortedInsert", "_cmp_func", KIV_CALL(kivCS2LinkList_sortedInsert(list, a, nullptr))},
        {"kivCS2LinkList_find", "_list", KIV_CALL(kivCS2LinkList_find(nullptr, byKey, a))},
        {"kivCS2LinkList_find", "_cmp_func", KIV_CALL(kivCS2LinkList_find(list, nullptr, a))},
        {"kivCS2LinkList_find", "_cmp_elem", KIV_CALL(kivCS2LinkList_find(list, byKey, nullptr))},
        {"kivCS2LinkList_findInSortedList", "_list",
         KIV_CALL(kivCS2LinkList_findInSortedList(nullptr, byKey, a))},
        {"kivCS2LinkList_findInSortedList", "_cmp_func",
         KIV_CALL(kivCS2LinkList_findInSortedList(list, nullptr, a))},
        {"kivCS2LinkList_findInSortedList", "_cmp_elem",
         KIV_CALL(kivCS2LinkList_findInSortedList(list, byKey, nullptr))},
        {"kivCS2LinkElem_moveInFront", "_f_elem", KIV_CALL(kivCS2LinkElem_moveInFront(nullptr, a))},
        {"kivCS2LinkElem_moveInFront", "_f_elem->m_list",
         KIV_CALL(kivCS2LinkElem_moveInFront(&loose.link, a))},
        {"kivCS2LinkElem_moveInFront", "_f_elem != _b_elem", KIV_CALL(kivCS2LinkElem_moveInFront(a, a))},
        {"kivCS2LinkElem_moveInFront", "_f_elem->m_list == _b_elem->m_list",
         KIV_CALL(kivCS2LinkElem_moveInFront(a, other.at(0)))},
        {"kivCS2LinkElem_moveBehind", "_f_elem", KIV_CALL(kivCS2LinkElem_moveBehind(nullptr, a))},
        {"kivCS2LinkElem_moveBehind", "_f_elem->m_list", KIV_CALL(kivCS2LinkElem_moveBehind(&loose.link, a))},
        {"kivCS2LinkElem_moveBehind", "_f_elem != _b_elem", KIV_CALL(kivCS2LinkElem_moveBehind(a, a))},
        {"kivCS2LinkElem_moveBehind", "_f_elem->m_list == _b_elem->m_list",
         KIV_CALL(kivCS2LinkElem_moveBehind(a, other.at(0)))},
        {"kivCS2LinkList_sort", "_list", KIV_CALL(kivCS2LinkList_sort(nullptr, byKey))},
        {"kivCS2LinkList_sort", "_cmp_func", KIV_CALL(kivCS2LinkList_sort(list, nullptr))},
        {"kivCS2LinkList_sortElems", "_list", KIV_CALL(kivCS2LinkList_sortElems(nullptr, byKey))},
        {"kivCS2LinkList_sortElems", "_list->m_next", KIV_CALL(kivCS2LinkList_sortElems(other.at(0), byKey))},
    };
    for (const Case &c : cases)
    {
        SCOPED_TRACE(std::string{c.operation} + ": " + c.text);
        EXPECT_DEATH(c.call(), kiv::test::assertionPattern(c.operation, c.text));
    }
}
#endif
} // namespace
