// Multi-buffers: growable buffers handed out round-robin and returned by their data pointers.
#include "KIVCS2MultiBuffer.h"

#include "Private/Support/Check.h"
#include "Private/Support/HeapLimit.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

namespace
{
constexpr uint32_t kIdleBlock = 4; // bytes that a compacted entry keeps
constexpr int32_t kNoIndex = -1;

bool isThreadSafe(const KIVCS2MultiBuffer &buffer)
{
    return (buffer.m_flags & KIVCS2MultiBufferFlags_ThreadSafe) != 0;
}

bool isFree(const KIVCS2BufferEntry &entry)
{
    return entry.m_link.m_list == nullptr;
}

// Holds the lock for a scope. Check status() before touching the record; end with unlock() if its status is
// the operation's.
class Hold
{
public:
    explicit Hold(KIVCS2MultiBuffer *buffer) : m_buffer{buffer}, m_status{kivCS2MultiBuffer_lock(buffer)} {}
    ~Hold()
    {
        if (m_buffer != nullptr && KIVCS2_SUCCEEDED(m_status))
            (void)kivCS2MultiBuffer_unlock(m_buffer); // the operation has a status of its own
    }
    Hold(const Hold &) = delete;
    Hold &operator=(const Hold &) = delete;

    [[nodiscard]] KIVCS2Status status() const
    {
        return m_status;
    }
    [[nodiscard]] KIVCS2Status unlock()
    {
        KIVCS2MultiBuffer *buffer = keepLocked();
        return kivCS2MultiBuffer_unlock(buffer);
    }
    KIVCS2MultiBuffer *keepLocked()
    {
        return std::exchange(m_buffer, nullptr);
    }

private:
    KIVCS2MultiBuffer *m_buffer; // null once the scope has released the lock
    KIVCS2Status m_status;
};

// Entries of an array that is not in a multi-buffer yet: released with their blocks unless taken over.
class NewEntries
{
public:
    NewEntries() = default;
    ~NewEntries()
    {
        for (uint32_t index = m_first; index < m_end; ++index)
            (void)kivCS2BufferEntry_free(&m_entries[index]); // not null: cannot fail
        std::free(m_entries);
    }
    NewEntries(const NewEntries &) = delete;
    NewEntries &operator=(const NewEntries &) = delete;

    // Makes room for `count` entries, of which those from `first` on become free entries.
    [[nodiscard]] KIVCS2Status make(uint32_t count, uint32_t first)
    {
        // Every block takes at least two words of the heap; the kernel would end the process if it had
        // granted memory that it cannot back.
        constexpr uint64_t kBytesPerEntry = sizeof(KIVCS2BufferEntry) + 32;
        if (count > uint32_t{std::numeric_limits<int32_t>::max()} || !kiv::fitsMemory(count * kBytesPerEntry))
            return KIVCS2STATUS_MEMORY_ERR;
        // An array of no entries is allocated too, so that null always means that there was no room.
        m_entries = static_cast<KIVCS2BufferEntry *>(
            kivCS2ZeroMalloc(sizeof(KIVCS2BufferEntry) * std::max<size_t>(count, 1)));
        if (m_entries == nullptr)
            return KIVCS2STATUS_MEMORY_ERR;
        for (m_first = m_end = first; m_end < count; ++m_end)
            KIV_TRY(kivCS2BufferEntry_init(&m_entries[m_end]));
        return KIVCS2STATUS_OK;
    }
    KIVCS2BufferEntry *release()
    {
        m_end = m_first;
        return std::exchange(m_entries, nullptr);
    }

private:
    KIVCS2BufferEntry *m_entries = nullptr;
    uint32_t m_first = 0; // the entries before it belong to another array
    uint32_t m_end = 0;
};

// The range may leave the table, on either side and by any distance.
[[nodiscard]] KIVCS2Status handOutFirstFree(KIVCS2MultiBuffer &buffer, uint32_t size, int64_t first,
                                            int64_t last, void **data)
{
    const int64_t end = std::min<int64_t>(last + 1, buffer.m_count);
    for (int64_t index = std::max<int64_t>(first, 0); index < end; ++index)
    {
        KIVCS2BufferEntry &entry = buffer.m_buffers[index];
        if (!isFree(entry))
            continue;
        KIV_TRY(kivCS2MemPtr_realloc(&entry.m_mem_ptr, size));
        *data = entry.m_mem_ptr.m_buffer;
        buffer.m_lastIndex = static_cast<int32_t>(index);
        kivCS2LinkList_appendElem(&buffer.m_usedList, &entry.m_link);
        return KIVCS2STATUS_OK;
    }
    buffer.m_lastIndex = kNoIndex; // Kept: the next search starts at 0.
    return KIVCS2STATUS_NO_BUFFER_ERR;
}
} // namespace

