// Reference counts, kinds, equality and hashes of all objects.
#include <CoreFoundation/CFBase.h>

#include "CoreFoundation/Object.h"

namespace
{
const kiv::cf::Object &asObject(CFTypeRef cf) noexcept
{
    return *static_cast<const kiv::cf::Object *>(cf);
}

// Nested containers end recursively only to this depth. Deeper ones wait in a list until the outermost is
// done, so that no nesting overflows the stack.
constexpr unsigned kEndingsInside = 64;
constinit thread_local unsigned endingsInside = 0;
constinit thread_local kiv::cf::Object *waiting = nullptr; // linked through their counts, unused by then
static_assert(sizeof(kiv::cf::Object *) == sizeof(CFIndex));

void end(kiv::cf::Object &object) noexcept
{
    if (object.type->finalize != nullptr)
        object.type->finalize(object);
    std::free(&object);
}

void endContainer(kiv::cf::Object &object) noexcept
{
    if (endingsInside == kEndingsInside)
    {
        object.references.store(reinterpret_cast<CFIndex>(waiting), std::memory_order_relaxed);
        waiting = &object;
        return;
    }
    ++endingsInside;
    end(object);
    while (endingsInside == 1 && waiting != nullptr)
    {
        kiv::cf::Object &next = *waiting;
        waiting = reinterpret_cast<kiv::cf::Object *>(next.references.load(std::memory_order_relaxed));
        end(next);
    }
    --endingsInside;
}
} // namespace

const CFAllocatorRef kCFAllocatorDefault = nullptr;

CFTypeRef CFRetain(CFTypeRef cf)
{
    asObject(cf).references.fetch_add(1, std::memory_order_relaxed);
    return cf;
}

void CFRelease(CFTypeRef cf)
{
    // Release, so that the last owner sees the writes of the others; acquire for that last owner.
    if (asObject(cf).references.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    // The reference is const, the object is not: every object that ends is on the heap.
    auto &object = const_cast<kiv::cf::Object &>(asObject(cf));
    if (object.type->nests)
        endContainer(object);
    else
        end(object);
}

CFIndex CFGetRetainCount(CFTypeRef cf)
{
    return asObject(cf).references.load(std::memory_order_relaxed);
}

CFTypeID CFGetTypeID(CFTypeRef cf)
{
    return asObject(cf).type->id;
}

Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2)
{
    if (cf1 == cf2)
        return true;
    const kiv::cf::Object &left = asObject(cf1);
    const kiv::cf::Object &right = asObject(cf2);
    return left.type == right.type && left.type->equal != nullptr && left.type->equal(left, right);
}

CFHashCode CFHash(CFTypeRef cf)
{
    const kiv::cf::Object &object = asObject(cf);
    return object.type->hash != nullptr ? object.type->hash(object) : reinterpret_cast<CFHashCode>(cf);
}
