// kivcs2 shm: makes, fills, reads, lists and removes System V segments.
#include "CommandLine/Numbers.h"
#include "Failure.h"
#include "Files/Files.h"
#include "Terminal/EndSignals.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCS2SharedMemory.h>

#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>

namespace tool
{
namespace
{

constexpr uint32_t kMost = std::numeric_limits<uint32_t>::max();

// The parsed number of `text`, if it fits 32 bits.
uint64_t checked(std::optional<uint64_t> number, std::string_view text, std::string_view what)
{
    if (!number || *number > kMost)
        throw Failure(kExitUsage, "\"" + visible(text) + "\" is not a valid " + std::string{what});
    return *number;
}

uint32_t parseAnyKey(std::string_view text)
{
    return static_cast<uint32_t>(checked(wholeNumber(text), text, "key of 32 bits"));
}

uint32_t parseKey(std::string_view text)
{
    const uint32_t key = parseAnyKey(text);
    if (key == 0)
        throw Failure(kExitUsage, "key 0 belongs to private segments, which no other process finds");
    return key;
}

uint64_t parseSize(std::string_view text, std::string_view what)
{
    return checked(byteNumber(text), text, what);
}

std::string keyText(uint32_t key)
{
    return print("0x%08x", key);
}

// Holds the record for its lifetime. The destructor only detaches, so the segment stays, unless it is held.
class Attachment
{
public:
    Attachment(uint32_t key, uint32_t size, bool create)
    {
        const KIVCS2Status status = kivCS2SharedMemory_init(&m_record, key, size, create);
        if (KIVCS2_FAILED(status))
            throw Failure(m_record.m_error == ENOENT ? kExitNo : kExitInputOutput,
                          "key " + keyText(key) + ": " + std::strerror(m_record.m_error) + " (" +
                              statusText(status) + ")");
        if (::shmctl(m_record.m_id, IPC_STAT, &m_segment) != 0)
            throw Failure::system("key " + keyText(key), errno);
    }
    ~Attachment()
    {
        if (m_hold)
            (void)free(); // another failure is being reported
        else if (m_record.m_address != nullptr)
            ::shmdt(m_record.m_address);
    }
    Attachment(const Attachment &) = delete;
    Attachment &operator=(const Attachment &) = delete;

    [[nodiscard]] std::span<uint8_t> bytes() const
    {
        return {static_cast<uint8_t *>(m_record.m_address), m_segment.shm_segsz};
    }

    // From here on the segment belongs to this command, however it ends.
    void hold()
    {
        m_hold = true;
    }

