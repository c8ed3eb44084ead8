#include "MeetingPoint.h"

#include <chrono>

namespace {

const char* const conditionNames[] = {"red", "green", "blue"};

}  // namespace

MeetingPoint::MeetingPoint()
{
    for (const char* name : conditionNames) {
        events.addCondition(name);
    }
    bell = std::thread([this] {
        while (!stop) {
            for (const char* name : conditionNames) {
                events.triggerCondition(name);
            }
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
}

MeetingPoint::~MeetingPoint()
{
    stop = true;
    bell.join();
}

bool MeetingPoint::countUnder(bool onlyIfFree)
{
    const auto count = [this] {
        const int before = counted;
        std::this_thread::yield();
        counted = before + 1;
        ++done;
    };
    if (onlyIfFree) {
        bool isLocked = false;
        KT::KTCriticalTrueIfLocked attempt(mutex, isLocked);
        if (!isLocked) {
            count();
            attempt.forceUnlockNow();
        }
        return true;
    }
    KT::KTCriticalSection hold(mutex);
    count();
    bool isLocked = false;
    const KT::KTCriticalTrueIfLocked attempt(mutex, isLocked);
    hold.forceUnlockNow();
    return isLocked;
}

bool MeetingPoint::compareReading()
{
    const KT::KTCriticalSectionRead hold(lock);
    const int before = first;
    std::this_thread::yield();
    return before == second;
}

void MeetingPoint::changeWriting()
{
    const KT::KTCriticalSectionWrite hold(lock);
    ++first;
    std::this_thread::yield();
    ++second;
}

bool MeetingPoint::useLocks(const Step& step)
{
    switch (step.amount % 5) {
        case 0: return countUnder(false);
        case 1: return countUnder(true);
        case 2: return compareReading();
        case 3: changeWriting(); return true;
        default: break;
    }
    const KT::KTCriticalSection hold(mutex);
    condition->broadcast();
    condition->waitFor(mutex, step.extra % 2);
    const int before = counted;
    std::this_thread::yield();
    return counted == before;
}

void MeetingPoint::useConditions(const Step& step)
{
    const std::string name = step.extra % 4 == 3 ? "unheard of" : conditionNames[step.extra % 4];
    if (step.amount % 2 == 0) {
        events.triggerCondition(name);
    } else {
        events.waitForCondition(name);
    }
}
