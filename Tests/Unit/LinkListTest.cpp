// Linked lists: results that hosts rely on, sort, check. Fuzzers/LinkListFuzzer.cpp has a model of the rest.
#include <KIVCoreServices2/KIVCS2LinkList.h>

#include "RequiredPointers.h"

#include <cmath>
#include <cstddef>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

namespace
{
static_assert(offsetof(KIVCS2LinkElem, m_next) == 0 && offsetof(KIVCS2LinkElem, m_prev) == 8 &&
              offsetof(KIVCS2LinkElem, m_list) == 16);
static_assert(offsetof(KIVCS2LinkList, m_next) == 0 && offsetof(KIVCS2LinkList, m_prev) == 8 &&
              offsetof(KIVCS2LinkList, m_count) == 16);

struct Record
{
    KIVCS2LinkElem link;
    int key;
    int number; // in the order of creation
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

// A list of records with the given keys. Its destructor frees the list, after which no record may have links.
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

// Returns the keys in order, after it has checked every link.
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

TEST(LinkList, InsertionLeavesTheElementCountedWhereItWas)
{
    Records from{{1, 2}};
    Records to{{3}};
    kivCS2LinkList_insertElemAfter(from.at(1), to.at(0));
    EXPECT_EQ(from.list.m_count, 2u);
    EXPECT_EQ(keysOf(to.list), (Keys{3, 2}));
    kivCS2LinkList_free(&from.list); // leaves the other list as it was
    EXPECT_EQ(keysOf(to.list), (Keys{3, 2}));
    kivCS2LinkElem_unlink(from.at(1));
}

TEST(LinkList, AZeroedListKeepsItsZeros)
{
    Records held{{4}};
    const KIVCS2LinkList filled = std::exchange(held.list, {});
    kivCS2LinkElem_unlink(held.at(0));
    EXPECT_TRUE(held.list.m_count == 0 && held.at(0)->m_list == &held.list);
    held.list = filled;
}

TEST(LinkList, AMoveToAnEndIsAlwaysAMove)
{
    Records held{{1, 2}};
    EXPECT_TRUE(kivCS2LinkElem_moveInFront(held.at(1), nullptr));
    EXPECT_TRUE(kivCS2LinkElem_moveBehind(held.at(0), nullptr));
    EXPECT_FALSE(kivCS2LinkElem_moveBehind(held.at(0), held.at(1)));
    EXPECT_EQ(keysOf(held.list), (Keys{1, 2}));
}

TEST(LinkList, SortedInsertGoesInFrontOfEquals)
{
    Records held{{3, 5}};
    Record latest{{}, 5, 2};
    kivCS2LinkList_sortedInsert(&held.list, &latest.link, byKey);
    EXPECT_EQ(keysOf(held.list), (Keys{3, 5, 5}));
    EXPECT_EQ(latest.link.m_next, held.at(1));
    kivCS2LinkElem_unlink(&latest.link);
}

TEST(LinkList, GetElemReadsTheCountAsSigned)
{
    Records held{{1, 2, 3}};
    for (const int32_t index : {-1, 3, INT32_MIN, INT32_MAX})
        EXPECT_EQ(kivCS2LinkList_getElem(&held.list, index), nullptr) << index;
    held.list.m_count = 0x80000000u;
    EXPECT_EQ(kivCS2LinkList_getElem(&held.list, 0), nullptr);
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

// Sizes around those of the chunks and merges of the sort.
constexpr size_t kSizes[] = {2,    3,    4,    5,    7,    16,    17,    31,    100,
                             1023, 1024, 1025, 2048, 2049, 33000, 36000, 100001};

// Random, few keys, ascending, descending, and steps up and down.
int keyOf(int kind, int index, int size, std::mt19937 &random)
{
    const auto any = static_cast<int>(random() >> 1);
    const int keys[] = {any, any % 7, index, size - index, index / 3 % 1500, (size - index) / 3};
    return keys[kind];
}

// A merge that fails is repeated in another way, so only the number of comparisons shows the failure.
TEST(LinkList, SortIsStableWithFewComparisons)
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
            std::vector<size_t> expected(size);
            std::iota(expected.begin(), expected.end(), 0u);
            std::ranges::stable_sort(expected, {}, [&](size_t index) { return keys[index]; });

            g_comparisons = 0;
            kivCS2LinkList_sort(&held.list, byKey);
            const auto count = static_cast<double>(size);
            const bool isOrdered = kind == 2 || kind == 3;
            EXPECT_LE(static_cast<double>(g_comparisons), count * (isOrdered ? 4 : std::log2(count) + 1))
                << size << " of kind " << kind;
            held.list.m_prev = held.at(expected.back());
            ASSERT_EQ(keysOf(held.list).size(), size);
            const KIVCS2LinkElem *elem = held.list.m_next;
            for (const size_t number : expected)
            {
                ASSERT_EQ(elem, held.at(number)) << size << " of kind " << kind;
                elem = elem->m_next;
            }
        }
    }
}

