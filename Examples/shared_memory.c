/*
 * Two processes count frames in one shared memory segment, protected by a mutex inside it.
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

enum
{
    FRAMES = 10000 /* of each process */
};

/* The contents of the segment. The creator sets it up before any other process attaches. */
struct Monitor
{
    KIVCS2Mutex mutex;
    uint32_t frames;
    char last[8]; /* who counted last */
};

static KIVCS2Status countFrames(struct Monitor *monitor, const char *name)
{
    KIVCS2Status status = KIVCS2STATUS_OK;
    for (int frame = 0; frame < FRAMES && KIVCS2_SUCCEEDED(status); ++frame)
    {
        status = kivCS2Mutex_lock(&monitor->mutex);
        if (KIVCS2_FAILED(status))
            break;
        monitor->frames += 1;
        strncpy(monitor->last, name, sizeof monitor->last - 1);
        status = kivCS2Mutex_unlock(&monitor->mutex);
    }
    return status;
}

/* The other process, which knows only the key. */
static int runPlayout(uint32_t key)
{
    KIVCS2SharedMemory shared;
    KIVCS2Status status = kivCS2SharedMemory_init(&shared, key, sizeof(struct Monitor), false);
    if (KIVCS2_FAILED(status))
        return 1;
    status = countFrames(shared.m_address, "playout");
    kivCS2SharedMemory_free(&shared); /* the ingest is still attached: the segment stays */
    return KIVCS2_FAILED(status) ? 1 : 0;
}

int main(void)
{
    KIVCS2SharedMemory shared;
    uint32_t key = 0;
    kivCS2_initWithTaskServer(false);

    KIVCS2Status status = kivCS2SharedMemory_findKey(0x4B495600, &key);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2SharedMemory_init(&shared, key, sizeof(struct Monitor), true);
    if (KIVCS2_FAILED(status))
    {
        fprintf(stderr, "no shared memory (0x%08x)\n", status);
        return 1;
    }
    struct Monitor *monitor = shared.m_address; /* all zero */
    status = kivCS2Mutex_init(&monitor->mutex, KIVCS2MutexOptions_ProcessShared);

    int ended = 1;
    if (KIVCS2_SUCCEEDED(status))
    {
        const pid_t playout = fork();
        if (playout == 0)
            _exit(runPlayout(key));
        status = countFrames(monitor, "ingest");
        if (playout < 0 || waitpid(playout, &ended, 0) != playout)
            ended = 1;
        printf("%u frames of two processes\n", monitor->frames);
        kivCS2Mutex_free(&monitor->mutex);
    }
    kivCS2SharedMemory_free(&shared); /* the last one: the segment is gone */
    return KIVCS2_FAILED(status) || ended != 0 ? 1 : 0;
}
