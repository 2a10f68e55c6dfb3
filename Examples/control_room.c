/*
 * A host that does everything at once, each on its own thread and for as long as wanted: takes live captions
 * from a group, passes packets through a ring, launches commands through the task server and without it, runs
 * timers of both kinds, and publishes a service and finds it again.
 *
 *   example_control_room <group> <port> <seconds> [interval]
 *
 * Every interval (10 seconds) it prints how often each thread has done its work. It ends early if one fails.
 */
#ifndef _POSIX_C_SOURCE
#define _POSIX_C_SOURCE 200809L /* for nanosleep */
#endif
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum
{
    PACKET_SIZE = 188, /* bytes of a transport stream packet (ISO/IEC 13818-1) */
    RING_PACKETS = 64
};
static const char SERVICE_TYPE[] = "_mcc-feed._tcp", SERVICE_NAME[] = "Control room";

typedef struct Room
{
    KIVCS2Socket *receiver;
    KIVCS2CaptionDecoder decoder;
    uint32_t captionFrame;
    atomic_uint captions;
    KIVCS2Mutex ringMutex; /* around every call on the ring */
    KIVCS2RingBuffer ring;
    uint32_t stored, fetched; /* packets; each belongs to its thread */
} Room;

/* What a thread repeats until the host ends. */
typedef struct Worker
{
    const char *name;
    KIVCS2Status (*work)(Room *room);
    Room *room;
    KIVCS2Thread thread;
    atomic_uint rounds;
    _Atomic KIVCS2Status status; /* the failure that has ended it */
} Worker;

static atomic_bool ending;

static void sleep_milliseconds(long milliseconds)
{
    struct timespec left = {milliseconds / 1000, milliseconds % 1000 * 1000000};

    while (nanosleep(&left, &left) != 0)
        continue; /* a signal: a child has ended */
}

static KIVCS2Status on_caption(const KIVCS2CaptionText *text, void *context)
{
    Room *room = context;

    if (text->m_text[0] != '\0')
        atomic_fetch_add(&room->captions, 1);
    return KIVCS2STATUS_OK;
}

/* One datagram, and every caption packet in it. */
static KIVCS2Status take_captions(Room *room)
{
    uint8_t bytes[2048];
    uint32_t size = 0;
    uint64_t offset = 0;
    KIVCS2CaptionPacket packet;
    KIVCS2CaptionPlace place;
    KIVCS2Status status =
        kivCS2Socket_receiveFrom(room->receiver, bytes, sizeof bytes, false, &size, NULL, NULL);

    if (status == KIVCS2STATUS_TIMEOUT_ERR)
        return KIVCS2STATUS_OK; /* nobody sends yet */
    while (KIVCS2_SUCCEEDED(status) && KIVCS2_SUCCEEDED(kivCS2CaptionPacket_find(
                                           KIVCS2CaptionCarrier_RTP, bytes, size, &offset, &packet, &place)))
    {
        /* Frames are counted as they come, and begin again after a day. */
        packet.m_frame = room->captionFrame = (room->captionFrame + 1) % 2589408;
        status = kivCS2CaptionDecoder_feed(&room->decoder, &packet);
    }
    return status;
}

/* A numbered packet into the ring, if there is room. */
static KIVCS2Status store_packet(Room *room)
{
    uint8_t packet[PACKET_SIZE];
    KIVCS2Status status = kivCS2Mutex_lock(&room->ringMutex);

    if (KIVCS2_FAILED(status))
        return status;
    memset(packet, (int)(room->stored % 251), sizeof packet);
    memcpy(packet, &room->stored, sizeof room->stored);
    status = kivCS2RingBuffer_store(&room->ring, packet, sizeof packet);
    kivCS2Mutex_unlock(&room->ringMutex); /* the lock is held, so this cannot fail */
    if (KIVCS2_SUCCEEDED(status))
        ++room->stored;
    else if (status == KIVCS2STATUS_OVERFLOW_ERR)
        status = KIVCS2STATUS_OK; /* full: the other thread is slower */
    sleep_milliseconds(1);
    return status;
}

/* All packets of the ring, each of which must be the next. */
static KIVCS2Status fetch_packets(Room *room)
{
    uint8_t packet[PACKET_SIZE];
    uint32_t number;
    KIVCS2Status status = kivCS2Mutex_lock(&room->ringMutex);

    if (KIVCS2_FAILED(status))
        return status;
    while (KIVCS2_SUCCEEDED(status = kivCS2RingBuffer_fetch(&room->ring, packet, sizeof packet)))
    {
        memcpy(&number, packet, sizeof number);
        if (number != room->fetched++ || packet[PACKET_SIZE - 1] != number % 251)
        {
            status = KIVCS2STATUS_DATA_ERR;
            break;
        }
    }
    kivCS2Mutex_unlock(&room->ringMutex);
    sleep_milliseconds(5);
    return status == KIVCS2STATUS_NO_DATA_ERR ? KIVCS2STATUS_OK : status;
}