    // Frees through the library, which does not report a segment that stays: 0 if it is gone, EBUSY while
    // others are attached, EPERM if another user made it.
    int free()
    {
        m_hold = false;
        const int id = m_record.m_id;
        (void)kivCS2SharedMemory_free(&m_record); // not null: cannot fail
        if (::shmctl(id, IPC_STAT, &m_segment) != 0)
            return 0;
        if (m_segment.shm_nattch != 0)
            return EBUSY;
        return ::shmctl(id, IPC_RMID, nullptr) != 0 && errno == EPERM ? EPERM : 0;
    }

private:
    KIVCS2SharedMemory m_record{};
    shmid_ds m_segment{};
    bool m_hold = false;
};

// Returns true if the segment is gone, false while others are attached.
bool freeOrFail(Attachment &attachment, uint32_t key)
{
    const int error = attachment.free();
    if (error == EPERM)
        throw Failure::system("key " + keyText(key) + ": the segment stays", error);
    return error == 0;
}

struct Segment
{
    uint32_t key;
    int id;
    uint64_t size;
    uint64_t attached;
    pid_t creator;
    uint32_t mode;
    bool removed; // waits for its last user and has no key
};

Segment describe(int id, const shmid_ds &segment)
{
    return {static_cast<uint32_t>(segment.shm_perm.__key),
            id,
            segment.shm_segsz,
            segment.shm_nattch,
            segment.shm_cpid,
            segment.shm_perm.mode & 0777u,
            (segment.shm_perm.mode & SHM_DEST) != 0};
}

// Does not attach, because a reader of the list must not count as a user.
std::optional<Segment> findSegment(uint32_t key)
{
    const int id = ::shmget(static_cast<key_t>(key), 0, 0);
    shmid_ds segment{};
    if (id < 0 || ::shmctl(id, IPC_STAT, &segment) != 0)
    {
        if (errno == ENOENT || errno == EIDRM || errno == EINVAL)
            return std::nullopt;
        throw Failure::system("key " + keyText(key), errno);
    }
    return describe(id, segment);
}

std::vector<Segment> allSegments()
{
    shm_info ignored{};
    const int last = ::shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds *>(&ignored));
    std::vector<Segment> segments;
    for (int index = 0; index <= last; ++index)
    {
        shmid_ds segment{};
        // An index without a segment, or with one that is closed to this user.
        if (const int id = ::shmctl(index, SHM_STAT, &segment); id >= 0)
            segments.push_back(describe(id, segment));
    }
    return segments;
}

Json toJson(const Segment &segment)
{
    return {{"key", segment.key},         {"id", segment.id},
            {"size", segment.size},       {"attached", segment.attached},
            {"creator", segment.creator}, {"mode", print("%04o", segment.mode)},
            {"removed", segment.removed}};
}

Facts factsOf(const Segment &segment)
{
    Facts facts;
    facts.add("Key", Output::strong(keyText(segment.key)));
    facts.add("Identifier", std::to_string(segment.id));
    facts.add("Size", count(segment.size, "byte"));
    facts.add("Attached", count(segment.attached, "time"));
    facts.add("Made by", "process " + std::to_string(segment.creator));
    facts.add("Mode", print("%04o", segment.mode));
    return facts;
}

void showSegment(uint32_t key, bool json)
{
    const auto segment = findSegment(key);
    if (!segment)
        throw Failure(kExitNo, "key " + keyText(key) + ": another process has removed the segment");
    report(json, toJson(*segment), factsOf(*segment));
}

int noSegment(uint32_t key)
{
    throw Failure(kExitNo, "key " + keyText(key) + " has no segment");
}

int show(const std::optional<std::string> &wanted, bool json)
{
    if (wanted)
    {
        const uint32_t key = parseKey(*wanted);
        if (!findSegment(key))
            return noSegment(key);
        showSegment(key, json);
        return kExitYes;
    }
    const auto segments = allSegments();
    if (json)
    {
        JsonArray array;
        for (const Segment &segment : segments)
            array.add(toJson(segment));
        array.close();
        return kExitYes;
    }
    Table table{"Key", ">Identifier", ">Bytes", ">Attached", ">Made by", "Mode", "Kind"};
    for (const Segment &segment : segments)
        table.add({keyText(segment.key), std::to_string(segment.id), std::to_string(segment.size),
                   std::to_string(segment.attached), std::to_string(segment.creator),
                   print("%04o", segment.mode),
                   segment.removed    ? "removed"
                   : segment.key == 0 ? "private"
                                      : "shared"});
    table.print();
    return kExitYes;
}

struct CreateOptions
{
    std::string key, size;
    bool hold = false;
    bool clear = false;
};

int refuseToCreate(uint32_t key, bool clear)
{
    const auto existing = findSegment(key);
    throw Failure(kExitNo, "key " + keyText(key) + " has a segment" +
                               (existing ? " of " + count(existing->size, "byte") : std::string{}) +
                               (clear ? "" : "; --clear takes it and sets it to zero"));
}

// Makes a segment only if there is none: the library uses an existing one and clears it, so the second of two
// commands would clear what the first has filled. The library reports all other failures.
bool makeFirst(uint32_t key, uint32_t size)
{
    return ::shmget(static_cast<key_t>(key), size, IPC_CREAT | IPC_EXCL | 0666) >= 0 || errno != EEXIST;
}

int create(const CreateOptions &options, bool json)
{
    const uint32_t key = parseKey(options.key);
    const auto size = static_cast<uint32_t>(parseSize(options.size, "size below 4 GiB"));
    if (size == 0)
        throw Failure(kExitUsage, "a segment has one byte at least");

    std::optional<EndSignals> signals;
    if (options.hold)
        signals.emplace();
    const auto existing = findSegment(key);
    if (options.clear ? existing && existing->size < size : !makeFirst(key, size))
        return refuseToCreate(key, options.clear);
    Attachment attachment{key, size, true};
    if (options.hold)
        attachment.hold();
    showSegment(key, json);
    if (!options.hold)
        return kExitYes; // leaving detaches: the segment stays until it is freed
    out().flush();
    signals->wait();
    note("key " + keyText(key) + (freeOrFail(attachment, key) ? ": removed" : ": others are still attached"));
    return kExitYes;
}

struct AttachOptions
{
    std::string key, source, target, offset = "0";
    std::optional<std::string> length;
    bool free = false;
};

// The requested part of the segment.
std::span<uint8_t> selectBytes(const Attachment &attachment, const AttachOptions &options)
{
    const auto bytes = attachment.bytes();
    const uint64_t offset = parseSize(options.offset, "offset");
    const uint64_t length = options.length ? parseSize(*options.length, "length")
                                           : bytes.size() - std::min<uint64_t>(offset, bytes.size());
    if (offset > bytes.size() || length > bytes.size() - offset)
        throw Failure(kExitMalformed, "the segment ends at byte " + std::to_string(bytes.size()));
    return bytes.subspan(offset, length);
}

int attach(const AttachOptions &options)
{
    const uint32_t key = parseKey(options.key);
    std::vector<uint8_t> data;
    if (!options.source.empty())
        data = readWhole(options.source);
    refuseSource(options.target); // before the segment is written
    if (!findSegment(key))
        return noSegment(key);
    Attachment attachment{key, 0, false};
    const auto bytes = selectBytes(attachment, options);
    if (data.size() > bytes.size())
        throw Failure(kExitMalformed, Where{options.source, 0},
                      count(data.size(), "byte") + ", and there is room for " + std::to_string(bytes.size()));
    std::ranges::copy(data, bytes.begin());
    if (!options.target.empty())
    {
        OutputFile target{options.target};
        target.write(bytes);
        target.commit();
    }
    if (options.free)
        (void)freeOrFail(attachment, key); // the last one to go removes the segment
    return kExitYes;
}

int freeSegment(const std::string &wanted, bool json)
{
    const uint32_t key = parseKey(wanted);
    const auto before = findSegment(key);
    if (!before)
        return noSegment(key);
    Attachment attachment{key, 0, false};
    const bool removed = freeOrFail(attachment, key);
    if (json)
        out().json({{"key", key}, {"id", before->id}, {"removed", removed}});
    else if (removed)
        out().line("removed " + keyText(key) + ", " + count(before->size, "byte"));
    else
        note("key " + keyText(key) + " is attached elsewhere, " + count(before->attached, "time") +
             "; the last one to free it removes it");
    return removed ? kExitYes : kExitNo;
}

int findKey(const std::string &start, bool json)
{
    const uint32_t first = parseAnyKey(start);
    uint32_t key = 0;
    if (const KIVCS2Status status = kivCS2SharedMemory_findKey(first, &key); KIVCS2_FAILED(status))
    {
        throw Failure(kExitNo, "no key is free among the 10000 from " + keyText(first) + " on (" +
                                   statusText(status) + ")");
    }
    if (json)
        out().json({{"key", key}});
    else
        out().line(keyText(key));
    return kExitYes;
}

void addShowing(Word &shm, Context &context)
{
    const auto wanted = std::make_shared<std::optional<std::string>>();
    Word &shown = shm.word("show", "One segment, or all of the machine");
    shown.option("key", *wanted, "The segment's key");
    shown.about("Prints key, identifier, size in bytes, how many times it is attached, the process that made "
                "it, and\n"
                "its mode. Exit code 1: the key has no segment.");
    shown.example("kivcs2 shm show");
    shown.runs([&context, wanted] { return show(*wanted, context.json); });

    const auto start = std::make_shared<std::string>("1");
    Word &found = shm.word("find", "The first key without a segment");
    found.option("start", *start, "Where the search begins, otherwise 1");
    found.about(
        "Prints only the key, for scripts. No segment is made, so another process may take the key. Exit\n"
        "code 1: none of the 10000 keys from the start is free.");
    found.example("kivcs2 shm find 0x4b495600");
    found.runs([&context, start] { return findKey(*start, context.json); });
}

void addCreating(Word &shm, Context &context)
{
    const auto creation = std::make_shared<CreateOptions>();
    Word &created = shm.word("create", "Make a segment of zeros and leave it on the machine");
    created.option("key", creation->key, "Its key").required();
    created.option("size", creation->size, "Bytes").required();
    created.flag("--hold", creation->hold,
                 "Stay attached until interrupted; then remove it unless others are attached");
    created.flag("--clear", creation->clear, "Also if the key has a segment: set its first bytes to zero");
    created.about("Prints the segment as kivcs2 shm show does. Exit code 1: the key has a segment.");
    created.example("kivcs2 shm create 0x4b495600 64K");
    created.runs([&context, creation] { return create(*creation, context.json); });
}

void addAttaching(Word &shm)
{
    const auto attachment = std::make_shared<AttachOptions>();
    Word &attached = shm.word("attach", "Fill a segment from a file, or read it into one");
    attached.option("key", attachment->key, "The segment's key").required();
    attached.option("-w,--write", attachment->source, "Copy this file into the segment")
        .isFile()
        .excludes("--read");
    attached.option("-r,--read", attachment->target, "Copy the segment into this file").isTarget();
    attached.option("--offset", attachment->offset, "First byte in the segment");
    attached.option("--length", attachment->length, "Bytes of the segment, otherwise to its end");
    attached.flag("--free", attachment->free, "Free it afterwards instead of leaving it");
    attached.about(
        "Copies bytes unchanged, all or none: exit code 3 if they do not fit. Exit code 1: the key\n"
        "has no segment.");
    attached.example("kivcs2 shm attach 0x4b495600 --read - --length 7");
    attached.refuses(
        [attachment]
        {
            const bool isNone = attachment->source.empty() && attachment->target.empty();
            return isNone ? "--write or --read is required" : "";
        });
    attached.runs([attachment] { return attach(*attachment); });
}

void addFreeing(Word &shm, Context &context)
{
    const auto key = std::make_shared<std::string>();
    Word &freed = shm.word("free", "Remove a segment; exit 1 while others are attached");
    freed.option("key", *key, "The segment's key").required();
    freed.about(
        "Prints the removed segment. If others have attached it, the last of them that frees it removes\n"
        "it: exit code 1 until then. Exit code 1 also if the key has no segment.");
    freed.example("kivcs2 shm free 0x4b495600");
    freed.runs([&context, key] { return freeSegment(*key, context.json); });
}

} // namespace

void addSharedMemoryCommand(Word &root, Context &context)
{
    Word &shm = root.word("shm", "Shared memory segments (System V)").group(kGroupMachine);
    shm.about("Keys are decimal or 0x...; sizes may end in K, M or G.\n"
              "A segment stays on the machine until it is freed and no other process is attached.");
    addShowing(shm, context);
    addCreating(shm, context);
    addAttaching(shm);
    addFreeing(shm, context);
}

} // namespace tool
