/*
 * From capture to writer through a ring: a capture thread stores packets of a fixed size as they come, a
 * worker writes them to standard output when it gets to it. The ring holds what the worker is behind.
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
    KIVCS2RingBuffer ring;        /* stores and fetches are whole packets: the ring knows bytes only */
    KIVCS2SemaphoreThread writer; /* one signal a packet stored */
    KIVCS2Semaphore room;         /* one count a packet that fits */
    uint32_t packets;             /* to capture */
    KIVCS2Status captureStatus;   /* the capture thread's, until it is joined */
    uint32_t written;             /* these three are the worker's, until it has ended */
    uint32_t crc;
    KIVCS2Status writerStatus;
} Recorder;

static KIVCS2CRC32Param table; /* built at its first use */

/* What a capture card would hand out: a sync byte, a counter and a picture. */
static void capture(uint8_t *packet, uint32_t number)
{
    memset(packet, (int)(number % 251), PACKET_SIZE);
    packet[0] = 0x47;
    packet[1] = (uint8_t)(number >> 16);
    packet[2] = (uint8_t)(number >> 8);
    packet[3] = (uint8_t)number;
}

/* Stores one packet; in reject mode a full ring refuses it whole. */
static KIVCS2Status storePacket(Recorder *recorder, const uint8_t *packet)
{
    KIVCS2Status status = kivCS2Mutex_lock(&recorder->mutex);
    if (KIVCS2_FAILED(status))
        return status;
    status = kivCS2RingBuffer_store(&recorder->ring, packet, PACKET_SIZE);
    kivCS2Mutex_unlock(&recorder->mutex); /* held: cannot fail */
    return status;
}

static void *captureAll(void *argument)
{
    Recorder *recorder = argument;
    uint8_t packet[PACKET_SIZE];

    kivCS2Thread_setCurrentThreadName("capture"); /* a thread without a name works as well */
    for (uint32_t number = 0; number < recorder->packets; ++number)
    {
        KIVCS2Status status;

        capture(packet, number);
        /* A place in the ring is taken before the packet is stored, so that no store is refused. A card that
           cannot wait would try to take one (kivCS2Semaphore_testWait) and count the packets it drops. */
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
        kivCS2Mutex_unlock(&recorder->mutex); /* held: cannot fail */
    }
    /* The place is free while the disk takes its time, and also when the disk has failed. */
    kivCS2Semaphore_signal(&recorder->room); /* made: cannot fail */
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

/* Runs capture and worker to their end. Everything that was made before stays the caller's. */
static KIVCS2Status record(Recorder *recorder, uint32_t places)
{
    KIVCS2Thread thread;
    KIVCS2Status status = kivCS2SemaphoreThread_init(&recorder->writer, recorder, NULL, NULL, writeOne);
    if (KIVCS2_FAILED(status))
        return status;
    status = kivCS2Thread_init(&thread, recorder, captureAll);
    if (KIVCS2_SUCCEEDED(status))
    {
        kivCS2Thread_join(&thread); /* started: cannot fail */
        kivCS2Thread_free(&thread);
        /* Freeing the worker drops runs that have not begun: first all places must have come back. */
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
