// Dictionaries: entries in the order in which they were added, followed in the same block by a hash table
// with open addressing. A removed entry stays as a dead entry until the block is rebuilt.
#include <CoreFoundation/CFDictionary.h>

#include "CoreFoundation/Object.h"

#include <algorithm>
#include <limits>
#include <span>

namespace
{
// This bit is set in the hash of every live entry; the hash of a dead entry is 0.
constexpr CFHashCode kLive = CFHashCode{1} << (std::numeric_limits<CFHashCode>::digits - 1);

struct Entry
{
    const void *key;
    const void *value;
    CFHashCode hash;
};

constexpr size_t kFirstCapacity = 8;
constexpr size_t kSlotsPerEntry = 2; // a power of two, like capacities; at most half the slots are used

// The contents of one block; empty if there is no block.
struct Table
{
    Entry *entries = nullptr;
    uint32_t *slots = nullptr; // 0, or an entry's index + 1
    size_t capacity = 0;
    size_t used = 0; // entries, dead ones included
};
} // namespace

struct __CFDictionary : kiv::cf::Object
{
    __CFDictionary(const CFDictionaryKeyCallBacks &forKeys,
                   const CFDictionaryValueCallBacks &forValues) noexcept;

    CFDictionaryKeyCallBacks keyCallBacks;
    CFDictionaryValueCallBacks valueCallBacks;
    Table table;
    size_t count = 0; // live entries
    bool isMutable = true;
};

