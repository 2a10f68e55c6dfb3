// Services, their iterators and connections, named by numbers; all lead to the only driver.
#include <IOKit/IOKitLib.h>

#include "IOKit/AppleSMC.h"

#include <KIVPlatform/KIVPAppleSMC.h>

#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <new>
#include <optional>

namespace
{
using kiv::iokit::AppleSMC;
using kiv::iokit::Driver;

constexpr mach_port_t kMasterPort = 2;
constexpr io_object_t kFirstObject = 0x100;
constexpr uint32_t kStructMethod = 2; // the only method of the controller

enum class Kind
{
    Iterator,
    Service,
    Connection,
};

// An object holds the controller that was set when the services were matched.
struct Object
{
    Kind kind;
    io_object_t name = IO_OBJECT_NULL;
    bool left = false; // for an iterator: the service is still to come
    std::optional<KIVPSMCController> controller{};
    Driver driver{};
    std::unique_ptr<AppleSMC> connection{}; // connection to the driver
    std::unique_ptr<Object> next{};
};

constinit std::mutex g_lock;
constinit std::unique_ptr<Object> g_objects;
constinit io_object_t g_lastName = kFirstObject;
constinit std::optional<KIVPSMCController> g_controller;
constinit Driver g_driver{};

// The functions below are called with the lock held.

Object *find(io_object_t name, Kind kind) noexcept
{
    Object *object = g_objects.get();
    while (object != nullptr && (object->name != name || object->kind != kind))
        object = object->next.get();
    return object;
}

bool isTaken(io_object_t name) noexcept
{
    for (const Object *object = g_objects.get(); object != nullptr; object = object->next.get())
        if (object->name == name)
            return true;
    return false;
}

io_object_t publish(std::unique_ptr<Object> object) noexcept
{
    do
        g_lastName = std::max(g_lastName + 1, kFirstObject);
    while (isTaken(g_lastName));
    object->name = g_lastName;
    object->next = std::move(g_objects);
    g_objects = std::move(object);
    return g_lastName;
}

// Removes an object, so that it can be destroyed outside the lock.
std::unique_ptr<Object> remove(io_object_t name, bool connection) noexcept
{
    for (std::unique_ptr<Object> *place = &g_objects; *place; place = &(*place)->next)
    {
        if ((*place)->name != name || ((*place)->kind == Kind::Connection) != connection)
            continue;
        std::unique_ptr<Object> object = std::move(*place);
        *place = std::move(object->next);
        return object;
    }
    return nullptr;
}

kern_return_t giveBack(io_object_t name, bool connection) noexcept
{
    std::unique_ptr<Object> object;
    {
        const std::lock_guard lock{g_lock};
        object = remove(name, connection);
    }
    return object ? kIOReturnSuccess : kIOReturnBadArgument;
}

class Text
{
public:
    explicit Text(const char *text) noexcept
        : m_text{CFStringCreateWithCString(nullptr, text, kCFStringEncodingUTF8)}
    {
    }
    Text(const Text &) = delete;
    Text &operator=(const Text &) = delete;
    ~Text()
    {
        if (m_text != nullptr)
            CFRelease(m_text);
    }
    [[nodiscard]] CFStringRef get() const noexcept
    {
        return m_text;
    }

private:
    CFStringRef m_text;
};

// Returns whether the class is the controller's; empty if there is no memory.
std::optional<bool> namesController(CFDictionaryRef matching) noexcept
{
    const Text key{kIOProviderClassKey};
    const Text name{"AppleSMC"};
    if (key.get() == nullptr || name.get() == nullptr)
        return std::nullopt;
    const void *value = CFDictionaryGetValue(matching, key.get());
    return value != nullptr && CFEqual(value, name.get()) != 0;
}
} // namespace

kern_return_t IOMasterPort(mach_port_t, mach_port_t *masterPort)
{
    const std::lock_guard lock{g_lock};
    if (g_controller && g_controller->masterPort != KERN_SUCCESS)
        return g_controller->masterPort;
    *masterPort = kMasterPort;
    return KERN_SUCCESS;
}

