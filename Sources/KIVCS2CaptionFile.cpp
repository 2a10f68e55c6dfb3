// Caption files: read with their faults, and written.
#include "KIVCS2CaptionFile.h"

#include "Private/Captions/Faults.h"
#include "Private/Captions/Reader.h"
#include "Private/Check.h"

#include <new>

namespace
{
using kiv::cc::Reader;

// What a record's `m_state` points at.
struct FileState
{
    KIVCS2Stream *stream = nullptr;
    bool ownsStream = false;
    Reader *reader = nullptr;
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
    auto *const state = new (std::nothrow) FileState{stream, ownsStream, nullptr};
    if (state == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    state->reader = new (std::nothrow) Reader(stream, used);
    const bool canOrder =
        state->reader != nullptr && (used.m_order == KIVCS2CaptionOrder_File || state->reader->canSeek());
    if (!canOrder)
    {
        const KIVCS2Status status =
            state->reader == nullptr ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_UNSUPPORTED_ERR;
        delete state->reader;
        delete state;
        return status;
    }
    file->m_state = state;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2CaptionFile_readHeader(KIVCS2CaptionFile *file, KIVCS2CaptionFileHeader *header)
{
    KIV_CHECK(file);
    KIV_CHECK(file->m_state);

    Reader *const reader = stateOf(file)->reader;
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

    Reader *const reader = stateOf(file)->reader;
    const KIVCS2Status status = reader == nullptr ? KIVCS2STATUS_STATE_ERR : reader->readPacket(*packet);
    if (KIVCS2_FAILED(status))
        *packet = {};
    return status;
}

KIVCS2Status kivCS2CaptionFile_seek(KIVCS2CaptionFile *file, uint32_t frame)
{
    KIV_CHECK(file);
    KIV_CHECK(file->m_state);

    Reader *const reader = stateOf(file)->reader;
    return reader == nullptr ? KIVCS2STATUS_STATE_ERR : reader->seek(frame);
}

KIVCS2Status kivCS2CaptionFile_getReport(const KIVCS2CaptionFile *file, KIVCS2CaptionFileReport *report)
{
    KIV_CHECK(file);
    KIV_CHECK(report);
    KIV_CHECK(file->m_state);

    const Reader *const reader = stateOf(file)->reader;
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

    const Reader *const reader = stateOf(file)->reader;
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

KIVCS2Status kivCS2CaptionFile_free(KIVCS2CaptionFile *file)
{
    KIV_CHECK(file);

    FileState *const state = stateOf(file);
    file->m_state = nullptr;
    if (state == nullptr)
        return KIVCS2STATUS_OK;
    delete state->reader;
    if (state->ownsStream)
        (void)kivCS2Stream_free(state->stream); // releases completely, whatever its status says
    delete state;
    return KIVCS2STATUS_OK;
}
