// One reference to a system object, released at the end of the scope.
#ifndef KIV_PRIVATE_SUPPORT_CFREF_H
#define KIV_PRIVATE_SUPPORT_CFREF_H

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace kiv
{
template <class Ref>
class CFRef
{
public:
    CFRef() = default;
    // Takes over a reference that a create or copy call returned; null is allowed.
    explicit CFRef(Ref object) : m_object{object} {}
    CFRef(CFRef &&other) noexcept : m_object{other.release()} {}
    CFRef &operator=(CFRef &&other) noexcept
    {
        CFRef{std::move(other)}.swap(*this);
        return *this;
    }
    ~CFRef()
    {
        if (m_object != nullptr)
            CFRelease(m_object);
    }

    void swap(CFRef &other) noexcept
    {
        std::swap(m_object, other.m_object);
    }
    [[nodiscard]] Ref get() const
    {
        return m_object;
    }
    // Passes the reference to the caller.
    [[nodiscard]] Ref release()
    {
        return std::exchange(m_object, nullptr);
    }
    explicit operator bool() const
    {
        return m_object != nullptr;
    }

private:
    Ref m_object{};
};
} // namespace kiv

#endif
