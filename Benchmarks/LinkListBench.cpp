// Linked lists and trees: the sort, compared with Boost.Intrusive and std::list, and the time of linear
// operations as lists grow.
#include <KIVCoreServices2/KIVCS2LinkList.h>
#include <KIVCoreServices2/KIVCS2LinkTree.h>

#include <benchmark/benchmark.h>

#ifdef KIV_PEER_BOOST
#include <boost/intrusive/list.hpp>
#endif

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <list>
#include <random>
#include <vector>

namespace
{
// Random keys, some of them equal, and a number that shows whether the order is stable.
struct Payload
{
    uint32_t key;
    uint32_t number;
    friend bool operator<(const Payload &a, const Payload &b)
    {
        return a.key < b.key;
    }
};

std::vector<Payload> randomPayloads(size_t count)
{
    std::mt19937 random{static_cast<uint32_t>(count)};
    std::uniform_int_distribution<uint32_t> key{0, static_cast<uint32_t>(count)};
    std::vector<Payload> payloads(count);
    for (uint32_t number = 0; number < count; ++number)
        payloads[number] = {key(random), number};
    return payloads;
}

struct Ours
{
    struct Record
    {
        KIVCS2LinkElem link;
        Payload payload;
    };
    std::vector<Record> records;
    KIVCS2LinkList list{};

    explicit Ours(const std::vector<Payload> &payloads)
    {
        for (const Payload &payload : payloads)
            records.push_back({{}, payload});
    }
    void link()
    {
        kivCS2LinkList_free(&list);
        for (Record &record : records)
            kivCS2LinkList_appendElem(&list, &record.link);
    }
    static const Payload &payloadOf(const KIVCS2LinkElem *elem)
    {
        return reinterpret_cast<const Record *>(elem)->payload;
    }
    static int32_t compare(KIVCS2LinkElem *a, KIVCS2LinkElem *b)
    {
        const uint32_t left = payloadOf(a).key;
        const uint32_t right = payloadOf(b).key;
        return (left > right) - (left < right);
    }
    void sort()
    {
        kivCS2LinkList_sort(&list, compare);
    }
    std::vector<uint32_t> numbers() const
    {
        std::vector<uint32_t> numbers;
        for (const KIVCS2LinkElem *elem = list.m_next; elem; elem = elem->m_next)
            numbers.push_back(payloadOf(elem).number);
        return numbers;
    }
};

#ifdef KIV_PEER_BOOST
struct Boost
{
    struct Record
        : boost::intrusive::list_base_hook<boost::intrusive::link_mode<boost::intrusive::normal_link>>
    {
        Payload payload;
        friend bool operator<(const Record &a, const Record &b)
        {
            return a.payload < b.payload;
        }
    };
    std::vector<Record> records;
    boost::intrusive::list<Record> list;

    explicit Boost(const std::vector<Payload> &payloads) : records(payloads.size())
    {
        for (size_t index = 0; index < payloads.size(); ++index)
            records[index].payload = payloads[index];
    }
    void link()
    {
        list.clear();
        for (Record &record : records)
            list.push_back(record);
    }
    void sort()
    {
        list.sort();
    }
    std::vector<uint32_t> numbers() const
    {
        std::vector<uint32_t> numbers;
        for (const Record &record : list)
            numbers.push_back(record.payload.number);
        return numbers;
    }
};
#endif

struct Std
{
    std::vector<Payload> payloads;
    std::list<Payload> list;

