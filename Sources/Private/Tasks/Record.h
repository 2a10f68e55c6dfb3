// The parts of a task's record that its launches use: shared words, references, and the end.
#ifndef KIV_PRIVATE_TASKS_RECORD_H
#define KIV_PRIVATE_TASKS_RECORD_H

#include "KIVCS2Task.h"

#include <atomic>

namespace kiv
{
// Access to a plain word of the record that one thread writes and another reads.
template <class Word>
[[nodiscard]] std::atomic_ref<Word> taskWord(Word &word)
{
    return std::atomic_ref<Word>{word};
}

// The host holds one reference, each running launch another; the last one releases the record.
void retainTask(KIVCS2Task &task);
void releaseTask(KIVCS2Task &task);

// Begins a launch that ends with finishTask(). The caller holds a reference.
[[nodiscard]] KIVCS2Status beginAsync(KIVCS2Task &task, KIVCS2TaskFunc callback, void *context);

// Called when the process of a task exists: if the task was freed before, stops the process in the mode given
// to `free`. The launch or `free` does so, whichever comes second, and only once.
void stopIfFreed(KIVCS2Task &task);

// Marks the task finished and calls back, unless it was aborted before. The caller holds a reference.
void finishTask(KIVCS2Task &task);
} // namespace kiv

#endif