CFMutableDictionaryRef IOServiceMatching(const char *name)
{
    const Text key{kIOProviderClassKey};
    const Text value{name};
    if (key.get() == nullptr || value.get() == nullptr)
        return nullptr;
    CFMutableDictionaryRef matching = CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                                &kCFTypeDictionaryValueCallBacks);
    if (matching == nullptr)
        return nullptr;
    CFDictionarySetValue(matching, key.get(), value.get());
    if (CFDictionaryGetCount(matching) == 1)
        return matching;
    CFRelease(matching);
    return nullptr;
}

kern_return_t IOServiceGetMatchingServices(mach_port_t, CFDictionaryRef matching, io_iterator_t *existing)
{
    if (matching == nullptr)
        return kIOReturnBadArgument;
    const std::optional<bool> wanted = namesController(matching);
    CFRelease(matching);

    const std::lock_guard lock{g_lock};
    if (g_controller && g_controller->matching != KERN_SUCCESS)
        return g_controller->matching;
    std::unique_ptr<Object> iterator{new (std::nothrow) Object{Kind::Iterator}};
    if (!wanted || !iterator)
        return kIOReturnNoMemory;
    iterator->controller = g_controller;
    iterator->driver = g_driver;
    iterator->left = *wanted && (g_controller || AppleSMC::isThere(g_driver));
    *existing = publish(std::move(iterator));
    return kIOReturnSuccess;
}

io_object_t IOIteratorNext(io_iterator_t iterator)
{
    const std::lock_guard lock{g_lock};
    Object *const from = find(iterator, Kind::Iterator);
    if (from == nullptr || !from->left)
        return IO_OBJECT_NULL;
    std::unique_ptr<Object> service{new (std::nothrow) Object{Kind::Service}};
    if (!service)
        return IO_OBJECT_NULL;
    from->left = false;
    service->controller = from->controller;
    service->driver = from->driver;
    return publish(std::move(service));
}

kern_return_t IOObjectRelease(io_object_t object)
{
    return giveBack(object, false);
}

kern_return_t IOServiceOpen(io_service_t service, task_port_t, uint32_t, io_connect_t *connect)
{
    const std::lock_guard lock{g_lock};
    const Object *const from = find(service, Kind::Service);
    if (from == nullptr)
        return kIOReturnBadArgument;
    std::unique_ptr<Object> made{new (std::nothrow) Object{Kind::Connection}};
    if (!made)
        return kIOReturnNoMemory;
    made->controller = from->controller;
    const IOReturn result =
        from->controller ? from->controller->open : AppleSMC::open(from->driver, made->connection);
    if (result == kIOReturnSuccess)
        *connect = publish(std::move(made));
    return result;
}

kern_return_t IOServiceClose(io_connect_t connect)
{
    return giveBack(connect, true);
}

kern_return_t IOConnectCallStructMethod(mach_port_t connection, uint32_t selector, const void *inputStruct,
                                        size_t inputStructCnt, void *outputStruct, size_t *outputStructCnt)
{
    std::optional<KIVPSMCController> controller;
    AppleSMC *driver = nullptr;
    {
        const std::lock_guard lock{g_lock};
        const Object *const object = find(connection, Kind::Connection);
        if (object == nullptr)
            return kIOReturnBadArgument;
        controller = object->controller;
        driver = object->connection.get();
    }
    if (controller)
        return controller->method(controller->context, selector, inputStruct, inputStructCnt, outputStruct,
                                  outputStructCnt);
    if (selector != kStructMethod || inputStructCnt != AppleSMC::kCallSize ||
        *outputStructCnt != AppleSMC::kCallSize)
        return kIOReturnBadArgument;
    return driver->call(static_cast<const uint8_t *>(inputStruct), static_cast<uint8_t *>(outputStruct));
}

void KIVPSetSMCController(const KIVPSMCController *controller)
{
    const std::lock_guard lock{g_lock};
    g_controller = controller != nullptr ? std::optional{*controller} : std::nullopt;
}

void KIVPSetSMCFolder(const char *folder, void (*indexWritten)(const char *folder))
{
    const std::lock_guard lock{g_lock};
    g_driver = {folder, indexWritten};
}

size_t KIVPCountIOObjects(void)
{
    const std::lock_guard lock{g_lock};
    size_t count = 0;
    for (const Object *object = g_objects.get(); object != nullptr; object = object->next.get())
        ++count;
    return count;
}
