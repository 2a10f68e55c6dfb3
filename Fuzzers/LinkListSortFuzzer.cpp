// Sorts a list of the input's bytes, repeated up to a count that the first two give: in the stable order, or,
// where the third asks for answers out of the input, in any order that loses nothing.
#include "Expect.h"

#include "KIVCS2LinkList.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <span>
#include <vector>

namespace
{
struct Record
{
    KIVCS2LinkElem link;
    uint8_t key;
    uint32_t number;
};

// More than the sort takes at a time, so that the chains above are merged too.
constexpr size_t kMaxRecords = 2200;

std::span<const uint8_t> g_answers;
size_t g_answer;

Record &recordOf(KIVCS2LinkElem *elem)
{
    return *reinterpret_cast<Record *>(elem);
}

int32_t byKey(KIVCS2LinkElem *a, KIVCS2LinkElem *b)
{
    return recordOf(a).key - recordOf(b).key;
}

int32_t liar(KIVCS2LinkElem *, KIVCS2LinkElem *)
{
    return static_cast<int8_t>(g_answers[g_answer++ % g_answers.size()]);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 4)
        return 0;
    const size_t count = static_cast<size_t>(data[0] | data[1] << 8) % kMaxRecords;
    const bool lies = (data[2] & 1) != 0;
    g_answers = {data + 3, size - 3};
    g_answer = 0;
    std::vector<Record> records(count);
    std::vector<uint32_t> expected(count);
    KIVCS2LinkList list{};
    for (uint32_t number = 0; number < count; ++number)
    {
        // Each repetition of the bytes steps up or down, or not at all.
        const auto repetition = static_cast<uint32_t>(number / g_answers.size());
        const uint32_t key = g_answers[number % g_answers.size()] + repetition * (data[2] >> 1);
        records[number] = {{}, static_cast<uint8_t>(key), number};
        kivCS2LinkList_appendElem(&list, &records[number].link);
    }
    std::iota(expected.begin(), expected.end(), 0u);

    KIVCS2LinkElem *const last = list.m_prev;
    KIV_FUZZ_EXPECT(kivCS2LinkList_sort(&list, lies ? liar : byKey) == list.m_next);
    KIV_FUZZ_EXPECT(list.m_prev == last && list.m_count == count);

    std::vector<uint32_t> order;
    const KIVCS2LinkElem *prev = nullptr;
    for (KIVCS2LinkElem *elem = list.m_next; elem && order.size() <= count; prev = elem, elem = elem->m_next)
    {
        KIV_FUZZ_EXPECT(elem->m_prev == prev && elem->m_list == &list);
        order.push_back(recordOf(elem).number);
    }
    if (lies)
        std::sort(order.begin(), order.end());
    else
        std::stable_sort(expected.begin(), expected.end(),
                         [&](uint32_t a, uint32_t b) { return records[a].key < records[b].key; });
    KIV_FUZZ_EXPECT(order == expected);

    kivCS2LinkList_free(&list);
    KIV_FUZZ_EXPECT(std::none_of(records.begin(), records.end(),
                                 [](const Record &record) { return record.link.m_list != nullptr; }));
    return 0;
}
