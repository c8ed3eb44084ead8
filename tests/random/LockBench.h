/// The locks and named conditions under random use by one thread, each against what it must be.
#pragma once

#include <memory>
#include <set>
#include <string>

#include <ktthread/ktthread.h>

#include "Program.h"

class LockBench {
public:
    LockBench();
    LockBench(const LockBench&) = delete;
    LockBench& operator=(const LockBench&) = delete;
    ~LockBench();

    /// One operation. Throws a Finding.
    void useLocks(const Step& step);
    void useConditions(const Step& step);

private:
    struct Bench {
        boost::shared_ptr<KT::KTMutex> mutex = KT::KTMutex::createKTMutex();
        std::unique_ptr<KT::KTCriticalSection> guard;
        std::unique_ptr<KT::KTCriticalTrueIfLocked> attempt;
        boost::shared_ptr<KT::KTMutexRW> lock = KT::KTMutexRW::createKTMutexRW();
        std::unique_ptr<KT::KTCriticalSectionRead> reader;
        std::unique_ptr<KT::KTCriticalSectionWrite> writer;
        bool isHeld() const { return guard || attempt; }
    };

    static bool isLocked(const boost::shared_ptr<KT::KTMutex>& mutex);
    static void hold(Bench& bench);
    static void attempt(Bench& bench);
    static void giveBack(Bench& bench, bool now);
    static void giveWayToAnother(Bench& bench, bool otherWrites);
    static void useReadWrite(Bench& bench, bool writes);
    void waitOnMutex(Bench& bench, int milliseconds);
    void meet(const std::string& name);

    Bench benches[2];
    boost::shared_ptr<KT::KTCondition> condition = KT::KTCondition::createKTCondition();
    KT::KTConditionManager events;
    std::set<std::string> names;
};
