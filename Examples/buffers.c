/*
 * Two threads that allocate nothing while they run: a capture thread fills buffers from a multi-buffer and
 * announces each with a note from a memory pool; the main thread checks each frame and returns both.
 *
 *   example_buffers 1000
 *
 * The argument is the number of frames.
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define BUFFERS    4u
#define FRAME_SIZE 4096u /* bytes */

/* The capture thread's message. A free note holds the pool's link at its start, so it must not be smaller. */
typedef struct
{
    KIVCS2LinkElem link; /* in the list of notes that have arrived */
    uint8_t *frame;
    uint64_t number;
} Note;

typedef struct
{
    KIVCS2MultiBuffer buffers;
    KIVCS2MemoryPool notes;
    KIVCS2Semaphore free_buffers; /* signals: buffers that may be filled */
    KIVCS2Semaphore arrived;      /* signals: notes in the list, or the end */
    KIVCS2Mutex mutex;            /* of the list */
    KIVCS2LinkList list;
    uint64_t frames;
    KIVCS2Status captured; /* the capture thread's result, read after it has ended */
} Host;

static KIVCS2Status capture_frame(Host *host, uint64_t number)
{
    void *frame = NULL, *object = NULL;
    Note *note;
    KIVCS2Status status;

    kivCS2Semaphore_wait(&host->free_buffers);
    status = kivCS2MultiBuffer_allocateBuffer(&host->buffers, FRAME_SIZE, &frame);
    if (KIVCS2_FAILED(status))
        return status;
    status = kivCS2MemoryPool_allocObject(&host->notes, &object);
    if (KIVCS2_FAILED(status))
    {
        kivCS2MultiBuffer_releaseBuffer(&host->buffers, frame, NULL);
        return status;
    }

    memset(frame, (int)(number & 0xff), FRAME_SIZE);
    note = object;
    note->frame = frame;
    note->number = number;
    kivCS2Mutex_lock(&host->mutex);
    kivCS2LinkList_appendElem(&host->list, &note->link);
    kivCS2Mutex_unlock(&host->mutex);
    return kivCS2Semaphore_signal(&host->arrived);
}

static void *capture(void *argument)
{
    Host *host = argument;
    uint64_t number;

    kivCS2Thread_setCurrentThreadName("capture");
    for (number = 0; number < host->frames && KIVCS2_SUCCEEDED(host->captured); ++number)
        host->captured = capture_frame(host, number);
    if (KIVCS2_FAILED(host->captured))
        kivCS2Semaphore_signal(&host->arrived); /* no more notes will come: wake the reader */
    return NULL;
}

/* The next note, or null when the capture thread has ended early. */
static Note *next_note(Host *host)
{
    KIVCS2LinkElem *elem;

    kivCS2Semaphore_wait(&host->arrived);
    kivCS2Mutex_lock(&host->mutex);
    elem = host->list.m_next;
    if (elem)
        kivCS2LinkElem_unlink(elem);
    kivCS2Mutex_unlock(&host->mutex);
    return (Note *)elem; /* the link is the note's first member */
}

/* True if the frame has the contents of its number. Returns the buffer and the note to their pools. */
static bool use_note(Host *host, Note *note)
{
    const uint8_t wanted = (uint8_t)(note->number & 0xff);
    const bool right = note->frame[0] == wanted && note->frame[FRAME_SIZE - 1] == wanted;

    kivCS2MultiBuffer_releaseBuffer(&host->buffers, note->frame, NULL);
    kivCS2MemoryPool_freeObject(&host->notes, note);
    kivCS2Semaphore_signal(&host->free_buffers);
    return right;
}

static KIVCS2Status make(Host *host)
{
    KIVCS2Status status = kivCS2MultiBuffer_init(&host->buffers, BUFFERS, KIVCS2MultiBufferFlags_ThreadSafe);
    unsigned index;

    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2MemoryPool_init(&host->notes, BUFFERS, sizeof(Note), 0, NULL, NULL);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2Mutex_init(&host->mutex, KIVCS2MutexOptions_None);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2Semaphore_init(&host->free_buffers, NULL);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2Semaphore_init(&host->arrived, NULL);
    for (index = 0; index < BUFFERS && KIVCS2_SUCCEEDED(status); ++index)
        status = kivCS2Semaphore_signal(&host->free_buffers);
    return status;
}

/* Frees the parts of the host that were made; a record that was not made is zero. */
static void release(Host *host)
{
    if (host->arrived.m_semaphore)
        kivCS2Semaphore_free(&host->arrived);
    if (host->free_buffers.m_semaphore)
        kivCS2Semaphore_free(&host->free_buffers);
    kivCS2Mutex_free(&host->mutex);
    kivCS2MemoryPool_free(&host->notes);
    kivCS2MultiBuffer_free(&host->buffers);
}

int main(int argc, char **argv)
{
    Host host;
    KIVCS2Thread thread;
    KIVCS2Status status;
    uint64_t right = 0, read = 0;
    uint32_t used = 0;
    Note *note;

    memset(&host, 0, sizeof host);
    host.frames = argc > 1 ? strtoull(argv[1], NULL, 10) : 1000;

    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    status = make(&host);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2Thread_init(&thread, &host, capture);
    if (KIVCS2_FAILED(status))
    {
        fprintf(stderr, "buffers: cannot start (status 0x%08x)\n", status);
        release(&host);
        return 1;
    }

    for (; read < host.frames && (note = next_note(&host)) != NULL; ++read)
        right += use_note(&host, note);
    kivCS2Thread_join(&thread);
    kivCS2Thread_free(&thread);

    kivCS2MultiBuffer_getUsedCount(&host.buffers, &used);
    printf("frames        %llu\n", (unsigned long long)read);
    printf("right         %llu\n", (unsigned long long)right);
    printf("buffers used  %u of %u\n", used, host.buffers.m_count);
    printf("notes free    %u of %u\n", host.notes.m_objects.m_count, host.notes.m_poolSize);
    status = host.captured;
    release(&host);
    if (KIVCS2_FAILED(status))
        fprintf(stderr, "buffers: capture ended early (status 0x%08x)\n", status);
    return KIVCS2_FAILED(status) || right != host.frames ? 1 : 0;
}
