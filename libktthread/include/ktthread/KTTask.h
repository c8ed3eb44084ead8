/// \file
/// The unit of work that a pool runs.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <ro/os.h>

#include <ktthread/export.h>

namespace KT {

class KTThread;

/// The abstract task. A client derives from it, holds it by boost::shared_ptr and enqueues it.
/// \code
/// struct Greet : KT::KTTask {
///     Greet() { setTaskName("greet"); }
///     void run() override
///     {
///         setExecutionTime();
///         std::puts("hello");
///         setEndTime();
///     }
/// };
/// \endcode
/// | state        | set by                                                        |
/// |--------------|---------------------------------------------------------------|
/// | 0 (waiting)  | the constructor, setCreationTime                              |
/// | 1 (running)  | the worker just before run(), setExecutionTime                |
/// | 2 (finished) | the worker after run(), a KTError included, setEndTime        |
///
/// The task has no lock. Its state and its link to a worker may be read at any time; all else
/// belongs to one thread at a time, and each sees what the one before wrote: the client's until it
/// enqueues, then the worker's until it has released the task, which is after its report. The state
/// is 2 before that: waitForEndOfTask shows the caller what run() wrote, but the task may be named,
/// stamped or enqueued again only once the worker holds no reference, or the pool is joined. The
/// worker stamps no time: a body that wants its waiting time counted begins with
/// setExecutionTime().
///
/// It can't be copied. Only waitForEndOfTask blocks, and only operations that say so throw.
///
/// \ingroup ktthread
class KTTHREAD_EXPORT KTTask {
public:
    /// A task named "undefined", created now.
    KTTask();
    /// Runs on the thread that releases the last reference, such as a worker's, or one that shuts
    /// the pool down.
    virtual ~KTTask();
    KTTask(const KTTask&) = delete;
    KTTask& operator=(const KTTask&) = delete;

    /// The body, called once per execution on a worker's thread. It may throw KTError, which is
    /// logged; any other exception that leaves it ends the process. A forced shutdown cancels the
    /// thread inside it: let no destructor or noexcept function in it reach a cancellation point.
    virtual void run() = 0;

    /// Asks the body to return early; does nothing unless overridden. Called on the thread that
    /// shuts the pool down, while run() goes on: raise a flag that run() polls, don't block and
    /// don't throw. If the shutdown came while the worker took the task, the worker calls it just
    /// before run(), perhaps as the second call and at the same time as the first.
    virtual void exitTask();

    /// The name that its worker's thread is given. May be overridden.
    ///
    /// \return  a text that lives as long as the task, or until it is renamed
    virtual const std::string& getTaskName() const;

    /// Stamps the creation time now and sets the state to waiting.
    void setCreationTime();

    /// Stamps the start of the body now and sets the state to running.
    void setExecutionTime();

    /// Stamps the end of the body now and sets the state to finished: waitForEndOfTask returns.
    void setEndTime();

    /// Microseconds between creation and start of the body, wrapping at 2^31 (some 35 minutes).
    /// Meaningful only for a task that called setExecutionTime(): the stamp is zero before.
    ///
    /// \return  microseconds
    std::int32_t getIdleTime() const;

    /// Microseconds between start and end of the body, wrapping at 2^31, if both were stamped.
    ///
    /// \return  microseconds
    std::int32_t getExecutionTime() const;

    /// Blocks until the state is finished, looking every 100 ms; a finished task returns at once.
    /// It never returns for a task that is never run, or that a shutdown dropped or cut off: a
    /// client that needs a time limit waits on a condition of its own, which run() signals at its
    /// end. A cancellation point.
    void waitForEndOfTask();

    /// Links the task to the worker that runs it; the workers call it. Takes no ownership.
    ///
    /// \param thread  the worker; empty: none
    void setThread(boost::shared_ptr<KTThread> thread);

    /// The kernel shows the first seven characters while the task runs. Throws std::bad_alloc.
    ///
    /// \param name  copied
    void setTaskName(const std::string& name);

    /// A report of six lines: name, the three stamps (UTC), the worker and the state. Any thread
    /// may call it while a worker runs the task, unless the body renames it. The days of a stamp
    /// are shown only while they are 0 or negative, so a wall-clock stamp reads as the time of day.
    /// The worker's address has its "0x" twice, as the format has always had it. Throws
    /// std::bad_alloc.
    ///
    /// \return  the report, with a line end after each line
    std::string toString() const;

    /// If true, the monitor drops its reference as soon as it has counted the task's waiting time.
    /// It has no other effect.
    bool autoDelete;

protected:
    std::string taskName;             ///< what setTaskName sets
    ro::os::timeval creationTime;     ///< stamped by the constructor
    ro::os::timeval executionTime;    ///< zero until stamped
    ro::os::timeval endTime;          ///< zero until stamped
    std::atomic<std::int32_t> state;  ///< 0 to 2, see above

private:
    friend class KTCarrier;
    friend class KTThread;
    friend class KTThreadPool;

    bool isCarrier;  ///< no task of its own: see KTCarrier

    boost::weak_ptr<KTThread> managingThread;
};

}  // namespace KT
