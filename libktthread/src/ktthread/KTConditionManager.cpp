#include <ktthread/KTConditionManager.h>

#include <ktthread/KTCriticalSection.h>

namespace KT {

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
    // The guard's copy keeps the mutex alive if the registry drops the name meanwhile. The
    // condition isn't touched after the wait.
    const KTCriticalSection hold(found->second.second);
    found->second.first->wait(found->second.second);
}

void KTConditionManager::triggerCondition(const std::string& name)
{
    const auto found = events.find(name);
    if (found != events.end() && found->second.first) {
        // Without the event's mutex: a waiter that has it, but doesn't wait yet, misses the
        // trigger.
        found->second.first->broadcast();
    }
}

}  // namespace KT
