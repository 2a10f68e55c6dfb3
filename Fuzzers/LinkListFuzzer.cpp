// Operations on two lists of the same records, compared with vectors of their numbers. Each operation takes
// four bytes of the input: the operation, the list, and two arguments.
#include "Require.h"

#include "KIVCS2LinkList.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace
{
struct Record
{
    KIVCS2LinkElem link;
    uint8_t key;
    uint16_t number;
};

constexpr size_t kRecords = 32;
constexpr size_t kMaxSteps = 100; // longer inputs find no more faults

Record &recordOf(KIVCS2LinkElem *elem)
{
    return *reinterpret_cast<Record *>(elem);
}

int32_t byKey(KIVCS2LinkElem *a, KIVCS2LinkElem *b)
{
    return recordOf(a).key - recordOf(b).key;
}

using Model = std::vector<uint16_t>;

class Lists
{
public:
    Lists()
    {
        for (size_t number = 0; number < kRecords; ++number)
            m_records[number] = {{}, static_cast<uint8_t>(number * 151 >> 3), static_cast<uint16_t>(number)};
    }

    void run(const uint8_t *step)
    {
        const size_t which = step[1] & 1;
        KIVCS2LinkList &list = m_lists[which];
        Model &model = m_models[which];
        Record &record = m_records[step[2] % kRecords];
        const uint16_t neighbour = model.empty() ? record.number : model[step[3] % model.size()];
        const bool besides = neighbour != record.number;
        KIVCS2LinkElem *const elem = &record.link;
        KIVCS2LinkElem *const other = &m_records[neighbour].link;
        switch (step[0] % 11)
        {
        case 0:
            kivCS2LinkList_appendElem(&list, elem);
            take(record);
            model.push_back(record.number);
            break;
        case 1:
            kivCS2LinkList_prependElem(&list, elem);
            take(record);
            model.insert(model.begin(), record.number);
            break;
        case 2:
            kivCS2LinkList_removeElem(&list, elem);
            std::erase(model, record.number);
            break;
        case 3:
            kivCS2LinkElem_unlink(elem);
            take(record);
            break;
        case 4:
        case 5:
            if (!besides || model.empty())
                break;
            kivCS2LinkElem_unlink(elem);
            take(record);
            (step[0] % 11 == 4 ? kivCS2LinkList_insertElemAfter : kivCS2LinkList_insertElemBefore)(elem,
                                                                                                   other);
            model.insert(find(model, neighbour) + (step[0] % 11 == 4 ? 1 : 0), record.number);
            break;
        case 6:
        case 7:
            move(model, record, (step[3] & 1) != 0 ? other : nullptr, neighbour, step[0] % 11 == 6);
            break;
        case 8:
            kivCS2LinkElem_unlink(elem);
            take(record);
            kivCS2LinkList_sortedInsert(&list, elem, byKey);
            model.insert(std::find_if(model.begin(), model.end(),
                                      [&](uint16_t number) { return record.key <= m_records[number].key; }),
                         record.number);
            break;
        case 9:
            search(list, model, record, static_cast<int8_t>(step[3]));
            break;
        default:
            sort(list, model, step[2]);
        }
        compare();
    }

    // Frees a sorted list while its last pointer is still where the sort left it.
    void finish()
    {
        for (KIVCS2LinkList &list : m_lists)
        {
            kivCS2LinkList_sort(&list, byKey);
            kivCS2LinkList_free(&list);
            require(kivCS2LinkList_checkValid(&list) && list.m_count == 0);
        }
        for (const Record &record : m_records)
            require(!record.link.m_next && !record.link.m_prev && !record.link.m_list);
    }

private:
    static Model::iterator find(Model &model, uint16_t number)
    {
        return std::find(model.begin(), model.end(), number);
    }

    void take(const Record &record)
    {
        for (Model &model : m_models)
            std::erase(model, record.number);
    }

    // Inserts next to `other` of the same list, or at an end.
    void move(Model &model, Record &record, KIVCS2LinkElem *other, uint16_t neighbour, bool inFront)
    {
        const auto at = find(model, record.number);
        if (at == model.end() || other == &record.link)
            return;
        const auto wanted = inFront ? at - 1 : at + 1;
        const bool there =
            other && (inFront ? at != model.begin() : wanted != model.end()) && *wanted == neighbour;
        const bool moved =
            (inFront ? kivCS2LinkElem_moveInFront : kivCS2LinkElem_moveBehind)(&record.link, other);
        require(moved != there);
        std::erase(model, record.number);
        if (other)
            model.insert(find(model, neighbour) + (inFront ? 1 : 0), record.number);
        else
            model.insert(inFront ? model.end() : model.begin(), record.number);
    }

    void search(KIVCS2LinkList &list, const Model &model, Record &sought, int32_t index)
    {
        const auto first = std::find_if(model.begin(), model.end(),
                                        [&](uint16_t number) { return m_records[number].key == sought.key; });
        const auto beyond = std::find_if(model.begin(), model.end(),
                                         [&](uint16_t number) { return m_records[number].key > sought.key; });
        KIVCS2LinkElem *const found = first == model.end() ? nullptr : &m_records[*first].link;
        require(kivCS2LinkList_find(&list, byKey, &sought.link) == found);
        require(kivCS2LinkList_findInSortedList(&list, byKey, &sought.link) ==
                (first < beyond ? found : nullptr));
        const bool inside = index >= 0 && index < static_cast<int32_t>(model.size());
        require(kivCS2LinkList_getElem(&list, index) ==
                (inside ? &m_records[model[static_cast<size_t>(index)]].link : nullptr));
    }

    // Sorts by new keys, then repairs the last pointer as a caller does.
    void sort(KIVCS2LinkList &list, Model &model, uint8_t keys)
    {
        KIVCS2LinkElem *const last = list.m_prev;
        for (Record &record : m_records)
            record.key = static_cast<uint8_t>(record.number * keys % 29);
        require(kivCS2LinkList_sort(&list, byKey) == list.m_next && list.m_prev == last);
        while (list.m_prev && list.m_prev->m_next)
            list.m_prev = list.m_prev->m_next;
        std::stable_sort(model.begin(), model.end(),
                         [&](uint16_t a, uint16_t b) { return m_records[a].key < m_records[b].key; });
    }

    void compare()
    {
        for (size_t which = 0; which < m_lists.size(); ++which)
        {
            const KIVCS2LinkList &list = m_lists[which];
            require(kivCS2LinkList_checkValid(&m_lists[which]));
            require(list.m_count == m_models[which].size());
            KIVCS2LinkElem *elem = list.m_next;
            for (const uint16_t number : m_models[which])
            {
                require(elem == &m_records[number].link);
                elem = elem->m_next;
            }
            require(!elem);
        }
    }

    std::array<Record, kRecords> m_records;
    std::array<KIVCS2LinkList, 2> m_lists{};
    std::array<Model, 2> m_models;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Lists lists;
    for (size_t at = 0; at + 4 <= std::min(size, 4 * kMaxSteps); at += 4)
        lists.run(data + at);
    lists.finish();
    return 0;
}
