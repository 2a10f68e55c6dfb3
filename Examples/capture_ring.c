/*
 * From capture to writer through a ring: a capture thread stores packets of a fixed size as
 * they come, and a worker writes them to standard output when it can. The ring holds the
 * packets that the worker has not reached yet.
 *
 * capture_ring [packets [packets that the ring holds]] > file
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum
{
    PACKET_SIZE = 188 /* bytes of a transport stream packet (ISO/IEC 13818-1) */
};

typedef struct Recorder
{
    KIVCS2Mutex mutex;            /* around every call on the ring */
    KIVCS2RingBuffer ring;        /* always whole packets: the ring itself knows only bytes */
    KIVCS2SemaphoreThread writer; /* one signal for each packet stored */
    KIVCS2Semaphore room;         /* counts the packets that still fit */
    uint32_t packets;             /* to capture */
    KIVCS2Status captureStatus;   /* belongs to the capture thread until it is joined */
    uint32_t written;             /* these three belong to the worker until it has ended */
    uint32_t crc;
    KIVCS2Status writerStatus;
} Recorder;

static KIVCS2CRC32Param table; /* built at its first use */

/* Makes a packet like a capture card's: a sync byte, a counter and a picture. */
static void capture(uint8_t *packet, uint32_t number)
{
    memset(packet, (int)(number % 251), PACKET_SIZE);
    packet[0] = 0x47;
    packet[1] = (uint8_t)(number >> 16);
    packet[2] = (uint8_t)(number >> 8);
    packet[3] = (uint8_t)number;
}

/* Stores one packet; in reject mode a full ring refuses the whole packet. */
static KIVCS2Status storePacket(Recorder *recorder, const uint8_t *packet)
{
    KIVCS2Status status = kivCS2Mutex_lock(&recorder->mutex);
    if (KIVCS2_FAILED(status))
        return status;
    status = kivCS2RingBuffer_store(&recorder->ring, packet, PACKET_SIZE);
    kivCS2Mutex_unlock(&recorder->mutex); /* the lock is held, so this cannot fail */
    return status;
}

static void *captureAll(void *argument)
{
    Recorder *recorder = argument;
    uint8_t packet[PACKET_SIZE];

    kivCS2Thread_setCurrentThreadName("capture"); /* works without a name too */
    for (uint32_t number = 0; number < recorder->packets; ++number)
    {
        KIVCS2Status status;

        capture(packet, number);
        /* Reserve a place in the ring before storing the packet, so that no store is refused. A card that
           cannot wait would only try to reserve one (kivCS2Semaphore_testWait) and count its dropped
           packets. */
        status = kivCS2Semaphore_wait(&recorder->room);
        if (KIVCS2_SUCCEEDED(status))
            status = storePacket(recorder, packet);
        if (KIVCS2_SUCCEEDED(status))
            status = kivCS2SemaphoreThread_signal(&recorder->writer);
        if (KIVCS2_FAILED(status))
        {
            recorder->captureStatus = status;
            break;
        }
    }
    return NULL;
}

/* Runs on the worker, once for every signal, so once for every packet. */
static void writeOne(void *context)
{
    Recorder *recorder = context;
    uint8_t packet[PACKET_SIZE];
    KIVCS2Status status = kivCS2Mutex_lock(&recorder->mutex);

    if (KIVCS2_SUCCEEDED(status))
    {
        status = kivCS2RingBuffer_fetch(&recorder->ring, packet, sizeof packet);
        kivCS2Mutex_unlock(&recorder->mutex); /* the lock is held, so this cannot fail */
    }
    /* The place is free before the slow write to disk, and also if that fails. */
    kivCS2Semaphore_signal(&recorder->room); /* initialised, so this cannot fail */
    if (KIVCS2_SUCCEEDED(status) && fwrite(packet, sizeof packet, 1, stdout) != 1)
        status = KIVCS2STATUS_WRITE_ERR;
    if (KIVCS2_FAILED(status))
    {
        recorder->writerStatus = status;
        return;
    }
    ++recorder->written;
    recorder->crc = kivCSUtils_updateCRC32(&table, recorder->crc, packet, sizeof packet);
}

/* Runs capture and worker to their end. The caller still owns everything made before. */
static KIVCS2Status record(Recorder *recorder, uint32_t places)
{
    KIVCS2Thread thread;
    KIVCS2Status status = kivCS2SemaphoreThread_init(&recorder->writer, recorder, NULL, NULL, writeOne);
    if (KIVCS2_FAILED(status))
        return status;
    status = kivCS2Thread_init(&thread, recorder, captureAll);
    if (KIVCS2_SUCCEEDED(status))
    {
        kivCS2Thread_join(&thread); /* the thread has started, so this cannot fail */
        kivCS2Thread_free(&thread);
        /* Freeing the worker drops runs that have not begun, so first wait until all places are free. */
        for (uint32_t place = 0; KIVCS2_SUCCEEDED(recorder->captureStatus) && place < places; ++place)
            kivCS2Semaphore_wait(&recorder->room);
    }
    kivCS2SemaphoreThread_free(&recorder->writer); /* waits for the run in progress */
    return status;
}

static int fail(const char *what, KIVCS2Status status)
{
    fprintf(stderr, "capture_ring: %s (status 0x%08x)\n", what, status);
    return 1;
}

int main(int argc, char **argv)
{
    Recorder recorder = {0};
    const uint32_t places = argc > 2 ? (uint32_t)strtoul(argv[2], NULL, 10) : 64;
    KIVCS2Status status;

    if (isatty(STDOUT_FILENO))
    {
        fputs("capture_ring: standard output is a terminal; give the packets a file or a pipe\n", stderr);
        return 2;
    }
    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    recorder.packets = argc > 1 ? (uint32_t)strtoul(argv[1], NULL, 10) : 10000;
    recorder.crc = 0xFFFFFFFF;
    if (places == 0 || places > UINT32_MAX / PACKET_SIZE)
        return fail("the ring holds one packet at least, and less than 4 GiB", KIVCS2STATUS_PARAM_ERR);

    status = kivCS2Mutex_init(&recorder.mutex, KIVCS2MutexOptions_None);
    if (KIVCS2_FAILED(status))
        return fail("mutex", status);
    status = kivCS2RingBuffer_init(&recorder.ring, places * PACKET_SIZE);
    if (KIVCS2_SUCCEEDED(status))
    {
        kivCS2RingBuffer_setOperationMode(&recorder.ring, KIVCS2RingBufferOpMode_Reject);
        status = kivCS2Semaphore_init(&recorder.room, NULL);
        if (KIVCS2_SUCCEEDED(status))
        {
            for (uint32_t place = 0; place < places; ++place)
                kivCS2Semaphore_signal(&recorder.room);
            status = record(&recorder, places);
            kivCS2Semaphore_free(&recorder.room);
        }
        kivCS2RingBuffer_dispose(&recorder.ring);
    }
    kivCS2Mutex_free(&recorder.mutex);

    if (KIVCS2_FAILED(status))
        return fail("start", status);
    if (KIVCS2_FAILED(recorder.captureStatus))
        return fail("capturing", recorder.captureStatus);
    if (KIVCS2_FAILED(recorder.writerStatus) || fflush(stdout) != 0)
        return fail("writing", KIVCS2STATUS_WRITE_ERR);
    fprintf(stderr, "%u packets written, CRC-32 %08x\n", recorder.written, ~recorder.crc);
    return 0;
}