    explicit Std(const std::vector<Payload> &given) : payloads{given} {}
    void link()
    {
        list.assign(payloads.begin(), payloads.end());
    }
    void sort()
    {
        list.sort();
    }
    std::vector<uint32_t> numbers() const
    {
        std::vector<uint32_t> numbers;
        for (const Payload &payload : list)
            numbers.push_back(payload.number);
        return numbers;
    }
};

// Returns the numbers in the order of a stable sort, which every list must produce.
std::vector<uint32_t> expectedNumbers(std::vector<Payload> payloads)
{
    std::stable_sort(payloads.begin(), payloads.end());
    std::vector<uint32_t> numbers;
    for (const Payload &payload : payloads)
        numbers.push_back(payload.number);
    return numbers;
}

// Returns the processor time of this thread, which does not include other programs on the machine.
double threadSeconds()
{
    timespec now{};
    (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Links the same list again before each sort; this is not timed.
template <class List>
void sortList(benchmark::State &state)
{
    const std::vector<Payload> payloads = randomPayloads(static_cast<size_t>(state.range(0)));
    List list{payloads};
    list.link();
    list.sort();
    if (list.numbers() != expectedNumbers(payloads))
        state.SkipWithError("not the stable order");
    for (auto _ : state)
    {
        list.link();
        const double start = threadSeconds();
        list.sort();
        state.SetIterationTime(threadSeconds() - start);
    }
}
#define KIV_SORT_BENCH(type, name)                                                                           \
    BENCHMARK(sortList<type>)                                                                                \
        ->Name("ListSort/" name)                                                                             \
        ->Arg(1000)                                                                                          \
        ->Arg(10000)                                                                                         \
        ->Arg(100000)                                                                                        \
        ->Arg(1000000)                                                                                       \
        ->UseManualTime()
KIV_SORT_BENCH(Ours, "ours");
#ifdef KIV_PEER_BOOST
KIV_SORT_BENCH(Boost, "boost_intrusive");
#endif
KIV_SORT_BENCH(Std, "std_list");

// The sizes for linear operations. Random records are sorted, so that neighbours in a list lie apart in
// memory, as in a host that has run for a while.
void growth(benchmark::internal::Benchmark *bench)
{
    bench->Arg(1000)->Arg(10000)->Arg(100000)->Arg(1000000);
}

Ours::Record recordWithKey(uint32_t key)
{
    return {{}, {key, 0}};
}

// The worst case: a key that no element has and that sorts after all of them.
void findLast(benchmark::State &state)
{
    const auto count = static_cast<uint32_t>(state.range(0));
    Ours held{randomPayloads(count)};
    held.link();
    held.sort();
    Ours::Record sought = recordWithKey(count + 1);
    for (auto _ : state)
        if (kivCS2LinkList_find(&held.list, Ours::compare, &sought.link))
            state.SkipWithError("found");
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(findLast)->Name("ListFind/ours")->Apply(growth);

// Inserts into the middle.
void sortedInsert(benchmark::State &state)
{
    const auto count = static_cast<uint32_t>(state.range(0));
    Ours held{randomPayloads(count)};
    held.link();
    held.sort();
    Ours::Record added = recordWithKey(count / 2);
    for (auto _ : state)
    {
        kivCS2LinkList_sortedInsert(&held.list, &added.link, Ours::compare);
        kivCS2LinkElem_unlink(&added.link);
    }
    if (held.list.m_count != count)
        state.SkipWithError("not inserted");
    state.SetItemsProcessed(state.iterations() * state.range(0) / 2);
}
BENCHMARK(sortedInsert)->Name("ListSortedInsert/ours")->Apply(growth);

// A tree of `count` owned nodes, ten children each, made level by level.
KIVCS2LinkTree makeTree(size_t count)
{
    KIVCS2LinkTree tree{};
    std::vector<KIVCS2LinkTreeNode *> nodes(count);
    for (size_t index = 0; index < count; ++index)
        if (KIVCS2_FAILED(kivCS2LinkTree_attachNewNode(&tree, index == 0 ? nullptr : nodes[(index - 1) / 10],
                                                       128, nullptr, &nodes[index])))
            std::abort();
    return tree;
}

KIVCS2Status countVisit(KIVCS2LinkTree *, KIVCS2LinkTreeNode *, void *context)
{
    ++*static_cast<int64_t *>(context);
    return KIVCS2STATUS_OK;
}

void traverse(benchmark::State &state)
{
    KIVCS2LinkTree tree = makeTree(static_cast<size_t>(state.range(0)));
    int64_t visits = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            _kivCS2LinkTree_traverseNodes(&tree, nullptr, nullptr, countVisit, &visits, 0));
    if (visits != state.iterations() * state.range(0))
        state.SkipWithError("not every node");
    state.SetItemsProcessed(visits);
    (void)_kivCS2LinkTree_free(&tree);
}
BENCHMARK(traverse)->Name("TreeTraverse/ours")->Apply(growth);

void countNodes(benchmark::State &state)
{
    KIVCS2LinkTree tree = makeTree(static_cast<size_t>(state.range(0)));
    for (auto _ : state)
    {
        uint32_t count = 0;
        (void)_kivCS2LinkTree_countNodes(&tree, nullptr, &count);
        if (count != state.range(0))
            state.SkipWithError("not every node");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    (void)_kivCS2LinkTree_free(&tree);
}
BENCHMARK(countNodes)->Name("TreeCount/ours")->Apply(growth);

void freeTree(benchmark::State &state)
{
    for (auto _ : state)
    {
        KIVCS2LinkTree tree = makeTree(static_cast<size_t>(state.range(0)));
        const double start = threadSeconds();
        (void)_kivCS2LinkTree_free(&tree);
        state.SetIterationTime(threadSeconds() - start);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(freeTree)->Name("TreeFree/ours")->Apply(growth)->UseManualTime();
} // namespace

BENCHMARK_MAIN();
