#include "HeldTask.h"

#include <kterror/KTError.h>

namespace {

class CountAtEnd {
public:
    explicit CountAtEnd(std::atomic<int>& toCount) : counter(toCount) {}
    ~CountAtEnd() { ++counter; }
    CountAtEnd(const CountAtEnd&) = delete;
    CountAtEnd& operator=(const CountAtEnd&) = delete;

private:
    std::atomic<int>& counter;
};

}  // namespace

HeldTask::HeldTask(int chosenManner) : manner(chosenManner)
{
    autoDelete = (manner & 4) != 0;
}

void HeldTask::run()
{
    const CountAtEnd left(lefts);
    if ((manner & 1) != 0) {
        setExecutionTime();
    }
    ++starts;
    {
        const KT::KTCriticalSection hold(mutex);
        while (!released) {
            // A release does not take the mutex: it may come just before the wait.
            wakeUp->waitFor(mutex, 1);
        }
    }
    ++ends;
    if ((manner & 1) != 0) {
        setEndTime();
    }
    if ((manner & 2) != 0) {
        throw KT::KTError("random", "run", "on purpose", __FILE__, __LINE__);
    }
}

void HeldTask::exitTask()
{
    release();
}

void HeldTask::release()
{
    released = true;
    wakeUp->signal();
}

void HeldTask::holdAgain()
{
    released = false;
    setCreationTime();
}

void HeldTask::setStamps(ro::os::timeval created, ro::os::timeval executed, ro::os::timeval ended)
{
    creationTime = created;
    executionTime = executed;
    endTime = ended;
}
