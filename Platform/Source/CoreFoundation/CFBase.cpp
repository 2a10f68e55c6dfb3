// Reference counts, kinds, equality and hashes of all objects.
#include <CoreFoundation/CFBase.h>

#include "CoreFoundation/Object.h"

namespace
{
const kiv::cf::Object &asObject(CFTypeRef cf) noexcept
{
    return *static_cast<const kiv::cf::Object *>(cf);
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
    // Release, so that the last owner sees what the others wrote; acquire, for that last owner.
    if (asObject(cf).references.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    // Whoever gave the object away as const did not make it so: every object is on the heap.
    auto &object = const_cast<kiv::cf::Object &>(asObject(cf));
    if (object.type->finalize != nullptr)
        object.type->finalize(object);
    std::free(&object);
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
