/// Locks and named conditions that several clients use at once.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include <ktthread/ktthread.h>

#include "Program.h"

/// All names are triggered again and again, so that no client waits for ever.
class MeetingPoint {
public:
    MeetingPoint();
    ~MeetingPoint();
    MeetingPoint(const MeetingPoint&) = delete;
    MeetingPoint& operator=(const MeetingPoint&) = delete;

    /// One operation. False if a lock let in two clients that exclude each other, or blocked one
    /// that it must let in.
    bool useLocks(const Step& step);
    void useConditions(const Step& step);

    /// Whether all that was done under the locks is there, once no client uses them any more.
    bool isComplete() const { return counted == done && first == second; }

private:
    bool countUnder(bool onlyIfFree);
    bool compareReading();
    void changeWriting();

    const boost::shared_ptr<KT::KTMutex> mutex = KT::KTMutex::createKTMutex();
    const boost::shared_ptr<KT::KTMutexRW> lock = KT::KTMutexRW::createKTMutexRW();
    const boost::shared_ptr<KT::KTCondition> condition = KT::KTCondition::createKTCondition();
    KT::KTConditionManager events;
    std::atomic<int> done{0};
    int counted = 0;  ///< under mutex
    int first = 0;    ///< under lock, as is second, which is the same
    int second = 0;
    std::atomic<bool> stop{false};
    std::thread bell;
};
