#include "FailingAllocator.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <execinfo.h>
#include <fcntl.h>
#include <new>
#include <unistd.h>

extern "C" const char __executable_start; // of the linker

namespace
{
constexpr size_t kNever = static_cast<size_t>(-1);

std::atomic<size_t> g_remaining{kNever};
std::atomic<bool> g_failed{false};
std::atomic<size_t> g_bytes{0};

// Appends the callers of an allocation that fails, as places in this program, to the file that
// Scripts/allocation-sites reads.
void recordCallers()
{
    static const char *const path = std::getenv("KIV_ALLOCATION_SITES");
    const int file = path != nullptr ? open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644) : -1;
    if (file < 0)
        return;
    void *callers[40];
    const int count = backtrace(callers, 40);
    for (int i = 0; i < count; ++i)
        dprintf(file, "%tx ", static_cast<const char *>(callers[i]) - &__executable_start);
    dprintf(file, "\n");
    close(file);
}

bool mustFail(size_t size)
{
    g_bytes += size;
    size_t remaining = g_remaining.load();
    while (remaining != kNever)
    {
        const size_t next = remaining == 0 ? kNever : remaining - 1;
        if (g_remaining.compare_exchange_weak(remaining, next))
        {
            if (remaining != 0)
                return false;
            g_failed.store(true);
            recordCallers();
            return true;
        }
    }
    return false;
}
} // namespace

void kiv::test::failAllocation(size_t index)
{
    g_failed.store(false);
    g_remaining.store(index);
}

void kiv::test::allowAllocations()
{
    g_remaining.store(kNever);
}

size_t kiv::test::takeAllocatedBytes()
{
    return g_bytes.exchange(0);
}

bool kiv::test::allocationFailed()
{
    return g_failed.load();
}

extern "C"
{
    void *__real_malloc(size_t size);
    void *__real_calloc(size_t count, size_t size);
    void *__real_realloc(void *block, size_t size);
    char *__real_strdup(const char *text);
    void *__wrap_malloc(size_t size);
    void *__wrap_calloc(size_t count, size_t size);
    void *__wrap_realloc(void *block, size_t size);
    char *__wrap_strdup(const char *text);

    void *__wrap_malloc(size_t size)
    {
        return mustFail(size) ? nullptr : __real_malloc(size);
    }
    void *__wrap_calloc(size_t count, size_t size)
    {
        return mustFail(count * size) ? nullptr : __real_calloc(count, size);
    }
    void *__wrap_realloc(void *block, size_t size)
    {
        return mustFail(size) ? nullptr : __real_realloc(block, size);
    }
    char *__wrap_strdup(const char *text)
    {
        return mustFail(std::strlen(text) + 1) ? nullptr : __real_strdup(text);
    }
} // extern "C"

void *operator new(size_t size)
{
    void *block = mustFail(size) ? nullptr : __real_malloc(size != 0 ? size : 1);
    if (block == nullptr)
        throw std::bad_alloc{};
    return block;
}
void *operator new[](size_t size)
{
    return operator new(size);
}
void *operator new(size_t size, const std::nothrow_t &) noexcept
{
    return mustFail(size) ? nullptr : __real_malloc(size != 0 ? size : 1);
}
void *operator new[](size_t size, const std::nothrow_t &) noexcept
{
    return mustFail(size) ? nullptr : __real_malloc(size != 0 ? size : 1);
}
void operator delete(void *block) noexcept
{
    std::free(block);
}
void operator delete[](void *block) noexcept
{
    std::free(block);
}
void operator delete(void *block, size_t) noexcept
{
    std::free(block);
}
void operator delete[](void *block, size_t) noexcept
{
    std::free(block);
}
// Called if a constructor throws.
void operator delete(void *block, const std::nothrow_t &) noexcept
{
    std::free(block);
}
void operator delete[](void *block, const std::nothrow_t &) noexcept
{
    std::free(block);
}
