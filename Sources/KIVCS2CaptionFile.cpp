// Caption files: read with their faults, and written.
#include "KIVCS2CaptionFile.h"

#include "Private/Captions/Faults.h"
#include "Private/Captions/Packet.h"
#include "Private/Captions/Reader.h"
#include "Private/Captions/Writer.h"
#include "Private/Support/Check.h"

#include <algorithm>
#include <memory>
#include <new>

namespace
{
using kiv::cc::Reader;
using kiv::cc::Writer;

// A record's `m_state` points at one of these; exactly one of the two is set.
struct FileState
{
    KIVCS2Stream *stream = nullptr;
    bool ownsStream = false;
    std::unique_ptr<Reader> reader;
    std::unique_ptr<Writer> writer;
};

FileState *stateOf(const KIVCS2CaptionFile *file)
{
    return static_cast<FileState *>(file->m_state);
}
} // namespace

KIVCS2Status kivCS2CaptionFile_initReading(KIVCS2CaptionFile *file, KIVCS2Stream *stream, bool ownsStream,
                                           const KIVCS2CaptionReadOptions *options)
{
    KIV_CHECK(file);
    KIV_CHECK(stream);
    const KIVCS2CaptionReadOptions used = options != nullptr ? *options : KIVCS2CaptionReadOptions{};
    KIV_CHECK(used.m_kind <= KIVCS2CaptionFileKind_MCC2);
    KIV_CHECK(used.m_counting < KIVCS2CaptionCounting_MAX);
    KIV_CHECK(used.m_field <= 2);
    KIV_CHECK(used.m_order <= KIVCS2CaptionOrder_Frame);

    file->m_state = nullptr;
    std::unique_ptr<FileState> state{new (std::nothrow) FileState};
    if (!state)
        return KIVCS2STATUS_MEMORY_ERR;
    state->reader.reset(new (std::nothrow) Reader(stream, used));
    if (!state->reader)
        return KIVCS2STATUS_MEMORY_ERR;
    if (used.m_order == KIVCS2CaptionOrder_Frame && !state->reader->canSeek())
        return KIVCS2STATUS_UNSUPPORTED_ERR;
    state->stream = stream;
    state->ownsStream = ownsStream;
    file->m_state = state.release();
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2CaptionFile_readHeader(KIVCS2CaptionFile *file, KIVCS2CaptionFileHeader *header)
{
    KIV_CHECK(file);
    KIV_CHECK(file->m_state);

    Reader *const reader = stateOf(file)->reader.get();
    if (reader == nullptr)
        return KIVCS2STATUS_STATE_ERR;
    KIV_TRY(reader->readHeader());
    if (header != nullptr)
        *header = reader->header();
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2CaptionFile_readPacket(KIVCS2CaptionFile *file, KIVCS2CaptionPacket *packet)
{
    KIV_CHECK(file);
    KIV_CHECK(packet);
    KIV_CHECK(file->m_state);

    Reader *const reader = stateOf(file)->reader.get();
    const KIVCS2Status status = reader == nullptr ? KIVCS2STATUS_STATE_ERR : reader->readPacket(*packet);
    if (KIVCS2_FAILED(status))
        *packet = {};
    return status;
}

KIVCS2Status kivCS2CaptionFile_seek(KIVCS2CaptionFile *file, uint32_t frame)
{
    KIV_CHECK(file);
    KIV_CHECK(file->m_state);

    Reader *const reader = stateOf(file)->reader.get();
    return reader == nullptr ? KIVCS2STATUS_STATE_ERR : reader->seek(frame);
}

KIVCS2Status kivCS2CaptionFile_getReport(const KIVCS2CaptionFile *file, KIVCS2CaptionFileReport *report)
{
    KIV_CHECK(file);
    KIV_CHECK(report);
    KIV_CHECK(file->m_state);

    const Reader *const reader = stateOf(file)->reader.get();
    if (reader == nullptr)
        return KIVCS2STATUS_STATE_ERR;
    reader->report(*report);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2CaptionFile_getFaultCount(const KIVCS2CaptionFile *file, KIVCS2CaptionFault fault,
                                             uint64_t *count, KIVCS2CaptionFileFault *first)
{
    KIV_CHECK(file);
    KIV_CHECK(kiv::cc::faultRow(fault) != nullptr);
    KIV_CHECK(count);
    KIV_CHECK(file->m_state);

    const Reader *const reader = stateOf(file)->reader.get();
    if (reader == nullptr)
        return KIVCS2STATUS_STATE_ERR;
    *count = reader->log().count(fault);
    if (first != nullptr)
        *first = reader->log().first(fault);
    return KIVCS2STATUS_OK;
}

const char *kivCS2CaptionFile_getFaultName(KIVCS2CaptionFault fault)
{
    const kiv::cc::FaultRow *const row = kiv::cc::faultRow(fault);
    return row == nullptr ? nullptr : row->name;
}

KIVCS2Status kivCS2CaptionFile_getFaultStatus(KIVCS2CaptionFault fault)
{
    const kiv::cc::FaultRow *const row = kiv::cc::faultRow(fault);
    return row == nullptr ? KIVCS2STATUS_PARAM_ERR : row->status;
}

KIVCS2Status kivCS2CaptionFile_initWriting(KIVCS2CaptionFile *file, KIVCS2Stream *stream, bool ownsStream,
                                           KIVCS2CaptionFileKind kind, KIVCS2CaptionCounting counting,
                                           const KIVCS2CaptionWriteOptions *options)
{
    KIV_CHECK(file);
    KIV_CHECK(stream);
    KIV_CHECK((kind > KIVCS2CaptionFileKind_FindOut) && (kind < KIVCS2CaptionFileKind_MAX));
    const KIVCS2CaptionWriteOptions used = options != nullptr ? *options : KIVCS2CaptionWriteOptions{};
    KIV_CHECK(used.m_field <= 2);
    KIV_CHECK((used.m_services == nullptr) || (used.m_serviceCount <= KIVCS2_CAPTION_SERVICES_MAX));
    if (used.m_services != nullptr)
        KIV_CHECK(std::all_of(used.m_services, used.m_services + used.m_serviceCount,
                              [](const KIVCS2CaptionServiceEntry &entry)
                              { return kiv::cc::isService(entry.m_service); }));

    file->m_state = nullptr;
    const KIVCS2CaptionCountingInfo *const info = kiv::cc::countingInfo(counting);
    const bool isSCC = kind == KIVCS2CaptionFileKind_SCC;
    if (info == nullptr ||
        (isSCC && counting != KIVCS2CaptionCounting_29_97DF && counting != KIVCS2CaptionCounting_29_97NDF))
        return KIVCS2STATUS_FRAME_RATE_ERR;
    std::unique_ptr<FileState> state{new (std::nothrow) FileState};
    if (!state)
        return KIVCS2STATUS_MEMORY_ERR;
    state->writer.reset(new (std::nothrow) Writer(stream, kind, *info, used));
    if (!state->writer)
        return KIVCS2STATUS_MEMORY_ERR;
    state->stream = stream;
    state->ownsStream = ownsStream;
    file->m_state = state.release();
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2CaptionFile_writeHeader(KIVCS2CaptionFile *file, const KIVCS2CaptionFileHeader *header)
{
    KIV_CHECK(file);
    KIV_CHECK(file->m_state);

    Writer *const writer = stateOf(file)->writer.get();
    return writer == nullptr ? KIVCS2STATUS_STATE_ERR : writer->writeHeader(header);
}

KIVCS2Status kivCS2CaptionFile_writePacket(KIVCS2CaptionFile *file, const KIVCS2CaptionPacket *packet)
{
    KIV_CHECK(file);
    KIV_CHECK(packet);
    KIV_CHECK(file->m_state);

    Writer *const writer = stateOf(file)->writer.get();
    return writer == nullptr ? KIVCS2STATUS_STATE_ERR : writer->writePacket(*packet);
}

KIVCS2Status kivCS2CaptionFile_writeCaptions(KIVCS2CaptionFile *file, uint32_t frame,
                                             const KIVCS2CaptionPairs *pairs, const KIVCS2CaptionDTVCC *dtvcc)
{
    KIV_CHECK(file);
    KIV_CHECK((pairs == nullptr) || ((pairs->m_count[0] <= 31) && (pairs->m_count[1] <= 31)));
    KIV_CHECK((dtvcc == nullptr) || ((dtvcc->m_count <= 62) && (dtvcc->m_count % 2 == 0)));
    KIV_CHECK(file->m_state);

    Writer *const writer = stateOf(file)->writer.get();
    return writer == nullptr ? KIVCS2STATUS_STATE_ERR : writer->writeCaptions(frame, pairs, dtvcc);
}

KIVCS2Status kivCS2CaptionFile_writeText(KIVCS2CaptionFile *file, const KIVCS2CaptionText *text)
{
    KIV_CHECK(file);
    KIV_CHECK(text);
    KIV_CHECK(file->m_state);

    Writer *const writer = stateOf(file)->writer.get();
    return writer == nullptr ? KIVCS2STATUS_STATE_ERR : writer->writeText(*text);
}

KIVCS2Status kivCS2CaptionFile_finish(KIVCS2CaptionFile *file)
{
    KIV_CHECK(file);
    KIV_CHECK(file->m_state);

    Writer *const writer = stateOf(file)->writer.get();
    return writer == nullptr ? KIVCS2STATUS_STATE_ERR : writer->finish();
}

KIVCS2Status kivCS2CaptionFile_free(KIVCS2CaptionFile *file)
{
    KIV_CHECK(file);

    const std::unique_ptr<FileState> state{stateOf(file)};
    file->m_state = nullptr;
    if (state && state->ownsStream)
        (void)kivCS2Stream_free(state->stream); // releases completely, whatever its status says
    return KIVCS2STATUS_OK;
}
