/// Jobs that are due because another one has ended.
#pragma once

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ktasync/detail/FutureJob.h>

#include "../scheduler/WorkList.h"

namespace KT {
namespace detail {

/// Jobs that the calling thread queues or drops when its current one has ended.
class Backlog {
public:
    /// Queues `job`, or drops it, as its pool does if it takes none. Without recursion, where that
    /// leads to the same for the next one: a chain may be long. Throws nothing.
    static void passOn(boost::intrusive_ptr<FutureJob> job, bool isToDrop);

    /// The same, at once: for clients. One may wait for the job's end next, and be a destructor
    /// that a job passed on has led to.
    static void queue(boost::intrusive_ptr<FutureJob> job);

private:
    static thread_local Backlog* current;
    WorkList list;
};

}  // namespace detail
}  // namespace KT