// ---- Entries ----

KIVCS2Status kivCS2BufferEntry_init(KIVCS2BufferEntry *_entry)
{
    KIV_CHECK((_entry) != NULL);

    _entry->m_link = {};
    return kivCS2MemPtr_init(&_entry->m_mem_ptr, 0);
}

KIVCS2Status kivCS2BufferEntry_free(KIVCS2BufferEntry *_entry)
{
    KIV_CHECK((_entry) != NULL);

    kivCS2LinkElem_unlink(&_entry->m_link);
    const KIVCS2Status status = kivCS2MemPtr_free(&_entry->m_mem_ptr);
    return KIVCS2_FAILED(status) ? KIVCS2STATUS_PARAM_ERR : KIVCS2STATUS_OK;
}

// ---- Making and releasing ----

KIVCS2Status kivCS2MultiBuffer_init(KIVCS2MultiBuffer *_buffer, uint32_t count, KIVCS2MultiBufferFlags flags)
{
    KIV_CHECK((_buffer) != NULL);

    // No other thread knows the record yet, so its contents can be made before there is a lock.
    *_buffer = {};
    NewEntries entries;
    KIV_TRY(entries.make(count, 0));
    if ((flags & KIVCS2MultiBufferFlags_ThreadSafe) != 0)
        KIV_TRY(kivCS2Mutex_init(&_buffer->m_mutex, KIVCS2MutexOptions_Recursive));
    _buffer->m_flags = flags;
    _buffer->m_lastIndex = kNoIndex;
    _buffer->m_count = count;
    _buffer->m_buffers = entries.release();
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MultiBuffer_free(KIVCS2MultiBuffer *_buffer)
{
    KIV_CHECK((_buffer) != NULL);

    Hold hold{_buffer};
    KIV_TRY(hold.status());
    for (uint32_t index = 0; index < _buffer->m_count; ++index)
    {
        const KIVCS2Status status = kivCS2BufferEntry_free(&_buffer->m_buffers[index]);
        if (KIVCS2_FAILED(status))
        {
            (void)hold.keepLocked(); // Kept: no thread can reach the half released record.
            return status;
        }
    }
    kivCS2LinkList_free(&_buffer->m_usedList);
    std::free(_buffer->m_buffers);
    const KIVCS2Status status = hold.unlock();
    if (isThreadSafe(*_buffer))
        (void)kivCS2Mutex_free(&_buffer->m_mutex); // not null: cannot fail
    *_buffer = {};
    return status;
}

// ---- The lock ----

KIVCS2Status kivCS2MultiBuffer_lock(KIVCS2MultiBuffer *_buffer)
{
    if (_buffer == nullptr)
        return KIVCS2STATUS_PARAM_ERR;

    return isThreadSafe(*_buffer) ? kivCS2Mutex_lock(&_buffer->m_mutex) : KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MultiBuffer_unlock(KIVCS2MultiBuffer *_buffer)
{
    if (_buffer == nullptr)
        return KIVCS2STATUS_PARAM_ERR;

    return isThreadSafe(*_buffer) ? kivCS2Mutex_unlock(&_buffer->m_mutex) : KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MultiBuffer_waitUnlock(KIVCS2MultiBuffer *_buffer)
{
    KIV_CHECK((_buffer) != NULL);

    const Hold hold{_buffer}; // releases it at once
    return KIVCS2STATUS_OK;
}

// ---- Handing out and taking back ----

KIVCS2Status kivCS2MultiBuffer_allocateBuffer(KIVCS2MultiBuffer *_buffer, uint32_t size, void **_mem_ptr)
{
    KIV_CHECK((_buffer) != NULL);
    KIV_CHECK((_mem_ptr) != NULL);

    Hold hold{_buffer};
    KIV_TRY(hold.status());
    int64_t start = 0;
    if (_buffer->m_lastIndex != kNoIndex)
    {
        start = int64_t{_buffer->m_lastIndex} + 1;
        if (start >= _buffer->m_count)
            start = 0;
        // Kept: a search that fails for memory has also moved on, unless it started at 0 or wrapped around.
        _buffer->m_lastIndex = start > 0 ? static_cast<int32_t>(start) : kNoIndex;
    }
    KIVCS2Status status = handOutFirstFree(*_buffer, size, start, int64_t{_buffer->m_count} - 1, _mem_ptr);
    if (status == KIVCS2STATUS_NO_BUFFER_ERR && start >= 1)
        status = handOutFirstFree(*_buffer, size, 0, start - 1, _mem_ptr);
    return status;
}

KIVCS2Status kivCS2MultiBuffer_allocateAvailableBuffer(KIVCS2MultiBuffer *_buffer, uint32_t size,
                                                       int32_t _s_idx, int32_t _e_idx, void **_mem_ptr)
{
    KIV_CHECK((_buffer) != NULL);
    KIV_CHECK((_mem_ptr) != NULL);
    KIV_ASSERT(_s_idx <= _e_idx);
    KIV_ASSERT_TEXT(_s_idx >= 0 && int64_t{_s_idx} < _buffer->m_count,
                    "(_s_idx >=0) && (_s_idx < _buffer->m_count)");
    KIV_ASSERT_TEXT(_e_idx >= 0 && int64_t{_e_idx} < _buffer->m_count,
                    "(_e_idx >=0) && (_e_idx < _buffer->m_count)");

    return handOutFirstFree(*_buffer, size, _s_idx, _e_idx, _mem_ptr);
}

KIVCS2Status kivCS2MultiBuffer_releaseBuffer(KIVCS2MultiBuffer *_buffer, const void *_mem_ptr,
                                             int32_t *_index)
{
    KIV_CHECK((_buffer) != NULL);
    KIV_CHECK((_mem_ptr) != NULL);

    // Locked across both steps: a resize by another thread between them would remove the entry.
    Hold hold{_buffer};
    KIV_TRY(hold.status());
    KIVCS2BufferEntry *buf = nullptr;
    KIV_TRY(kivCS2MultiBuffer_findEntryByMemPtr(_buffer, _mem_ptr, _index, &buf));
    KIV_ASSERT(buf->m_mem_ptr.m_buffer);
    // Kept: without assertions the release of a free entry is a success that changes nothing.
    KIV_ASSERT_TEXT(!isFree(*buf), "((buf)->m_link.m_list != ((void*)0))");
    kivCS2LinkList_removeElem(&_buffer->m_usedList, &buf->m_link);
    return hold.unlock();
}

// ---- Looking ----

KIVCS2Status kivCS2MultiBuffer_getHeadEntry(KIVCS2MultiBuffer *_buffer, KIVCS2BufferEntry **_entry,
                                            int32_t remove)
{
    KIV_CHECK((_buffer) != NULL);
    KIV_CHECK((_entry) != NULL);

    Hold hold{_buffer};
    KIV_TRY(hold.status());
    KIVCS2LinkElem *head = _buffer->m_usedList.m_next;
    if (head == nullptr)
        return KIVCS2STATUS_NO_ENTRY_ERR;
    *_entry = reinterpret_cast<KIVCS2BufferEntry *>(head); // the link is the entry's first member
    if (remove == 1)
        kivCS2LinkList_removeElem(&_buffer->m_usedList, head);
    return hold.unlock();
}

KIVCS2Status kivCS2MultiBuffer_findEntryByMemPtr(KIVCS2MultiBuffer *_buffer, const void *_mem_ptr,
                                                 int32_t *_index, KIVCS2BufferEntry **_entry)
{
    KIV_CHECK((_buffer) != NULL);
    KIV_CHECK((_mem_ptr) != NULL);
    KIV_CHECK((_entry) != NULL);

    Hold hold{_buffer};
    KIV_TRY(hold.status());
    for (uint32_t i = 0; i < _buffer->m_count; ++i)
    {
        KIV_ASSERT(_buffer->m_buffers[i].m_mem_ptr.m_buffer);
        if (_buffer->m_buffers[i].m_mem_ptr.m_buffer != _mem_ptr)
            continue;
        if (_index != nullptr)
            *_index = static_cast<int32_t>(i);
        *_entry = &_buffer->m_buffers[i];
        return hold.unlock();
    }
    return KIVCS2STATUS_NO_ENTRY_ERR;
}

KIVCS2Status kivCS2MultiBuffer_getUsedCount(KIVCS2MultiBuffer *_buffer, uint32_t *_usedCount)
{
    KIV_CHECK((_buffer) != NULL);
    KIV_CHECK((_usedCount) != NULL);

    Hold hold{_buffer};
    KIV_TRY(hold.status());
    *_usedCount = _buffer->m_usedList.m_count;
    return hold.unlock();
}

KIVCS2Status kivCS2MultiBuffer_getUsage(KIVCS2MultiBuffer *_buffer, double *_usage)
{
    KIV_CHECK((_buffer) != NULL);
    KIV_CHECK((_usage) != NULL);

    *_usage = 0.0;
    const Hold hold{_buffer};
    // Kept: a count that cannot be read is a usage of 0.0, with success.
    if (KIVCS2_SUCCEEDED(hold.status()) && _buffer->m_count != 0)
        *_usage = static_cast<double>(_buffer->m_usedList.m_count) / _buffer->m_count;
    return KIVCS2STATUS_OK;
}

// ---- Memory ----

KIVCS2Status kivCS2MultiBuffer_compact(KIVCS2MultiBuffer *_buffer)
{
    KIV_CHECK((_buffer) != NULL);

    Hold hold{_buffer};
    KIV_TRY(hold.status());
    for (uint32_t index = 0; index < _buffer->m_count; ++index)
        if (KIVCS2BufferEntry &entry = _buffer->m_buffers[index]; isFree(entry))
            if (KIVCS2_FAILED(kivCS2MemPtr_forceRealloc(&entry.m_mem_ptr, kIdleBlock)))
                return KIVCS2STATUS_MEMORY_ERR;
    return hold.unlock();
}

KIVCS2Status kivCS2MultiBuffer_resize(KIVCS2MultiBuffer *_buffer, uint32_t newCount)
{
    KIV_CHECK((_buffer) != NULL);

    Hold hold{_buffer};
    KIV_TRY(hold.status());
    const uint32_t oldCount = _buffer->m_count;
    if (newCount == oldCount)
        return hold.unlock();

    // The record is touched only after all steps that can fail.
    for (uint32_t index = newCount; index < oldCount; ++index)
        if (!isFree(_buffer->m_buffers[index]))
            return KIVCS2STATUS_STATE_ERR;
    NewEntries entries;
    const uint32_t kept = std::min(oldCount, newCount);
    KIV_TRY(entries.make(newCount, kept));

    KIVCS2BufferEntry *const oldBuffers = _buffer->m_buffers;
    _buffer->m_buffers = entries.release();
    _buffer->m_usedList = {};
    for (uint32_t index = 0; index < kept; ++index)
    {
        KIVCS2BufferEntry &entry = _buffer->m_buffers[index];
        entry.m_mem_ptr = oldBuffers[index].m_mem_ptr;
        // Kept: from here on the used list is in the order of the indices.
        if (!isFree(oldBuffers[index]))
            kivCS2LinkList_appendElem(&_buffer->m_usedList, &entry.m_link);
    }
    for (uint32_t index = kept; index < oldCount; ++index)
        (void)kivCS2BufferEntry_free(&oldBuffers[index]); // not null: cannot fail
    std::free(oldBuffers);
    _buffer->m_count = newCount;
    _buffer->m_lastIndex = kNoIndex;
    return hold.unlock();
}