TEST(LinkList, ContradictoryComparisonsLoseNoElement)
{
    const KIVCS2LinkListCmpFunc liars[] = {
        [](auto...) { return 1; },
        [](auto...) { return -1; },
        [](auto...)
        {
            static std::minstd_rand random;
            return static_cast<int32_t>(random() % 5) - 2;
        },
    };
    for (const size_t size : kSizes)
    {
        for (const KIVCS2LinkListCmpFunc liar : liars)
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

TEST(LinkListDeathTest, MissingArgumentsAreNamed)
{
    if (!kiv::test::hasAssertions())
        GTEST_SKIP() << "these operations have no status: without assertions the call goes on";
    Records held{{1, 2}};
    Records other{{3}};
    Record loose{{}, 4, 0};
    KIVCS2LinkElem *a = held.at(0);
    KIV_REQUIRES_EACH(kivCS2LinkList_removeElem, "_list, _elem");
    KIV_REQUIRES_EACH(kivCS2LinkList_insertElemAfter, "_f_elem, _b_elem");
    KIV_REQUIRES_EACH(kivCS2LinkList_insertElemBefore, "_f_elem, _b_elem");
    KIV_REQUIRES_EACH(kivCS2LinkList_sortedInsert, "_list, _elem, _cmp_func");
    KIV_REQUIRES_EACH(kivCS2LinkList_find, "_list, _cmp_func, _cmp_elem");
    KIV_REQUIRES_EACH(kivCS2LinkList_findInSortedList, "_list, _cmp_func, _cmp_elem");
    KIV_REQUIRES_EACH(kivCS2LinkElem_moveInFront, "_f_elem, -");
    KIV_REQUIRES_EACH(kivCS2LinkElem_moveBehind, "_f_elem, -");
    KIV_REQUIRES_EACH(kivCS2LinkList_sort, "_list, _cmp_func");
    KIV_REQUIRES_EACH(kivCS2LinkList_sortElems, "_list, -");
    const auto expectDeath =
        [](const char *name, auto *operation, const char *text, auto *first, auto *second)
    { EXPECT_DEATH(static_cast<void>(operation(first, second)), kiv::test::assertionPattern(name, text)); };
#define KIV_DIES(operation, ...) expectDeath(#operation, operation, __VA_ARGS__)
    KIV_DIES(kivCS2LinkList_insertElemAfter, "_b_elem->m_list", a, &loose.link);
    KIV_DIES(kivCS2LinkList_insertElemAfter, "_f_elem != _b_elem", a, a);
    KIV_DIES(kivCS2LinkList_insertElemBefore, "_b_elem->m_list", a, &loose.link);
    KIV_DIES(kivCS2LinkList_insertElemBefore, "_f_elem != _b_elem", a, a);
    KIV_DIES(kivCS2LinkElem_moveInFront, "_f_elem->m_list", &loose.link, a);
    KIV_DIES(kivCS2LinkElem_moveInFront, "_f_elem != _b_elem", a, a);
    KIV_DIES(kivCS2LinkElem_moveInFront, "_f_elem->m_list == _b_elem->m_list", a, other.at(0));
    KIV_DIES(kivCS2LinkElem_moveBehind, "_f_elem->m_list", &loose.link, a);
    KIV_DIES(kivCS2LinkElem_moveBehind, "_f_elem != _b_elem", a, a);
    KIV_DIES(kivCS2LinkElem_moveBehind, "_f_elem->m_list == _b_elem->m_list", a, other.at(0));
    KIV_DIES(kivCS2LinkList_sortElems, "_list->m_next", other.at(0), byKey);
}
#undef KIV_DIES
} // namespace
