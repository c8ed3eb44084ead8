/// What a scheduler queues and its carriers run.
#pragma once

#include <atomic>
#include <cstddef>
#include <string_view>

#include <boost/smart_ptr/intrusive_ref_counter.hpp>

#include <ktasync/detail/ShortName.h>
#include <ktasync/export.h>

namespace KT {
namespace detail {

class WorkList;
class WorkQueue;

/// The base of a job: a name, and what it takes to wait in a queue. A queue holds a reference to
/// each work in it. Its address leaves four bits free, for CurrentWork.
class KTASYNC_EXPORT Work : public boost::intrusive_ref_counter<Work> {
public:
    virtual ~Work();
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    /// Blocks of memory are used again, from thread to thread.
    // NOLINTNEXTLINE(misc-new-delete-overloads) the sized delete belongs to it
    static void* operator new(std::size_t size);
    static void operator delete(void* block, std::size_t size);

    std::string_view name() const { return shortName.view(); }
    const ShortName& fixedName() const { return shortName; }
    /// For what keeps a list of the work, such as a group: here it takes no memory.
    std::atomic<bool>& ownersFlag() { return flag; }

    /// Runs it, unless another thread does. On a carrier's thread, where cancellation is disabled;
    /// no exception but the forced unwinding comes out.
    virtual void execute() = 0;
    /// Ends it without having run, unless another thread runs it.
    virtual void abandon() = 0;
    /// Asks it to end early, while `execute` goes on.
    virtual void requestStop() = 0;

protected:
    explicit Work(std::string_view workName) : shortName(workName) {}

    /// Takes the work out of the queue that it is in, if any: the reference that the queue held is
    /// released.
    KTASYNC_HIDDEN void leaveQueue();

    // What has happened to the work: bits, of which derived classes may use those from `firstFree`
    // on.
    static constexpr unsigned short counted = 1;  ///< a scheduler counts it as unfinished
    static constexpr unsigned short ended = 2;    ///< it will never be queued, or has been
    static constexpr unsigned short firstFree = 4;
    std::atomic<unsigned short> state{0};

private:
    std::atomic<bool> flag{false};

    friend class WorkList;
    friend class WorkQueue;

    // Of the list that it is in.
    Work* nextInList = nullptr;
    Work* previousInList = nullptr;
    /// The queue that it is in; written under the mutex of that.
    std::atomic<WorkQueue*> queue{nullptr};
    const ShortName shortName;
} __attribute__((aligned(16)));

}  // namespace detail
}  // namespace KT
