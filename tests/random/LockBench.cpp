#include "LockBench.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "Finding.h"

LockBench::LockBench() = default;
LockBench::~LockBench() = default;

bool LockBench::isLocked(const boost::shared_ptr<KT::KTMutex>& mutex)
{
    bool locked = false;
    const KT::KTCriticalTrueIfLocked attempt(mutex, locked);
    return locked;
}

void LockBench::hold(Bench& bench)
{
    if (!bench.isHeld()) {
        bench.guard = std::make_unique<KT::KTCriticalSection>(bench.mutex);
    }
}

void LockBench::attempt(Bench& bench)
{
    const bool wasHeld = bench.isHeld();
    bool locked = !wasHeld;
    auto made = std::make_unique<KT::KTCriticalTrueIfLocked>(bench.mutex, locked);
    require(locked == wasHeld, "an attempt is wrong about a mutex");
    if (!locked) {
        bench.attempt = std::move(made);
    }
}

void LockBench::giveBack(Bench& bench, bool now)
{
    if (now && bench.guard) {
        bench.guard->forceUnlockNow();
    }
    if (now && bench.attempt) {
        bench.attempt->forceUnlockNow();
    }
    if (now) {
        require(!isLocked(bench.mutex), "forceUnlockNow kept the mutex");
    }
    bench.guard.reset();
    bench.attempt.reset();
}

// Another thread gets the lock when the writer has released it and, as far as a short wait
// shows, not before.
void LockBench::giveWayToAnother(Bench& bench, bool otherWrites)
{
    std::atomic<bool> isIn(false);
    std::thread other([&bench, &isIn, otherWrites] {
        if (otherWrites) {
            const KT::KTCriticalSectionWrite hold(bench.lock);
            isIn = true;
        } else {
            const KT::KTCriticalSectionRead hold(bench.lock);
            isIn = true;
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const bool cameTooEarly = isIn;
    bench.writer.reset();
    other.join();
    require(!cameTooEarly, "a lock let another in beside its writer");
}

void LockBench::useReadWrite(Bench& bench, bool writes)
{
    if (bench.writer) {
        giveWayToAnother(bench, writes);
    } else if (bench.reader) {
        bench.reader.reset();
    } else if (writes) {
        bench.writer = std::make_unique<KT::KTCriticalSectionWrite>(bench.lock);
    } else {
        bench.reader = std::make_unique<KT::KTCriticalSectionRead>(bench.lock);
        const KT::KTCriticalSectionRead another(bench.lock);
    }
}

void LockBench::waitOnMutex(Bench& bench, int milliseconds)
{
    hold(bench);
    condition->signal();  // to nobody: not remembered
    condition->waitFor(bench.mutex, milliseconds);
    require(isLocked(bench.mutex), "a wait came back without its mutex");
}

void LockBench::useLocks(const Step& step)
{
    Bench& bench = benches[step.who % 2];
    const int milliseconds[] = {0, -1, 1, 0};
    switch (step.amount % 7) {
        case 0: hold(bench); break;
        case 1: attempt(bench); break;
        case 2: giveBack(bench, true); break;
        case 3: giveBack(bench, false); break;
        case 4: useReadWrite(bench, true); break;
        case 5: useReadWrite(bench, false); break;
        default: waitOnMutex(bench, milliseconds[step.extra % 4]);
    }
    require(isLocked(bench.mutex) == bench.isHeld(), "a mutex is not as its guards have left it");
}

// A trigger isn't remembered: it is repeated until the waiter has returned.
void LockBench::meet(const std::string& name)
{
    std::atomic<bool> isBack(false);
    std::thread waiter([this, &name, &isBack] {
        events.waitForCondition(name);
        isBack = true;
    });
    while (!isBack) {
        events.triggerCondition(name);
        std::this_thread::yield();
    }
    waiter.join();
}

void LockBench::useConditions(const Step& step)
{
    const std::string name(static_cast<std::size_t>(step.who % 4), 'n');
    switch (step.amount % 4) {
        case 0:
            events.addCondition(name);
            if (!name.empty()) {
                names.insert(name);
            }
            break;
        case 1: events.triggerCondition(name); break;
        case 2:
            if (names.count(name) == 0) {
                events.waitForCondition(name);  // returns at once
            }
            break;
        default:
            if (names.count(name) > 0) {
                meet(name);
            }
    }
}