/* Called on the library's thread when a command has ended. */
static void on_end(KIVCS2Task *task, void *context)
{
    (void)task;
    kivCS2Semaphore_signal(context); /* initialised, so this cannot fail */
}

/* Launches a command that exits with 3, and waits for it. */
static KIVCS2Status launch(int throughServer)
{
    const char *arguments[] = {"-c", "exit 3", NULL};
    KIVCS2Task *task = NULL;
    KIVCS2Semaphore ended;
    int32_t code = -1;
    KIVCS2Status status = kivCS2Semaphore_init(&ended, NULL);

    if (KIVCS2_FAILED(status))
        return status;
    status = kivCS2Task_create(&task, "/bin/sh", arguments);
    if (KIVCS2_SUCCEEDED(status))
    {
        status = throughServer ? kivCS2TaskServer_exec(task, on_end, &ended) : kivCS2Task_launch(task);
        if (KIVCS2_SUCCEEDED(status) && throughServer)
            kivCS2Semaphore_wait(&ended);
        code =
            throughServer ? task->m_exitCode >> 8 : task->m_exitCode; /* the server gives the wait status */
    }
    if (task != NULL)
        kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse); /* it does not run, so this cannot fail */
    kivCS2Semaphore_free(&ended);
    sleep_milliseconds(20);
    return KIVCS2_FAILED(status) || code == 3 ? status : KIVCS2STATUS_DATA_ERR;
}

static KIVCS2Status launch_by_server(Room *room)
{
    (void)room;
    return launch(1);
}

static KIVCS2Status launch_here(Room *room)
{
    (void)room;
    return launch(0);
}

typedef struct Ticks
{
    int32_t left;
    KIVCS2Semaphore over;
} Ticks;

static int32_t on_tick(void *context)
{
    Ticks *ticks = context;

    if (--ticks->left > 0)
        return 0;
    kivCS2Semaphore_signal(&ticks->over);
    return KIVCS2TimerResult_End;
}

/* A timer with a thread for ten calls. */
static KIVCS2Status thread_timer(Room *room)
{
    Ticks ticks = {10, {0}};
    KIVCS2Timer *timer = NULL;
    KIVCS2Status status = kivCS2Semaphore_init(&ticks.over, NULL);

    (void)room;
    if (KIVCS2_FAILED(status))
        return status;
    status = kivCS2Timer_create(&timer, on_tick, &ticks, KIVCS2TimerFlags_Thread, 0.002, 0);
    if (KIVCS2_SUCCEEDED(status))
    {
        kivCS2Semaphore_wait(&ticks.over);
        status = kivCS2Timer_free(timer);
    }
    kivCS2Semaphore_free(&ticks.over);
    return status;
}

static int32_t on_loop(void *context)
{
    ++*(uint32_t *)context;
    return 0;
}

/* A timer of this thread's run loop for a tenth of a second. */
static KIVCS2Status loop_timer(Room *room)
{
    uint32_t calls = 0;
    KIVCS2Timer *timer = NULL;
    KIVCS2Status status = kivCS2Timer_create(&timer, on_loop, &calls, KIVCS2TimerFlags_CurrentRunLoop, 0.002,
                                             CFAbsoluteTimeGetCurrent());

    (void)room;
    if (KIVCS2_FAILED(status))
        return status;
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.1, false);
    status = kivCS2Timer_free(timer);
    return KIVCS2_SUCCEEDED(status) && calls == 0 ? KIVCS2STATUS_TIMEOUT_ERR : status;
}

static void on_service(KIVCS2BonjourBrowser *own, KIVCS2BonjourService *service, void *found,
                       KIVCS2BonjourBrowser *browser)
{
    const char *name = NULL;

    (void)browser;
    if (KIVCS2_SUCCEEDED(kivCS2Bonjour_getServiceName(own, service, &name)) &&
        strcmp(name, SERVICE_NAME) == 0)
        atomic_store((atomic_bool *)found, true);
}

/* Searches until the service has come, 30 seconds at most. */
static KIVCS2Status find_service(KIVCS2BonjourBrowser *browser)
{
    atomic_bool found = false;
    KIVCS2Status status = kivCS2Bonjour_findServices(browser, "", SERVICE_TYPE, on_service, &found);

    if (KIVCS2_FAILED(status))
        return status;
    for (int tries = 0; tries < 3000 && !atomic_load(&found); ++tries)
        sleep_milliseconds(10);
    status = kivCS2Bonjour_stopServiceBrowser(browser);
    return KIVCS2_SUCCEEDED(status) && !atomic_load(&found) ? KIVCS2STATUS_TIMEOUT_ERR : status;
}

