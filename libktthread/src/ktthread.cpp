#include <ktthread/ktthread.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstdio>
#include <exception>
#include <functional>
#include <iostream>
#include <iterator>
#include <mutex>
#include <new>
#include <ostream>
#include <string_view>
#include <utility>

#include <sys/prctl.h>
#include <unistd.h>

#include <boost/exception/exception.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>

#include <kterror/KTError.h>
#include <ro/log.h>
#include <ro/os.h>

#include "probes.h"

namespace KT {

// ---------------------------------------------------------------------------------------------
// File-local helpers
// ---------------------------------------------------------------------------------------------

namespace {

const char* const sourceFile = "libktthread/src/ktthread";

const int logLevel = 2;

const std::int32_t stateWaiting = 0;
const std::int32_t stateRunning = 1;
const std::int32_t stateFinished = 2;

const int endPollMs = 100;

/// Bytes of stack; 0: not set, the next worker constructed puts the default in.
std::atomic<int> stackSize(0);
const int defaultStackSize = 655360;

/// A pool shrinks only while it has more workers than this.
const int shrinkThreshold = 18;

/// From this many busy workers on, a monitor asks for no more.
const int busyLimit = 190;

/// Looks at a turnstile before its lock is taken all the same: about a microsecond.
const int turnstileLooks = 32;

const int growthBatch = 5;
const int growthAttempts = 30;

/// Sets whether the calling thread can be cancelled, for a scope.
///
/// A worker can be cancelled only while it waits for a wake-up and inside a task's body. Everywhere
/// else a forced unwinding could start in a destructor, which ends the process, or halfway through
/// a line of output, which leaves the stream failed.
class Cancellation {
public:
    explicit Cancellation(int state) { pthread_setcancelstate(state, &previous); }
    ~Cancellation() { pthread_setcancelstate(previous, nullptr); }
    Cancellation(const Cancellation&) = delete;
    Cancellation& operator=(const Cancellation&) = delete;

private:
    int previous = PTHREAD_CANCEL_ENABLE;
};

/// A pointer without a share in what it points to, which is in use for as long anyway. The count of
/// shares in what many threads use would travel from core to core each time.
template <typename T>
boost::shared_ptr<T> borrowed(T* used)
{
    return boost::shared_ptr<T>(boost::shared_ptr<T>(), used);
}

template <typename T>
boost::shared_ptr<T> borrowed(const boost::shared_ptr<T>& used)
{
    return borrowed(used.get());
}

/// A guard of a lock that has a turnstile in front.
template <typename Guard>
class TurnAndHold {
public:
    template <typename Lock>
    TurnAndHold(KTTurnstile& turnstile, const boost::shared_ptr<Lock>& lock)
        : turn(turnstile), guard(borrowed(lock))
    {
    }

private:
    class Turn {
    public:
        explicit Turn(KTTurnstile& toPass) : turnstile(toPass), entered(toPass.enter()) {}
        ~Turn()
        {
            if (entered) {
                turnstile.leave();
            }
        }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        KTTurnstile& turnstile;
        const bool entered;
    };

    const Turn turn;  // left after the guard has given the lock back
    const Guard guard;
};

// A shared pointer that one thread may set while another reads it. Boost's atomic operations may
// sleep while the pointer is busy, and are noexcept: a task that uses its pool mustn't be cancelled
// in there.

template <typename T>
boost::shared_ptr<T> loadShared(const boost::shared_ptr<T>& pointer)
{
    const Cancellation off(PTHREAD_CANCEL_DISABLE);
    return boost::atomic_load(&pointer);
}

template <typename T>
boost::shared_ptr<T> exchangeShared(boost::shared_ptr<T>& pointer, boost::shared_ptr<T> value)
{
    const Cancellation off(PTHREAD_CANCEL_DISABLE);
    return boost::atomic_exchange(&pointer, std::move(value));
}

void logRecord(const char* category, const char* function, const std::string& text)
{
    const Cancellation off(PTHREAD_CANCEL_DISABLE);
    ro::log::LogStream(logLevel, category, "", function, 0) << text << std::endl;
}

/// One piece, so that lines of several threads don't mix. Without an allocation, since a worker
/// that retires must not fail halfway: a text has 159 characters at most. Throws what std::cout is
/// set to throw.
void consoleLine(std::string_view text)
{
    const Cancellation off(PTHREAD_CANCEL_DISABLE);
    std::array<char, 160> line{};
    const std::size_t length = text.copy(line.data(), line.size() - 1);
    line[length] = '\n';
    std::cout.write(line.data(), static_cast<std::streamsize>(length + 1)).flush();
}

/// Does what a task that was taken over already, or has run, can do without.
template <typename Action>
void unlessOutOfMemory(const Action& action)
{
    try {
        action();
    } catch (const std::bad_alloc&) {
        // Thrown further, it would let a client take a queued task for refused, or end a worker and
        // with it the process.
    }
}

// Durations and their sums are 32 bits wide and wrap, which only unsigned arithmetic may.

std::int32_t wrappingSum(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

// A task may be reported while its body stamps it. Each half of a stamp is read and written in one
// piece; a report made in between may show halves of two stamps.

void stamp(ro::os::timeval& field)
{
    const ro::os::timeval now = ro::os::gettimeofday();
    __atomic_store_n(&field.tv_sec, now.tv_sec, __ATOMIC_RELAXED);
    __atomic_store_n(&field.tv_usec, now.tv_usec, __ATOMIC_RELAXED);
}

ro::os::timeval readStamp(const ro::os::timeval& field)
{
    ro::os::timeval value;
    value.tv_sec = __atomic_load_n(&field.tv_sec, __ATOMIC_RELAXED);
    value.tv_usec = __atomic_load_n(&field.tv_usec, __ATOMIC_RELAXED);
    return value;
}

/// Microseconds from one stamp to another, wrapping at 2^31.
std::int32_t microsecondsBetween(const ro::os::timeval& start, const ro::os::timeval& end)
{
    const std::uint32_t seconds =
        static_cast<std::uint32_t>(end.tv_sec) - static_cast<std::uint32_t>(start.tv_sec);
    const std::uint32_t microseconds =
        static_cast<std::uint32_t>(end.tv_usec) - static_cast<std::uint32_t>(start.tv_usec);
    return static_cast<std::int32_t>(microseconds + seconds * 1000000U);
}

/// A time limit on the monotonic clock; negative: none.
class TimeLimit {
public:
    explicit TimeLimit(int milliseconds)
        : unlimited(milliseconds < 0),
          end(std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds))
    {
    }

    /// Milliseconds left, rounded up, and no more than `most`.
    int left(int most) const
    {
        if (unlimited) {
            return most;
        }
        const auto rest =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(rest.count(), 0, most));
    }

private:
    bool unlimited;
    std::chrono::steady_clock::time_point end;
};

/// The locks of the tasks' links to their workers: one for many tasks, because a task has no room
/// for one of its own. Never destroyed before the last worker: a std::mutex needs no destructor.
std::mutex& linkLock(const KTTask* task)
{
    struct alignas(cacheLineSize) Lock {
        std::mutex mutex;
    };
    static std::array<Lock, 61> locks;
    return locks[std::hash<const KTTask*>()(task) / alignof(KTTask) % locks.size()].mutex;
}

}  // namespace

