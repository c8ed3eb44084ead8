#include "RecordingsAtExit.h"

#include <pthread.h>

namespace KT {
namespace detail {

/// Its destructor runs when the process ends.
struct RecordingsAtExit::Flusher {
    ~Flusher() { instance().flush(); }
};

RecordingsAtExit& RecordingsAtExit::instance()
{
    static RecordingsAtExit* const recordings = new RecordingsAtExit;
    return *recordings;
}

RecordingsAtExit::RecordingsAtExit()
{
    pthread_atfork(lockBeforeFork, unlockAfterFork, renewInChild);
}

// From one to the other two, the mutex is held: the set is whole in a child.
void RecordingsAtExit::lockBeforeFork()
{
    instance().mutex.lock();
}

void RecordingsAtExit::unlockAfterFork()
{
    instance().mutex.unlock();
}

void RecordingsAtExit::renewInChild()
{
    instance().recordings.clear();
    instance().mutex.unlock();
}

void RecordingsAtExit::add(Unwritten& recording)
{
    static const Flusher atExit;
    const std::lock_guard<std::mutex> hold(mutex);
    recordings.insert(&recording);
}

void RecordingsAtExit::remove(Unwritten& recording)
{
    const std::lock_guard<std::mutex> hold(mutex);
    recordings.erase(&recording);
}

void RecordingsAtExit::flush()
{
    const std::lock_guard<std::mutex> hold(mutex);
    for (Unwritten* const recording : recordings) {
        recording->flush();
    }
}

}  // namespace detail
}  // namespace KT