namespace
{
const void *retainObject(CFAllocatorRef, const void *value)
{
    return CFRetain(value);
}
void releaseObject(CFAllocatorRef, const void *value)
{
    CFRelease(value);
}

template <class CallBacks>
const void *retained(const CallBacks &callBacks, const void *value) noexcept
{
    return callBacks.retain != nullptr ? callBacks.retain(nullptr, value) : value;
}

template <class CallBacks>
void release(const CallBacks &callBacks, const void *value) noexcept
{
    if (callBacks.release != nullptr)
        callBacks.release(nullptr, value);
}

template <class CallBacks>
bool areEqual(const CallBacks &callBacks, const void *one, const void *other) noexcept
{
    return one == other || (callBacks.equal != nullptr && callBacks.equal(one, other) != 0);
}

CFHashCode hashOf(const __CFDictionary &dictionary, const void *key) noexcept
{
    const auto hash = dictionary.keyCallBacks.hash;
    return (hash != nullptr ? hash(key) : reinterpret_cast<CFHashCode>(key)) | kLive;
}

// The slot where the search for a hash begins. Small numbers and addresses differ in few bits: spread them.
size_t firstSlot(const Table &table, CFHashCode hash) noexcept
{
    constexpr CFHashCode kGolden = 0x9e3779b97f4a7c15u;
    return (hash * kGolden >> 32) & (table.capacity * kSlotsPerEntry - 1);
}

size_t nextSlot(const Table &table, size_t slot) noexcept
{
    return (slot + 1) & (table.capacity * kSlotsPerEntry - 1);
}

Entry *find(const __CFDictionary &dictionary, const void *key, CFHashCode hash) noexcept
{
    const Table &table = dictionary.table;
    if (dictionary.count == 0)
        return nullptr;
    for (size_t slot = firstSlot(table, hash); table.slots[slot] != 0; slot = nextSlot(table, slot))
    {
        Entry &entry = table.entries[table.slots[slot] - 1];
        if (entry.hash == hash && areEqual(dictionary.keyCallBacks, entry.key, key))
            return &entry;
    }
    return nullptr;
}

const Entry *find(CFDictionaryRef dictionary, const void *key) noexcept
{
    return find(*dictionary, key, hashOf(*dictionary, key));
}

void append(Table &table, const Entry &entry) noexcept
{
    size_t slot = firstSlot(table, entry.hash);
    while (table.slots[slot] != 0)
        slot = nextSlot(table, slot);
    table.entries[table.used++] = entry;
    table.slots[slot] = static_cast<uint32_t>(table.used);
}

Table createTable(size_t capacity) noexcept
{
    if (capacity > std::numeric_limits<uint32_t>::max() / kSlotsPerEntry)
        return {};
    const size_t slots = capacity * kSlotsPerEntry;
    void *block = std::calloc(1, capacity * sizeof(Entry) + slots * sizeof(uint32_t));
    if (block == nullptr)
        return {};
    auto *entries = static_cast<Entry *>(block);
    return {entries, reinterpret_cast<uint32_t *>(entries + capacity), capacity, 0};
}

std::span<const Entry> entriesOf(const Table &table) noexcept
{
    return {table.entries, table.used};
}

// Makes a block for `capacity` entries, a power of two, with the live entries. Returns false without memory.
bool rebuild(__CFDictionary &dictionary, size_t capacity) noexcept
{
    Table table = createTable(capacity);
    if (table.entries == nullptr)
        return false;
    for (const Entry &entry : entriesOf(dictionary.table))
    {
        if (entry.hash != 0)
            append(table, entry);
    }
    std::free(std::exchange(dictionary.table, table).entries);
    return true;
}

// If half of the entries are dead, dropping them makes the room.
bool makeRoom(__CFDictionary &dictionary) noexcept
{
    const Table &table = dictionary.table;
    if (table.used < table.capacity)
        return true;
    if (table.capacity == 0)
        return rebuild(dictionary, kFirstCapacity);
    return rebuild(dictionary, dictionary.count > table.capacity / 2 ? table.capacity * 2 : table.capacity);
}

// Adds a key that does not exist yet. Without memory no object is retained.
void add(__CFDictionary &dictionary, const void *key, const void *value, CFHashCode hash) noexcept
{
    if (!makeRoom(dictionary))
        return;
    append(dictionary.table,
           {retained(dictionary.keyCallBacks, key), retained(dictionary.valueCallBacks, value), hash});
    ++dictionary.count;
}

// The dictionary is empty before any callback runs: a callback may read it or fill it again.
void clear(__CFDictionary &dictionary) noexcept
{
    const Table table = std::exchange(dictionary.table, {});
    dictionary.count = 0;
    for (const Entry &entry : entriesOf(table))
    {
        if (entry.hash == 0)
            continue;
        release(dictionary.keyCallBacks, entry.key);
        release(dictionary.valueCallBacks, entry.value);
    }
    std::free(table.entries);
}

void finalizeDictionary(kiv::cf::Object &object)
{
    clear(static_cast<__CFDictionary &>(object));
}

bool equalDictionaries(const kiv::cf::Object &leftObject, const kiv::cf::Object &rightObject)
{
    const auto &left = static_cast<const __CFDictionary &>(leftObject);
    const auto &right = static_cast<const __CFDictionary &>(rightObject);
    const auto isInRight = [&](const Entry &entry)
    {
        if (entry.hash == 0)
            return true;
        const Entry *other = find(&right, entry.key);
        return other != nullptr && areEqual(left.valueCallBacks, entry.value, other->value);
    };
    const std::span<const Entry> entries = entriesOf(left.table);
    return left.count == right.count && std::all_of(entries.begin(), entries.end(), isInRight);
}

CFHashCode hashDictionary(const kiv::cf::Object &object)
{
    return static_cast<const __CFDictionary &>(object).count;
}

constexpr kiv::cf::Type kDictionaryType{kiv::cf::kTypeDictionary, finalizeDictionary, equalDictionaries,
                                        hashDictionary, true};
} // namespace

const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {0,       retainObject, releaseObject,
                                                                nullptr, CFEqual,      CFHash};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {0, retainObject, releaseObject, nullptr,
                                                                    CFEqual};