/// Counts the threads that a pool has started and that have not ended: what join waits for. It is
/// shared by the pool and its threads, and outlives whichever goes first. Any thread may use it.
class KTStartedThreads
    : public boost::intrusive_ref_counter<KTStartedThreads, boost::thread_safe_counter> {
public:
    KTStartedThreads()
        : mutex(KTMutex::createKTMutex()),
          ended(KTCondition::createKTCondition()),
          count(0),
          process(0)
    {
    }

    void add()
    {
        const KTCriticalSection hold(mutex);
        ++count;
        process = getpid();
    }

    void remove()
    {
        const KTCriticalSection hold(mutex);
        --count;
        ended->broadcast();
    }

    /// Whether they were started by a process of which this one is a child: they aren't in here,
    /// and nobody will give back what they held at the fork.
    bool areElsewhere() const
    {
        const pid_t starter = process;
        return starter != 0 && starter != getpid();
    }

    /// Blocks until there are none, or for `milliseconds`; whether there are none.
    bool waitForNone(int milliseconds)
    {
        const KTCriticalSection hold(mutex);
        if (count != 0) {
            ended->waitFor(mutex, milliseconds);
        }
        return count == 0;
    }

private:
    boost::shared_ptr<KTMutex> mutex;
    boost::shared_ptr<KTCondition> ended;
    int count;
    std::atomic<pid_t> process;
};

namespace {

/// The count that the calling thread is part of; null on a thread that is no worker.
thread_local const KTStartedThreads* countedIn = nullptr;

void countOut(void* startedThreads)
{
    const boost::intrusive_ptr<KTStartedThreads> threads(
        static_cast<KTStartedThreads*>(startedThreads), false);
    threads->remove();
}

/// The key whose destructor counts a thread out. An invalid one if the process has no keys left.
pthread_key_t countOutKey()
{
    static const pthread_key_t key = [] {
        pthread_key_t made = 0;
        return pthread_key_create(&made, countOut) == 0 ? made : ~pthread_key_t(0);
    }();
    return key;
}

/// Made first thing on a worker's thread: sees to it that the thread is counted out when it has
/// ended. That is after its start routine and the destructors of its thread-local objects; without
/// a key it is when the start routine ends.
class CountedThread {
public:
    explicit CountedThread(boost::intrusive_ptr<KTStartedThreads> startedThreads)
        : threads(std::move(startedThreads))
    {
        countedIn = threads.get();
        if (threads && pthread_setspecific(countOutKey(), threads.get()) == 0) {
            threads.detach();  // countOut has this reference now
        }
    }

    ~CountedThread()
    {
        if (threads) {
            threads->remove();
        }
    }