/* A service that comes, is found and goes. */
static KIVCS2Status discover(Room *room)
{
    KIVCS2BonjourPublisher publisher;
    KIVCS2BonjourBrowser browser;
    KIVCS2Status status =
        kivCS2Bonjour_startPublishingService(&publisher, "", SERVICE_TYPE, SERVICE_NAME, 5000);

    (void)room;
    if (KIVCS2_FAILED(status))
        return status;
    status = kivCS2Bonjour_initBrowserData(&browser);
    if (KIVCS2_SUCCEEDED(status))
        status = find_service(&browser);
    kivCS2Bonjour_diposeBrowserData(&browser);      /* also if it could not be made */
    kivCS2Bonjour_endPublishingService(&publisher); /* the record is initialised */
    return status;
}

static void *repeat(void *argument)
{
    Worker *worker = argument;

    kivCS2Thread_setCurrentThreadName(worker->name); /* works without a name too */
    while (!atomic_load(&ending))
    {
        const KIVCS2Status status = worker->work(worker->room);

        if (KIVCS2_FAILED(status))
        {
            atomic_store(&worker->status, status);
            break;
        }
        atomic_fetch_add(&worker->rounds, 1);
    }
    return NULL;
}

static int fail(const char *what, KIVCS2Status status)
{
    fprintf(stderr, "control_room: %s (status 0x%08x)\n", what, status);
    return 1;
}

/* Everything the threads share. What was made is released at the end of the process. */
static KIVCS2Status open_room(Room *room, const char *address, int32_t port)
{
    KIVCS2CaptionDecoderOptions options = {0};
    struct sockaddr_in *group = NULL;
    KIVCS2Status status = kivCS2_createSockAddr(&group, address, port, 0);

    if (KIVCS2_FAILED(status))
        return status;
    status =
        kivCS2Socket_createMulticastDatagramReceiver(&room->receiver, KIVCS2SocketOption_ReuseAddress, group);
    kivCS2_freeSockAddr(group);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2Socket_setRecvTimeout(room->receiver, 1, 0);
    options.m_counting = KIVCS2CaptionCounting_29_97DF;
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2CaptionDecoder_init(&room->decoder, NULL, &options, on_caption, room);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2Mutex_init(&room->ringMutex, KIVCS2MutexOptions_None);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2RingBuffer_init(&room->ring, RING_PACKETS * PACKET_SIZE);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2RingBuffer_setOperationMode(&room->ring, KIVCS2RingBufferOpMode_Reject);
    return status;
}

/* Prints the counts at each interval until the time is over or a thread has failed. Returns the failure. */
static const Worker *watch(const Room *room, const Worker *workers, size_t count, long seconds, long interval)
{
    for (long second = 1; second <= seconds; ++second)
    {
        sleep_milliseconds(1000);
        for (size_t i = 0; i < count; ++i)
            if (KIVCS2_FAILED(atomic_load(&workers[i].status)))
                return &workers[i];
        if (second % interval != 0 && second != seconds)
            continue;
        printf("%ld s: %u captions", second, atomic_load(&room->captions));
        for (size_t i = 0; i < count; ++i)
            printf(", %u %s", atomic_load(&workers[i].rounds), workers[i].name);
        putchar('\n');
        fflush(stdout);
    }
    return NULL;
}

int main(int argc, char **argv)
{
    static Room room;
    static Worker workers[] = {
        {.name = "datagrams", .work = take_captions}, {.name = "stores", .work = store_packet},
        {.name = "fetches", .work = fetch_packets},   {.name = "launches", .work = launch_by_server},
        {.name = "children", .work = launch_here},    {.name = "timers", .work = thread_timer},
        {.name = "loops", .work = loop_timer},        {.name = "services", .work = discover}};
    const size_t count = sizeof workers / sizeof *workers;
    const long seconds = argc > 3 ? strtol(argv[3], NULL, 10) : 0;
    const long interval = argc > 4 ? strtol(argv[4], NULL, 10) : 10;
    const Worker *failed;
    KIVCS2Status status;

    if (seconds < 1 || interval < 1)
    {
        fputs("usage: example_control_room group port seconds [interval]\n", stderr);
        return 2;
    }
    status = kivCS2_init(); /* with a task server, while this process is small */
    if (KIVCS2_SUCCEEDED(status))
        status = open_room(&room, argv[1], (int32_t)strtol(argv[2], NULL, 10));
    if (KIVCS2_FAILED(status))
        return fail("start", status);
    for (size_t i = 0; i < count; ++i)
    {
        workers[i].room = &room;
        status = kivCS2Thread_init(&workers[i].thread, &workers[i], repeat);
        if (KIVCS2_FAILED(status))
            return fail(workers[i].name, status); /* the other threads end with the process */
    }
    failed = watch(&room, workers, count, seconds, interval);
    atomic_store(&ending, true);
    for (size_t i = 0; i < count; ++i)
        kivCS2Thread_join(&workers[i].thread); /* started, so this cannot fail */
    kivCS2CaptionDecoder_free(&room.decoder);
    kivCS2RingBuffer_dispose(&room.ring);
    kivCS2Mutex_free(&room.ringMutex);
    kivCS2Socket_free(room.receiver); /* leaves the group */
    return failed == NULL ? 0 : fail(failed->name, atomic_load(&failed->status));
}
