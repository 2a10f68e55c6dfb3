// Common parts of both backends.
#ifndef KIV_PLATFORM_AVAHI_PIECES_H
#define KIV_PLATFORM_AVAHI_PIECES_H

#include "CFNetwork/Backend.h"
#include "CFNetwork/RecordData.h"

#include <avahi-common/defs.h>
#include <avahi-common/error.h>
#include <avahi-common/strlst.h>

#include <new>

namespace kiv::discovery
{
// TXT data in Avahi's form; invalid data give an empty list.
class TextList
{
public:
    explicit TextList(std::span<const uint8_t> data) noexcept
    {
        if (!data.empty() && avahi_string_list_parse(data.data(), data.size(), &m_list) < 0)
            m_list = nullptr;
    }
    TextList(const TextList &) = delete;
    TextList &operator=(const TextList &) = delete;
    ~TextList()
    {
        avahi_string_list_free(m_list);
    }
    [[nodiscard]] AvahiStringList *get() const noexcept
    {
        return m_list;
    }

private:
    AvahiStringList *m_list = nullptr;
};

// Frees an Avahi object by its own call.
template <class Object, class Free>
class Holder final : public Handle
{
public:
    Holder(Object *object, Free free) noexcept : m_object{object}, m_free{free} {}
    ~Holder() override
    {
        (void)m_free(m_object); // fails if the daemon is gone, but then so is its side of the object
    }

private:
    Object *m_object;
    Free m_free;
};

template <class Object, class Free>
std::unique_ptr<Handle> holding(Object *object, Free free, int &error) noexcept
{
    if (object == nullptr)
        return nullptr;
    std::unique_ptr<Handle> holder{new (std::nothrow) Holder<Object, Free>{object, free}};
    if (!holder)
    {
        (void)free(object);
        error = AVAHI_ERR_NO_MEMORY;
    }
    return holder;
}

[[nodiscard]] inline const char *domainOrNull(const char *domain) noexcept
{
    return domain[0] != '\0' ? domain : nullptr;
}

[[nodiscard]] inline AvahiLookupFlags lookupFlags(const char *name) noexcept
{
    return isLocalName(name) ? AVAHI_LOOKUP_USE_MULTICAST : AVAHI_LOOKUP_USE_WIDE_AREA;
}

// Removals have the same arguments as arrivals. `error` is called only after a failure.
template <class Error>
void tellServices(ServiceSink &sink, AvahiBrowserEvent event, Place where, const char *name,
                  Error error) noexcept
{
    switch (event)
    {
    case AVAHI_BROWSER_NEW:
    case AVAHI_BROWSER_REMOVE:
        sink.serviceSeen(event == AVAHI_BROWSER_NEW, where, name);
        break;
    case AVAHI_BROWSER_CACHE_EXHAUSTED:
        break;
    case AVAHI_BROWSER_ALL_FOR_NOW:
        sink.allServicesForNow();
        break;
    case AVAHI_BROWSER_FAILURE:
        sink.browsingFailed(error());
        break;
    }
}

template <class Error>
void tellRecords(RecordSink &sink, AvahiBrowserEvent event, Place where, std::span<const uint8_t> data,
                 Error error) noexcept
{
    switch (event)
    {
    case AVAHI_BROWSER_NEW:
    case AVAHI_BROWSER_REMOVE:
        sink.recordSeen(event == AVAHI_BROWSER_NEW, where, data);
        break;
    case AVAHI_BROWSER_CACHE_EXHAUSTED:
        sink.cacheDone();
        break;
    case AVAHI_BROWSER_ALL_FOR_NOW:
        sink.allRecordsForNow();
        break;
    case AVAHI_BROWSER_FAILURE:
        sink.recordsFailed(error());
        break;
    }
}

template <class Error>
void tellGroup(GroupSink &sink, AvahiEntryGroupState state, Error error) noexcept
{
    switch (state)
    {
    case AVAHI_ENTRY_GROUP_UNCOMMITED:
    case AVAHI_ENTRY_GROUP_REGISTERING:
        break;
    case AVAHI_ENTRY_GROUP_ESTABLISHED:
        sink.announced();
        break;
    case AVAHI_ENTRY_GROUP_COLLISION:
        sink.nameTaken();
        break;
    case AVAHI_ENTRY_GROUP_FAILURE:
        sink.groupFailed(error());
        break;
    }
}
} // namespace kiv::discovery

#endif