    CountedThread(const CountedThread&) = delete;
    CountedThread& operator=(const CountedThread&) = delete;

private:
    boost::intrusive_ptr<KTStartedThreads> threads;
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// KTTurnstile
// ---------------------------------------------------------------------------------------------

namespace {

/// Tells the processor that this thread only waits for another.
void pauseProcessor()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

}  // namespace

bool KTTurnstile::enter()
{
    for (int look = 0; look < turnstileLooks; ++look) {
        if (!taken.load(std::memory_order_relaxed) &&
            !taken.exchange(true, std::memory_order_acquire)) {
            return true;
        }
        pauseProcessor();
    }
    return false;
}

void KTTurnstile::leave()
{
    taken.store(false, std::memory_order_release);
}

// ---------------------------------------------------------------------------------------------
// KTMutex, KTMutexRW
// ---------------------------------------------------------------------------------------------

namespace {

const std::align_val_t platformAlignment = std::align_val_t(cacheLineSize);

/// Zero-filled, in cache lines of its own.
template <typename T>
T* newPlatformObject()
{
    const std::size_t lines = (sizeof(T) + cacheLineSize - 1) / cacheLineSize;
    void* const memory = ::operator new(lines* cacheLineSize, platformAlignment);
    return new (memory) T();
}

}  // namespace

void KTPlatformObjectDeleter::operator()(void* object) const
{
    ::operator delete(object, platformAlignment);
}

boost::shared_ptr<KTMutex> KTMutex::createKTMutex()
{
    return boost::shared_ptr<KTMutex>(new KTMutex);
}

KTMutex::KTMutex() : mutex(newPlatformObject<pthread_mutex_t>())
{
    pthread_mutex_init(mutex.get(), nullptr);
}

KTMutex::~KTMutex()
{
    pthread_mutex_destroy(mutex.get());
}

void KTMutex::lock()
{
    pthread_mutex_lock(mutex.get());
}

void KTMutex::unlock()
{
    pthread_mutex_unlock(mutex.get());
}

boost::shared_ptr<KTMutexRW> KTMutexRW::createKTMutexRW()
{
    return boost::shared_ptr<KTMutexRW>(new KTMutexRW);
}

KTMutexRW::KTMutexRW() : lock(newPlatformObject<pthread_rwlock_t>())
{
    pthread_rwlock_init(lock.get(), nullptr);
}

KTMutexRW::~KTMutexRW()
{
    pthread_rwlock_destroy(lock.get());
}

void KTMutexRW::readLock()
{
    pthread_rwlock_rdlock(lock.get());
}

void KTMutexRW::writeLock()
{
    pthread_rwlock_wrlock(lock.get());
}

void KTMutexRW::unlock()
{
    pthread_rwlock_unlock(lock.get());
}

// ---------------------------------------------------------------------------------------------
// KTCondition
// ---------------------------------------------------------------------------------------------

boost::shared_ptr<KTCondition> KTCondition::createKTCondition()
{
    return boost::shared_ptr<KTCondition>(new KTCondition);
}

KTCondition::KTCondition() : condition(newPlatformObject<pthread_cond_t>())
{
    pthread_cond_init(condition.get(), nullptr);
}

KTCondition::~KTCondition()
{
    // The C library's destroy waits until nobody is in a wait any more: who sleeps must wake first.
    pthread_cond_broadcast(condition.get());
    pthread_cond_destroy(condition.get());
}

void KTCondition::signal()
{
    pthread_cond_signal(condition.get());
}

void KTCondition::broadcast()
{
    pthread_cond_broadcast(condition.get());
}

void KTCondition::wait(boost::shared_ptr<KTMutex> mutex)
{
    pthread_cond_wait(condition.get(), mutex->mutex.get());
}

bool KTCondition::waitFor(boost::shared_ptr<KTMutex> mutex, int milliseconds)
{
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    const int wait = std::max(milliseconds, 0);
    end.tv_sec += wait / 1000;
    end.tv_nsec += wait % 1000 * 1000000L;
    if (end.tv_nsec >= 1000000000L) {
        ++end.tv_sec;
        end.tv_nsec -= 1000000000L;
    }
    return pthread_cond_clockwait(condition.get(), mutex->mutex.get(), CLOCK_MONOTONIC, &end) == 0;
}

// ---------------------------------------------------------------------------------------------
// Guards
// ---------------------------------------------------------------------------------------------

KTCriticalSection::KTCriticalSection(boost::shared_ptr<KTMutex> held) : mutex(std::move(held))
{
    mutex->lock();
}

KTCriticalSection::~KTCriticalSection()
{
    if (mutex) {
        mutex->unlock();
    }
}

void KTCriticalSection::forceUnlockNow()
{
    mutex->unlock();
    mutex.reset();
}

KTCriticalSectionRead::KTCriticalSectionRead(boost::shared_ptr<KTMutexRW> held)
    : lock(std::move(held))
{
    lock->readLock();
}

KTCriticalSectionRead::~KTCriticalSectionRead()
{
    lock->unlock();
}

KTCriticalSectionWrite::KTCriticalSectionWrite(boost::shared_ptr<KTMutexRW> held)
    : lock(std::move(held))
{
    lock->writeLock();
}

KTCriticalSectionWrite::~KTCriticalSectionWrite()
{
    lock->unlock();
}

KTCriticalTrueIfLocked::KTCriticalTrueIfLocked(boost::shared_ptr<KTMutex> tried,
                                               bool& alreadyLocked)
    : mutex(tried->mutex.get()), failed(pthread_mutex_trylock(mutex) != 0)
{
    alreadyLocked = failed;
}

KTCriticalTrueIfLocked::~KTCriticalTrueIfLocked()
{
    if (!failed && mutex != nullptr) {
        pthread_mutex_unlock(mutex);
    }
}

void KTCriticalTrueIfLocked::forceUnlockNow()
{
    // Not looking at `failed` is the contract: see the header for what that means for others.
    pthread_mutex_unlock(mutex);
    mutex = nullptr;
}

// ---------------------------------------------------------------------------------------------
// KTTask
// ---------------------------------------------------------------------------------------------

static_assert(sizeof(std::atomic<std::int32_t>) == sizeof(std::int32_t),
              "a task's state takes no more room than the number");

KTTask::KTTask()
    : autoDelete(false),
      taskName("undefined"),
      creationTime(),
      executionTime(),
      endTime(),
      state(stateWaiting)
{
    setCreationTime();
}

KTTask::~KTTask() = default;

void KTTask::exitTask() {}

const std::string& KTTask::getTaskName() const
{
    return taskName;
}

void KTTask::setTaskName(const std::string& name)
{
    taskName = name;
}

void KTTask::setCreationTime()
{
    stamp(creationTime);
    state = stateWaiting;
}

void KTTask::setExecutionTime()
{
    stamp(executionTime);
    state = stateRunning;
}

void KTTask::setEndTime()
{
    stamp(endTime);
    state = stateFinished;
}

std::int32_t KTTask::getIdleTime() const
{
    return microsecondsBetween(creationTime, executionTime);
}

std::int32_t KTTask::getExecutionTime() const
{
    return microsecondsBetween(executionTime, endTime);
}

void KTTask::waitForEndOfTask()
{
    while (state != stateFinished) {
        ro::os::msleep(endPollMs);
    }
}

void KTTask::setThread(boost::shared_ptr<KTThread> thread)
{
    boost::weak_ptr<KTThread> link(thread);
    const std::lock_guard<std::mutex> hold(linkLock(this));
    managingThread.swap(link);
}

// ---------------------------------------------------------------------------------------------
// Task report
// ---------------------------------------------------------------------------------------------

namespace {

std::string formatTime(const ro::os::timeval& time)
{
    const int days = time.tv_sec / 86400;
    const int ofDay = time.tv_sec % 86400;
    const int hours = ofDay / 3600;
    const int ofHour = ofDay % 3600;
    const unsigned long microseconds = static_cast<unsigned long>(time.tv_usec);
    char text[128];
    // A stamp of the wall clock always has at least a day: it is shown as the time of day, and only
    // what is less, a stamp not made or a duration, has its days in front.
    if (days <= 0) {
        std::snprintf(text, sizeof text, "%4dj+%2dh%02dm%02d,%06lus", days, hours, ofHour / 60,
                      ofHour % 60, microseconds);
    } else {
        std::snprintf(text, sizeof text, "%2dh%02dm%02d,%06lus", hours, ofHour / 60, ofHour % 60,
                      microseconds);
    }
    return text;
}

std::string formatManager(const KTThread* worker)
{
    if (worker == nullptr) {
        return "Task not managed by any thread\n";
    }
    char address[19];
    // "%p" writes a prefix of its own; readers of these reports are used to both.
    std::snprintf(address, sizeof address, "0x%p", static_cast<const void*>(worker));
    return std::string("Task managed by: ") + address + "\n";
}

}  // namespace

std::string KTTask::toString() const
{
    boost::weak_ptr<KTThread> link;
    {
        const std::lock_guard<std::mutex> hold(linkLock(this));
        link = managingThread;
    }
    char stateText[16];
    std::snprintf(stateText, sizeof stateText, "%d", state.load());

    std::string report;
    report.reserve(1000);
    report.append("Name : ").append(taskName).append("\n");
    report.append("CreationTime : ").append(formatTime(readStamp(creationTime))).append("\n");
    report.append("ExecutionTime: ").append(formatTime(readStamp(executionTime))).append("\n");
    report.append("EndTime      : ").append(formatTime(readStamp(endTime))).append("\n");
    report.append(formatManager(link.lock().get()));
    report.append("State: ").append(stateText).append("\n");
    return report;
}

// ---------------------------------------------------------------------------------------------
// KTThread: the object
// ---------------------------------------------------------------------------------------------

KTThread::KTThread(boost::shared_ptr<KTThreadPool> owner, int slot,
                   boost::shared_ptr<KTMutex> poolWakeMutex,
                   boost::shared_ptr<KTCondition> poolWakeCondition)
    : wakeMutex(std::move(poolWakeMutex)),
      wakeCondition(std::move(poolWakeCondition)),
      taskLock(KTMutexRW::createKTMutexRW()),
      launchTime(),
      idleTime(),
      index(slot),
      threadHandle(),
      pool(owner),
      killed(false),
      launched(false),
      isCounted(false),
      startedThreads(owner ? owner->startedThreads : nullptr)
{
    int unset = 0;
    stackSize.compare_exchange_strong(unset, defaultStackSize);
}

// Joins first and asks to stop afterwards. The order is safe: a worker holds itself for as long as
// it loops, so this destructor starts only after the loop has ended.
KTThread::~KTThread()
{
    // A task that lets go of a worker can be cancelled, and the join is a cancellation point.
    const Cancellation off(PTHREAD_CANCEL_DISABLE);
    const KTCriticalSectionRead hold(borrowed(taskLock));
    if (launched) {
        if (pthread_equal(threadHandle, pthread_self()) != 0) {
            // The worker's own reference was the last one. Nobody is left to join the thread;
            // detached, it gives its stack back when it ends.
            pthread_detach(threadHandle);
        } else {
            pthread_join(threadHandle, nullptr);
        }
    }
    killed = true;
    wakeCondition->signal();
    if (currentTask) {
        currentTask->setThread(boost::shared_ptr<KTThread>());
    }
}

void KTThread::setStackSize(int size)
{
    stackSize = size;
}

void KTThread::setThreadName(const char* name)
{
    prctl(PR_SET_NAME, name, 0, 0, 0);
}

int KTThread::launch()
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    // The C library would take a negative size for a huge one and fail later; it refuses 0 here and
    // keeps its default, as it does with any other size that it can't use.
    pthread_attr_setstacksize(&attributes, static_cast<std::size_t>(std::max(stackSize.load(), 0)));
    launchTime = ro::os::gettimeofday();
    pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
    pthread_attr_setschedpolicy(&attributes, SCHED_OTHER);
    sched_param priority{};
    priority.sched_priority = 0;
    pthread_attr_setschedparam(&attributes, &priority);
    if (startedThreads) {
        startedThreads->add();
        isCounted = true;
    }
    const int rc = pthread_create(&threadHandle, &attributes, _KT_Thread_Pool_Atom, this);
    pthread_attr_destroy(&attributes);
    if (rc == 0) {
        launched = true;
        return 0;
    }
    if (isCounted.exchange(false)) {
        startedThreads->remove();
    }
    const std::string description =
        "Aborting creating thread, pthread_create error. Too much thread asked";
    logRecord("core.thread", "launch", description);
    throw KTError("pthread", "pthread", description, sourceFile, 95);
}

void KTThread::killThread()
{
    // Let go of after the hold: it may be the last reference, and a task's destructor may do
    // anything.
    boost::shared_ptr<KTTask> task;
    const KTCriticalSectionRead hold(borrowed(taskLock));
    killed = true;
    {
        const std::lock_guard<std::mutex> holdTask(currentTaskMutex);
        task = currentTask;
    }
    if (task) {
        task->exitTask();
    }
}

// ---------------------------------------------------------------------------------------------
// KTThread: the main loop
// ---------------------------------------------------------------------------------------------

void* _KT_Thread_Pool_Atom(void* arg)
{
    KTThread::setThreadName("KTThread [new]");
    // For good: the destructors of the thread's own objects are not to be cut short either.
    int before = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    KTThread* const worker = static_cast<KTThread*>(arg);
    // Only a thread that `launch` has made is counted in.
    const CountedThread counted(worker->isCounted.exchange(false)
                                    ? worker->startedThreads
                                    : boost::intrusive_ptr<KTStartedThreads>());
    boost::shared_ptr<KTThread> self;
    try {
        self = worker->getThis();
    } catch (const boost::exception&) {
        logRecord("KTThread", "_KT_Thread_Pool_Atom", "cannot create thread");
        pthread_setcancelstate(before, nullptr);
        return nullptr;
    }
    const boost::shared_ptr<KTThreadPool> pool = self->pool.lock();
    self->loop(pool.get());
    // Unwinds this frame: pool goes first, then self, whose destructor may well run right here.
    pthread_exit(nullptr);
}

void KTThread::loop(KTThreadPool* livePool)
{
    /// Announces the worker, and its end however it comes.
    struct Announced {
        Announced(KTThread* started, const KTThreadPool* owner) : worker(started), pool(owner)
        {
            if (pool != nullptr) {
                KT_PROBE(worker_started, pool, KT_IS(0), KT_AT(worker->index),
                         KT_AT(pool->queueLength));
            }
        }
        ~Announced()
        {
            if (pool != nullptr) {
                KT_PROBE(worker_ended, pool, KT_IS(0), KT_AT(worker->index),
                         KT_AT(pool->queueLength));
            }
            worker->knownMonitor
                .reset();  // which holds the pool; the object may stay with a client
        }
        KTThread* worker;
        const KTThreadPool* pool;
    };
    const Announced announced(this, livePool);
    while (!killed && !mayRetire(livePool)) {
        if (const KTTask* const taken = takeTask(livePool)) {
            runCounted(*taken, livePool);
        } else if (!killed) {
            sleepOnce();
        }
    }
}

void KTThread::runCounted(const KTTask& taken, KTThreadPool* livePool)
{
    if (livePool != nullptr) {
        KT_PROBE(task_started, livePool, KT_NAME_OF(taken), KT_AT(index),
                 KT_AT(livePool->queueLength));
        const TurnAndHold<KTCriticalSectionWrite> hold(livePool->busyTurnstile, livePool->busyLock);
        ++livePool->nbBusyThreads;
    }
    // A stop request that came since the look at the mark found no task to ask. Both may ask it;
    // that one of them does is what a task relies on that runs until it is asked.
    if (killed) {
        currentTask->exitTask();
    }
    // A cancellation in here skips what follows: the worker then stays counted as busy.
    runTaken(livePool);
    if (livePool != nullptr) {
        const TurnAndHold<KTCriticalSectionWrite> hold(livePool->busyTurnstile, livePool->busyLock);
        --livePool->nbBusyThreads;
    }
}

// One wait a pass, and the queue is not looked at again under the mutex: a signal that comes
// between the empty fetch and the wait is lost. That keeps the wake-up cheap; KTThreadPool::wake
// closes the gap for a client that waits.
void KTThread::sleepOnce()
{
    const KTCriticalSection hold(borrowed(wakeMutex));
    // A stop request raises its mark before it broadcasts under this mutex. Seen from here on, the
    // mark is either up already or its broadcast finds this worker waiting.
    if (killed) {
        return;
    }
    setThreadName("KTThread [sleeping]");
    {
        const Cancellation on(PTHREAD_CANCEL_ENABLE);
        wakeCondition->wait(borrowed(wakeMutex));
    }
    setThreadName("KTThread [idle]");
}

boost::shared_ptr<KTThreadPool> KTThread::resolvePool(KTThreadPool* held) const
{
    return held == nullptr ? pool.lock() : borrowed(held);
}

bool KTThread::getTask()
{
    return takeTask(nullptr) != nullptr;
}

const KTTask* KTThread::takeTask(KTThreadPool* held)
{
    const KTCriticalSectionRead hold(borrowed(taskLock));
    const boost::shared_ptr<KTThreadPool> livePool = resolvePool(held);
    if (!livePool) {
        return nullptr;
    }
    boost::shared_ptr<KTTask> task = livePool->getTask();
    KTTask* const taken = task.get();
    {
        const std::lock_guard<std::mutex> holdTask(currentTaskMutex);
        currentTask.swap(task);
    }
    if (taken != nullptr) {
        taken->setThread(getThis());
    }
    return taken;
}

bool KTThread::apoptosis()
{
    return mayRetire(nullptr);
}

bool KTThread::mayRetire(KTThreadPool* held)
{
    const boost::shared_ptr<KTThreadPool> livePool = resolvePool(held);
    return livePool && livePool->apoptosis(held == nullptr ? getThis() : borrowed(this));
}

// ---------------------------------------------------------------------------------------------
// KTThread: one task
// ---------------------------------------------------------------------------------------------

namespace {

/// Names the thread after its task: on the stack, unless the name is unusually long. `state` ends
/// with its null.
template <std::size_t length>
void showTask(const KTTask& task, const char (&state)[length])
{
    static const char prefix[] = "KTTask: ";
    const std::string& name = task.getTaskName();
    char text[128];
    if (sizeof prefix - 1 + name.size() + length > sizeof text) {
        unlessOutOfMemory([&] { KTThread::setThreadName((prefix + name + state).c_str()); });
        return;
    }
    char* end = std::copy_n(prefix, sizeof prefix - 1, text);
    end = std::copy(name.begin(), name.end(), end);
    std::copy_n(state, length, end);
    KTThread::setThreadName(text);
}

}  // namespace

void KTThread::runTask()
{
    runTaken(nullptr);
}

void KTThread::runTaken(KTThreadPool* held)
{
    {
        const KTCriticalSectionRead hold(borrowed(taskLock));
        if (!currentTask) {
            return;
        }
        KTTask& task = *currentTask;
        task.state = stateRunning;
        try {
            showTask(task, " [running]");
            {
                const Cancellation on(PTHREAD_CANCEL_ENABLE);
                task.run();
            }
            showTask(task, " [finished]");
        } catch (const KTError& error) {
            // Only this one is a task's way to report a failure. Any other exception is a mistake
            // that ends the process where it was made, with the stack still there to look at.
            if (const boost::shared_ptr<KTThreadPool> livePool = resolvePool(held)) {
                KT_PROBE(task_failed, livePool.get(), KT_NAME_OF(task), KT_AT(index),
                         KT_AT(livePool->queueLength));
            }
            unlessOutOfMemory([&error] {
                logRecord("KTThread", "runTask", "Error caught: " + error.toString());
            });
        }
        task.state = stateFinished;
        reportEnded(task, held);
    }
    // Let go of after the hold: this may be the last reference, and a task's destructor may do
    // anything.
    boost::shared_ptr<KTTask> done;
    const KTCriticalSectionWrite hold(borrowed(taskLock));
    done.swap(currentTask);
}

void KTThread::reportEnded(const KTTask& task, KTThreadPool* held)
{
    if (held != nullptr) {
        KT_PROBE(task_ended, held, KT_NAME_OF(task), KT_AT(index), KT_AT(held->queueLength));
        unlessOutOfMemory([this, held] { held->report(currentTask, knownMonitor); });
    } else if (const boost::shared_ptr<KTThreadPool> livePool = pool.lock()) {
        reportEnded(task, livePool.get());
    }
}

// ---------------------------------------------------------------------------------------------
// KTThreadPool: construction
// ---------------------------------------------------------------------------------------------

KTThreadPool::KTThreadPool(int workers, int capacity, int param1, int param2, int param3)
    : monitorParam1(param1),
      monitorParam2(param2),
      monitorParam3(param3),
      queueLength(0),
      nbThreads(workers),
      maxThreads(capacity),
      nbThreadsToRemove(0),
      poolMutex(KTMutex::createKTMutex()),
      busyLock(KTMutexRW::createKTMutexRW()),
      queueMutex(KTMutex::createKTMutex()),
      wakeMutex(KTMutex::createKTMutex()),
      wakeCondition(KTCondition::createKTCondition()),
      nbBusyThreads(0),
      startedThreads(new KTStartedThreads),
      monitorInUse(nullptr)
{
    threads.reserve(static_cast<std::size_t>(capacity));
    threads.resize(static_cast<std::size_t>(capacity));
    retiredThreads.reserve(threads.size());
}

void KTThreadPool::init(int workers, int, int, int, int)
{
    if (workers > maxThreads) {
        throw KTError("KTThreadPool", "init",
                      std::to_string(workers) + " workers asked for, but maxThreads is " +
                          std::to_string(maxThreads),
                      sourceFile, __LINE__);
    }
    const boost::shared_ptr<KTMonitor> watcher(
        new KTMonitor(monitorParam1, monitorParam2, monitorParam3, getThis()));
    setMonitor(watcher);
    // Or those that come first could retire, if somebody asked for it already, into a table that is
    // still being filled.
    const KTCriticalSection hold(borrowed(poolMutex));
    for (int slot = 0; slot < workers; ++slot) {
        const boost::shared_ptr<KTThread> worker(
            new KTThread(getThis(), slot, wakeMutex, wakeCondition));
        exchangeShared(threads[static_cast<std::size_t>(slot)], worker);
        worker->launch();
    }
}

// The count may be any number that the constructor was given; the table is what there is.
std::size_t KTThreadPool::slotsInUse() const
{
    return std::min(static_cast<std::size_t>(std::max(nbThreads.load(), 0)), threads.size());
}

// ---------------------------------------------------------------------------------------------
// KTThreadPool: the queue
// ---------------------------------------------------------------------------------------------

bool KTThreadPool::enqueue(boost::shared_ptr<KTTask> task)
{
    if (!task) {
        enqueueBy([this] {
            tasks.emplace_back();  // a worker passes it over
            ++queueLength;
        });
        return false;
    }
    return enqueueBy([this, &task] {
        const KTTask* const queued = tasks.emplace_back(std::move(task)).get();
        ++queueLength;
        KT_PROBE(task_queued, this, KT_NAME_OF(*queued), KT_IS(-1), KT_AT(queueLength));
    });
}

bool KTThreadPool::enqueue(std::vector<boost::shared_ptr<KTTask> > batch)
{
    bool areTasks = true;
    const auto push = [this, &batch, &areTasks] {
        // All or none: a deque makes room for all before it takes the first.
        auto queued = tasks.insert(tasks.end(), std::make_move_iterator(batch.begin()),
                                   std::make_move_iterator(batch.end()));
        for (; queued != tasks.end(); ++queued) {
            ++queueLength;
            if (*queued) {
                KT_PROBE(task_queued, this, KT_NAME_OF(**queued), KT_IS(-1), KT_AT(queueLength));
            } else {
                areTasks = false;
            }
        }
    };
    return enqueueBy(push) && areTasks;
}

template <typename Push>
bool KTThreadPool::enqueueBy(const Push& push)
{
    // Looked at without a lock: a shutdown that runs at the same time may leave the task in a queue
    // that nobody serves any more, as it might had it come a moment later.
    if (nbThreads < 1) {
        return false;
    }
    boost::shared_ptr<KTMonitor> watcher;
    {
        const TurnAndHold<KTCriticalSection> hold(queueTurnstile, queueMutex);
        // Under the lock: close lets go of the monitor before it drops what is queued, so that no
        // task stays in the queue of a closed pool.
        watcher = monitor;
        if (!watcher) {
            return false;
        }
        push();
    }
    unlessOutOfMemory([&watcher] { watcher->adjustPool(); });
    signalOne();
    return true;
}

boost::shared_ptr<KTTask> KTThreadPool::getTask()
{
    boost::shared_ptr<KTTask> task;
    {
        const TurnAndHold<KTCriticalSection> hold(queueTurnstile, queueMutex);
        if (tasks.empty()) {
            return task;
        }
        task = std::move(tasks.front());
        tasks.pop_front();
        --queueLength;
    }
    // Hands the wake-up on: a burst drains through a chain of them, even if signals were sent while
    // nobody waited.
    signalOne();
    return task;
}

void KTThreadPool::taskEnded(boost::shared_ptr<KTTask> task)
{
    boost::shared_ptr<KTMonitor> known;
    report(std::move(task), known);
}

void KTThreadPool::report(boost::shared_ptr<KTTask> task, boost::shared_ptr<KTMonitor>& known)
{
    // What `known` shares can't have made room for another one at its address.
    if (known.get() != monitorInUse.load(std::memory_order_acquire)) {
        known = loadShared(monitor);
    }
    if (known) {
        known->assimilate(std::move(task));
    }
}

void KTThreadPool::setMonitor(boost::shared_ptr<KTMonitor> watcher)
{
    boost::shared_ptr<KTMonitor> replaced;  // let go of after queueMutex
    const KTCriticalSection hold(borrowed(queueMutex));
    monitorInUse.store(watcher.get(), std::memory_order_release);
    replaced = exchangeShared(monitor, std::move(watcher));
}

bool KTThreadPool::wake()
{
    {
        const TurnAndHold<KTCriticalSection> hold(queueTurnstile, queueMutex);
        if (tasks.empty()) {
            return false;
        }
    }
    signalOne();
    return true;
}

void KTThreadPool::signalOne()
{
    const TurnAndHold<KTCriticalSection> hold(wakeTurnstile, wakeMutex);
    wakeCondition->signal();
}

void KTThreadPool::wakeAll()
{
    const KTCriticalSection hold(borrowed(wakeMutex));
    wakeCondition->broadcast();
}

// ---------------------------------------------------------------------------------------------
// KTThreadPool: sizing
// ---------------------------------------------------------------------------------------------

bool KTThreadPool::adjustThread(int delta)
{
    Workers displaced;
    return resize(delta, displaced);
}

bool KTThreadPool::resize(int delta, Workers& displaced)
{
    const TurnAndHold<KTCriticalSection> hold(poolTurnstile, poolMutex);
    if (delta == 0 || nbThreads < 1) {
        return false;
    }
    return delta < 0 ? allowRetirementLocked(delta) : growLocked(delta, displaced);
}

bool KTThreadPool::allowRetirementLocked(int delta)
{
    const int live = nbThreads;
    if (live <= shrinkThreshold) {
        return true;
    }
    // INT_MIN has no negative.
    const long long asked = -static_cast<long long>(delta);
    const bool possible = asked < live;
    nbThreadsToRemove = possible ? static_cast<int>(asked) : live - 1;
    return possible;
}

bool KTThreadPool::growLocked(int count, Workers& displaced)
{
    // Not written without need: every worker that looks for work reads it.
    if (nbThreadsToRemove != 0) {
        nbThreadsToRemove = 0;
    }
    for (int i = 0; i < count; ++i) {
        if (nbThreads >= maxThreads) {
            // Not by announceLimit: each enqueue comes here in a pool that is full and busy.
            KT_POOL_PROBE(limit_reached, this, KT_AT(queueLength), KT_AT(nbThreads),
                          KT_AT(maxThreads));
            return false;
        }
        if (!startWorkerLocked(displaced)) {
            return false;
        }
        countGrownLocked();
    }
    return true;
}

// Starts a worker in the slot after the last live one, without counting it; false if the platform
// makes no thread. Only that is caught: a task that was queued a moment ago must not be taken for
// refused because the pool couldn't grow.
bool KTThreadPool::startWorkerLocked(Workers& displaced)
{
    const int slot = nbThreads;
    // Room for every worker to be set aside: a shutdown is no place to run out of memory.
    retiredThreads.reserve(
        std::max(retiredThreads.capacity(), retiredThreads.size() + threads.size()));
    displaced.reserve(displaced.size() + 2);  // also for the new one, if its launch fails
    const boost::shared_ptr<KTThread> worker(
        new KTThread(getThis(), slot, wakeMutex, wakeCondition));
    displaced.push_back(exchangeShared(threads[static_cast<std::size_t>(slot)], worker));
    try {
        worker->launch();
    } catch (const KTError&) {
        return false;
    }
    return true;
}

// Apart, so that those who never come here pay nothing for it.
[[gnu::noinline]] void KTThreadPool::announceLimit() const
{
    KT_POOL_PROBE(limit_reached, this, KT_AT(queueLength), KT_AT(nbThreads), KT_AT(maxThreads));
}

void KTThreadPool::countGrownLocked()
{
    ++nbThreads;
    KT_POOL_PROBE(pool_grown, this, KT_AT(queueLength), KT_AT(nbThreads), KT_AT(maxThreads));
}

bool KTThreadPool::xIncreaseThread()
{
    Workers displaced;
    const KTCriticalSection hold(borrowed(poolMutex));
    const int live = nbThreads;
    if (live == maxThreads) {
        announceLimit();
        consoleLine("Threadpool limit reached.");
        return false;
    }
    const long long target =
        std::min(static_cast<long long>(live) + growthBatch, static_cast<long long>(maxThreads));
    // A negative count, which only a constructor's argument makes, has no slot to start in.
    for (int i = 0; live >= 0 && i < growthAttempts && nbThreads < target; ++i) {
        if (startWorkerLocked(displaced)) {
            countGrownLocked();
            nbThreadsToRemove = 0;
        } else {
            boost::shared_ptr<KTThread>& slot = threads[slotsInUse()];
            displaced.push_back(exchangeShared(slot, boost::shared_ptr<KTThread>()));
        }
    }
    return true;
}

bool KTThreadPool::apoptosis(boost::shared_ptr<KTThread> thread)
{
    boost::shared_ptr<KTThread> replaced;  // let go of after poolMutex
    {
        const TurnAndHold<KTCriticalSection> hold(poolTurnstile, poolMutex);
        if (nbThreadsToRemove < 1 || nbThreads < 1 || !hasSlotLocked(thread)) {
            return false;
        }
        // The last worker moves into the free slot. Its old slot keeps a second reference to it
        // until the pool grows into it again; readers stop at the count.
        const boost::shared_ptr<KTThread> last = threads[slotsInUse() - 1];
        replaced = exchangeShared(threads[static_cast<std::size_t>(thread->index)], last);
        if (last) {
            last->index = thread->index;
        }
        KT_PROBE(worker_retired, this, KT_IS(0), KT_AT(thread->index), KT_AT(queueLength));
        consoleLine("KTThreadPool::decrease");
        --nbThreads;
        --nbThreadsToRemove;
    }
    // Another sleeper may have to retire too.
    signalOne();
    return true;
}

// A worker that a shutdown has set aside may still ask while the pool has been started anew; it has
// no slot to give up. Any other is taken at its word, also one that a client made.
bool KTThreadPool::hasSlotLocked(const boost::shared_ptr<KTThread>& thread) const
{
    return thread && !thread->killed && thread->index >= 0 &&
           static_cast<std::size_t>(thread->index) < threads.size();
}

void KTThreadPool::resetSumThreadIdle()
{
    const KTCriticalSection hold(borrowed(poolMutex));
    for (std::size_t slot = 0; slot < slotsInUse(); ++slot) {
        if (threads[slot]) {
            threads[slot]->idleTime = ro::os::timeval();
        }
    }
}

ro::os::timeval KTThreadPool::computeSumThreadIdle()
{
    ro::os::timeval sum = ro::os::timeval();
    const KTCriticalSection hold(borrowed(poolMutex));
    for (std::size_t slot = 0; slot < slotsInUse(); ++slot) {
        if (!threads[slot]) {
            continue;
        }
        sum.tv_sec = wrappingSum(sum.tv_sec, threads[slot]->idleTime.tv_sec);
        sum.tv_usec = wrappingSum(sum.tv_usec, threads[slot]->idleTime.tv_usec);
        if (sum.tv_usec > 999999) {
            sum.tv_sec = wrappingSum(sum.tv_sec, 1);
            sum.tv_usec -= 1000000;
        }
    }
    return sum;
}

KTThreadPoolStatus KTThreadPool::status() const
{
    KTThreadPoolStatus now = KTThreadPoolStatus();
    now.maxThreads = maxThreads;
    {
        const KTCriticalSection hold(borrowed(poolMutex));
        now.threads = nbThreads;
        now.threadsToRemove = nbThreadsToRemove;
    }
    {
        const KTCriticalSectionRead hold(borrowed(busyLock));
        now.busyThreads = nbBusyThreads;
    }
    const KTCriticalSection hold(borrowed(queueMutex));
    now.queuedTasks = static_cast<int>(std::min(tasks.size(), static_cast<std::size_t>(INT_MAX)));
    return now;
}

// ---------------------------------------------------------------------------------------------
// KTThreadPool: the end
// ---------------------------------------------------------------------------------------------

void KTThreadPool::shutdown(bool force)
{
    // All that may throw comes before anything is done.
    Workers setAside;
    Workers untold;  // a growth may add workers after the others were told
    setAside.reserve(threads.size());
    untold.reserve(threads.size());
    const int byForce = force ? 1 : 0;
    KT_POOL_PROBE(pool_shut_down, this, KT_AT(queueLength), KT_AT(nbThreads), KT_AT(byForce));
    dropQueued();
    for (std::size_t slot = 0; slot < slotsInUse(); ++slot) {
        if (const boost::shared_ptr<KTThread> worker = loadShared(threads[slot])) {
            worker->killThread();
        }
    }
    wakeAll();
    {
        const KTCriticalSection hold(borrowed(poolMutex));
        setAsideLocked(force, setAside, untold);
        nbThreads = 0;
    }
    tellToStop(untold);
}

void KTThreadPool::dropQueued()
{
    Tasks discarded;
    {
        const KTCriticalSection hold(borrowed(queueMutex));
        discarded.swap(tasks);
        queueLength = 0;
    }
    // One by one, since a deque's own order of destruction is not front to back; and without a
    // lock, since a task's destructor may use the pool.
    while (!discarded.empty()) {
        discarded.pop_front();
    }
}

// Marked before they are let out of poolMutex: none of them retires any more.
void KTThreadPool::setAsideLocked(bool force, Workers& setAside, Workers& untold)
{
    for (std::size_t slot = 0; slot < slotsInUse(); ++slot) {
        const boost::shared_ptr<KTThread> worker =
            exchangeShared(threads[slot], boost::shared_ptr<KTThread>());
        if (!worker) {
            continue;
        }
        if (!force) {
            retiredThreads.push_back(worker);
        } else if (worker->launched) {
            pthread_cancel(worker->threadHandle);
        }
        if (!worker->killed.exchange(true)) {
            untold.push_back(worker);
        }
        setAside.push_back(worker);
    }
}

void KTThreadPool::tellToStop(const Workers& workers)
{
    for (const boost::shared_ptr<KTThread>& worker : workers) {
        worker->killThread();
    }
    if (!workers.empty()) {
        wakeAll();
    }
}

bool KTThreadPool::join(int timeoutMs)
{
    const TimeLimit limit(timeoutMs);
    const boost::intrusive_ptr<KTStartedThreads> started = startedThreads;
    if (runningInThisThread() || started->areElsewhere()) {
        return false;
    }
    do {
        if (nbThreads > 0) {
            return false;
        }
        tellUntold();
        if (started->waitForNone(limit.left(endPollMs))) {
            return true;
        }
    } while (limit.left(1) > 0);
    return false;
}

// Tells the workers that a shutdown set aside without having told them to stop: one that a
// retirement moved past its eyes. Those too that an init with a count of its own has put into slots
// that were never counted.
void KTThreadPool::tellUntold()
{
    Workers untold;
    {
        const KTCriticalSection hold(borrowed(poolMutex));
        if (nbThreads > 0) {
            return;  // started anew: the workers in the table are to go on
        }
        const auto isUntold = [](const boost::shared_ptr<KTThread>& worker) {
            return worker && !worker->killed;
        };
        std::copy_if(threads.begin(), threads.end(), std::back_inserter(untold), isUntold);
    }
    tellToStop(untold);
}

// A shutdown that also cuts off, by force, whom an earlier gentle one has set aside.
void KTThreadPool::stop(bool force)
{
    shutdown(force);
    const KTCriticalSection hold(borrowed(poolMutex));
    for (const boost::shared_ptr<KTThread>& worker : retiredThreads) {
        if (force && worker->launched) {
            pthread_cancel(worker->threadHandle);
        }
    }
}

bool KTThreadPool::close(bool force, int timeoutMs)
{
    if (startedThreads->areElsewhere()) {
        return false;  // GCOVR_EXCL_LINE: in a forked child, which writes no counters
    }
    const TimeLimit limit(timeoutMs);
    // The monitor's reference to the pool may be the last but the caller's raw pointer.
    const boost::shared_ptr<KTThreadPool> self = weak_from_this().lock();
    do {
        stop(force);
        while (!join(timeoutMs < 0 ? timeoutMs : limit.left(INT_MAX))) {
            // A growth that was under way has started the pool anew.
            if (nbThreads < 1 || runningInThisThread()) {
                return false;
            }
            stop(force);
        }
        setMonitor(boost::shared_ptr<KTMonitor>());
        dropQueued();  // by an enqueue that was under way
    } while (!releaseEnded());
    return true;
}

// Lets go of the workers that have ended; false if a growth has started others since. One that was
// cut off still holds its task, and a task may hold the pool.
bool KTThreadPool::releaseEnded()
{
    Workers ended;  // let go of after poolMutex
    const KTCriticalSection hold(borrowed(poolMutex));
    if (nbThreads > 0 || !startedThreads->waitForNone(0)) {
        return false;
    }
    ended.swap(retiredThreads);
    ended.reserve(ended.size() + threads.size());
    for (boost::shared_ptr<KTThread>& slot : threads) {
        ended.push_back(exchangeShared(slot, boost::shared_ptr<KTThread>()));
    }
    return true;
}

bool KTThreadPool::runningInThisThread() const
{
    return countedIn == startedThreads.get();
}

KTThreadPool::~KTThreadPool()
{
    if (nbThreads == 0) {
        return;
    }
    try {
        consoleLine(
            "KTThreadPool::~KTThreadPool : trying to delete a Thread Pool without shutting it "
            "down. "
            "Shutting down the Thread Pool");
        shutdown(false);
    } catch (const std::exception&) {
        // The console or the memory failed. No worker is in its loop any more, or it would hold the
        // pool: what is left to do, the members' destructors do.
    }
}

// ---------------------------------------------------------------------------------------------
// KTMonitor
// ---------------------------------------------------------------------------------------------

KTMonitor::KTMonitor(int tasksPerLook, int second, int third,
                     boost::shared_ptr<KTThreadPool> watched)
    : pool(std::move(watched)),
      mutex(KTMutex::createKTMutex()),
      period(tasksPerLook),
      param2(second),
      param3(third),
      taskCount(0),
      idleSeconds(0),
      idleMicroseconds(0)
{
}

KTMonitor::~KTMonitor() = default;

void KTMonitor::assimilate(boost::shared_ptr<KTTask> task)
{
    if (!task) {
        return;
    }
    {
        std::vector<boost::shared_ptr<KTThread>> displaced;  // let go of after the mutex
        const TurnAndHold<KTCriticalSection> hold(turnstile, mutex);
        const std::int32_t sum = wrappingSum(idleMicroseconds, task->getIdleTime());
        idleSeconds = wrappingSum(idleSeconds, sum / 1000000);
        idleMicroseconds = sum % 1000000;
        taskCount = wrappingSum(taskCount, 1);
        // The count wraps after months of tasks; a period that is none must not be met then.
        if (period > 0 && taskCount == period) {
            taskCount = 0;
            lookAtPool(displaced);
        }
    }
    if (task->autoDelete) {
        task.reset();
    }
}

void KTMonitor::adjustPool()
{
    std::vector<boost::shared_ptr<KTThread>> displaced;
    lookAtPool(displaced);
}

void KTMonitor::lookAtPool(std::vector<boost::shared_ptr<KTThread>>& displaced)
{
    const int live = pool->nbThreads;
    int busy = 0;
    {
        const TurnAndHold<KTCriticalSectionRead> hold(pool->busyTurnstile, pool->busyLock);
        busy = pool->nbBusyThreads;
    }
    if (busy >= busyLimit) {
        // Not a limit that was tested: the count and the step that a growth would have made.
        pool->announceLimit();
        char text[64];
        std::snprintf(text, sizeof text, "INFO: Thread limit reached: (%d/%d)", busy,
                      wrappingSum(live, growthBatch));
        consoleLine(text);
    } else if (busy + 1 >= live) {
        pool->resize(1, displaced);
    }
}

// ---------------------------------------------------------------------------------------------
// KTConditionManager
// ---------------------------------------------------------------------------------------------

KTConditionManager::KTConditionManager() = default;

KTConditionManager::~KTConditionManager() = default;

void KTConditionManager::addCondition(const std::string& name)
{
    if (name.empty()) {
        return;
    }
    Event& event = events[name];
    event = Event();
    event.first = KTCondition::createKTCondition();
    event.second = KTMutex::createKTMutex();
}

void KTConditionManager::waitForCondition(const std::string& name)
{
    const auto found = events.find(name);
    if (found == events.end() || !found->second.second) {
        return;
    }
    // The guard's copy of the mutex survives a registry that lets go of the name meanwhile. The
    // condition isn't touched after the wait.
    const KTCriticalSection hold(found->second.second);
    found->second.first->wait(found->second.second);
}

void KTConditionManager::triggerCondition(const std::string& name)
{
    const auto found = events.find(name);
    if (found != events.end() && found->second.first) {
        // Without the event's mutex: whoever is on its way to sleep may miss this one.
        found->second.first->broadcast();
    }
}

// ---------------------------------------------------------------------------------------------
// Version
// ---------------------------------------------------------------------------------------------

const char* getVersion() noexcept
{
    return KT_VERSION;
}

}  // namespace KT