__CFDictionary::__CFDictionary(const CFDictionaryKeyCallBacks &forKeys,
                               const CFDictionaryValueCallBacks &forValues) noexcept
    : Object{kDictionaryType}, keyCallBacks{forKeys}, valueCallBacks{forValues}
{
}

CFTypeID CFDictionaryGetTypeID(void)
{
    return kiv::cf::kTypeDictionary;
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void **keys, const void **values,
                                   CFIndex numValues, const CFDictionaryKeyCallBacks *keyCallBacks,
                                   const CFDictionaryValueCallBacks *valueCallBacks)
{
    if (numValues < 0 || (numValues > 0 && (keys == nullptr || values == nullptr)))
        return nullptr;
    const CFMutableDictionaryRef dictionary =
        CFDictionaryCreateMutable(allocator, numValues, keyCallBacks, valueCallBacks);
    if (dictionary == nullptr)
        return nullptr;
    for (CFIndex index = 0; index < numValues; ++index)
    {
        CFDictionaryAddValue(dictionary, keys[index], values[index]);
        if (CFDictionaryContainsKey(dictionary, keys[index]) != 0)
            continue;
        CFRelease(dictionary);
        return nullptr;
    }
    dictionary->isMutable = false;
    return dictionary;
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex,
                                                 const CFDictionaryKeyCallBacks *keyCallBacks,
                                                 const CFDictionaryValueCallBacks *valueCallBacks)
{
    return kiv::cf::create<__CFDictionary>(
        0, keyCallBacks != nullptr ? *keyCallBacks : CFDictionaryKeyCallBacks{},
        valueCallBacks != nullptr ? *valueCallBacks : CFDictionaryValueCallBacks{});
}

CFIndex CFDictionaryGetCount(CFDictionaryRef theDict)
{
    return static_cast<CFIndex>(theDict->count);
}

Boolean CFDictionaryContainsKey(CFDictionaryRef theDict, const void *key)
{
    return find(theDict, key) != nullptr;
}

const void *CFDictionaryGetValue(CFDictionaryRef theDict, const void *key)
{
    const Entry *entry = find(theDict, key);
    return entry != nullptr ? entry->value : nullptr;
}

Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef theDict, const void *key, const void **value)
{
    const Entry *entry = find(theDict, key);
    if (entry != nullptr && value != nullptr)
        *value = entry->value;
    return entry != nullptr;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef theDict, const void **keys, const void **values)
{
    for (const Entry &entry : entriesOf(theDict->table))
    {
        if (entry.hash == 0)
            continue;
        if (keys != nullptr)
            *keys++ = entry.key;
        if (values != nullptr)
            *values++ = entry.value;
    }
}

void CFDictionaryAddValue(CFMutableDictionaryRef theDict, const void *key, const void *value)
{
    const CFHashCode hash = hashOf(*theDict, key);
    if (theDict->isMutable && find(*theDict, key, hash) == nullptr)
        add(*theDict, key, value, hash);
}

void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void *key, const void *value)
{
    if (!theDict->isMutable)
        return;
    const CFHashCode hash = hashOf(*theDict, key);
    Entry *entry = find(*theDict, key, hash);
    if (entry == nullptr)
    {
        add(*theDict, key, value, hash);
        return;
    }
    // Release the old value last: it may be the only owner of the new one.
    const void *old = std::exchange(entry->value, retained(theDict->valueCallBacks, value));
    release(theDict->valueCallBacks, old);
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef theDict, const void *key)
{
    if (!theDict->isMutable)
        return;
    Entry *entry = find(*theDict, key, hashOf(*theDict, key));
    if (entry == nullptr)
        return;
    const Entry removed = std::exchange(*entry, Entry{});
    --theDict->count;
    release(theDict->keyCallBacks, removed.key);
    release(theDict->valueCallBacks, removed.value);
}

void CFDictionaryRemoveAllValues(CFMutableDictionaryRef theDict)
{
    if (theDict->isMutable)
        clear(*theDict);
}
