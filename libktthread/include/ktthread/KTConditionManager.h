/// \file
/// Condition variables that threads find by name.
#pragma once

#include <map>
#include <string>
#include <utility>

#include <boost/shared_ptr.hpp>

#include <ktthread/KTCondition.h>
#include <ktthread/KTMutex.h>
#include <ktthread/export.h>

namespace KT {

/// A board of named events without memory: a trigger wakes the threads that wait at that moment,
/// and no others.
/// \code
/// KT::KTConditionManager events;
/// events.addCondition("configured");
/// // one thread                             // another
/// events.waitForCondition("configured");    events.triggerCondition("configured");
/// \endcode
/// Waiting and triggering may be done by any number of threads at once. The map has no lock:
/// addCondition must not overlap with any other call, so add all names before threads use them.
///
/// A trigger between a waiter's look-up and its sleep doesn't wake it. A client that must not miss
/// one keeps a flag beside the event, and triggers until the waiter has seen the flag.
///
/// It can't be copied. Only addCondition throws.
///
/// \ingroup ktthread
class KTTHREAD_EXPORT KTConditionManager {
public:
    /// A board without names.
    KTConditionManager();

    /// A thread that still waits on a name returns, as from a spurious wake-up.
    virtual ~KTConditionManager();

    KTConditionManager(const KTConditionManager&) = delete;
    KTConditionManager& operator=(const KTConditionManager&) = delete;

    /// Registers `name`; an empty name is ignored. A name that exists gets a new condition, and
    /// threads that waited on the old one return. Throws std::bad_alloc; the name then counts as
    /// unregistered. Blocks only until those threads have left it.
    ///
    /// \param name  copied
    void addCondition(const std::string& name);

    /// Blocks until `name` is triggered, or until a spurious wake-up. Returns at once if the name
    /// isn't registered. A cancellation point. It has no time limit; KTCondition::waitFor has one.
    ///
    /// \param name  of the event
    void waitForCondition(const std::string& name);

    /// Wakes every thread that waits on `name`. Does nothing if it isn't registered. Doesn't block.
    ///
    /// \param name  of the event
    void triggerCondition(const std::string& name);

private:
    typedef std::pair<boost::shared_ptr<KTCondition>, boost::shared_ptr<KTMutex> > Event;

    std::map<std::string, Event> events;
};

}  // namespace KT
