/// \file
/// How another library runs work of its own on a pool's workers.
#pragma once

#include <cstddef>

#include <boost/smart_ptr/intrusive_ref_counter.hpp>

#include <ktthread/KTTask.h>
#include <ktthread/KTThreadPoolStatus.h>
#include <ktthread/export.h>

namespace KT {

class KTThreadPool;

/// A task that brings an extension's work to a worker. The pool runs it as any other, but it is no
/// task to those who look at the pool: no probe tells of it, and its extension takes it out of the
/// figures of `KTThreadPool::status`.
/// \code
/// struct Drain : KT::KTCarrier {
///     void run() override { /* the extension's work, until there is none */ }
/// };
/// \endcode
///
/// \ingroup ktthread_own
class KTTHREAD_EXPORT KTCarrier : public KTTask {
public:
    ~KTCarrier() override;

protected:
    /// As a KTTask's constructor.
    KTCarrier();

    /// For `run`. The slot may be another one later on.
    ///
    /// \return  that of the worker in the pool's table
    int slotOfWorker() const;
};

/// What a library keeps beside a pool, and hears from it. A pool has one at most: see
/// KTThreadPool::attach. The pool shares it, and releases it last. Any thread may call its
/// operations, at the same time, with no lock held; they don't block and throw nothing.
///
/// \code
/// struct Counted : KT::KTPoolExtension {
///     void tasksQueued() override { ++batches; }
///     void dropQueued() override {}
///     void amend(KT::KTThreadPoolStatus&) const override {}
///     std::atomic<int> batches{0};
/// };
/// // pool->attach(new Counted)
/// \endcode
///
/// \ingroup ktthread_own
class KTTHREAD_EXPORT KTPoolExtension : public boost::intrusive_ref_counter<KTPoolExtension> {
public:
    KTPoolExtension();
    virtual ~KTPoolExtension();
    KTPoolExtension(const KTPoolExtension&) = delete;
    KTPoolExtension& operator=(const KTPoolExtension&) = delete;

    /// Tasks that aren't carriers have been queued.
    virtual void tasksQueued() = 0;

    /// The pool has dropped the tasks in its queue, and the extension is to drop its own work: at
    /// the start of each shutdown, and when the last worker has ended.
    virtual void dropQueued() = 0;

    /// Adds what the extension has in its own queue to the pool's figures, and takes out its
    /// carriers.
    ///
    /// \param status  of the pool alone
    virtual void amend(KTThreadPoolStatus& status) const = 0;

    /// Which worker the calling thread is, for `standInFor`.
    ///
    /// \return  null if it is none
    static const void* workerOfThisThread();

    /// Has the calling thread count as a worker (KTThreadPool::runningInThisThread), to its end:
    /// for a thread that a worker's task has made to do a part of it, and that the worker waits
    /// for. The pool can't wait for such a thread either.
    ///
    /// \param worker  what workerOfThisThread has said on that one; null: of no pool
    static void standInFor(const void* worker);

    /// How many tools listen to a probe: for an extension whose work is too short to tell of each
    /// piece while nobody listens.
    struct Listeners {
        const volatile unsigned short* queued;   ///< to task_queued
        const volatile unsigned short* started;  ///< to task_started
        const volatile unsigned short* ended;    ///< to task_ended
    };
    /// \return  where the tools count themselves; always 0 in a build without probes
    static Listeners probeListeners();

    /// Fires the probe task_queued for work that is queued with the extension.
    ///
    /// \param pool    that it is for
    /// \param name    of the work, null-terminated
    /// \param queued  how much of it waits
    static void probeQueued(const KTThreadPool* pool, const char* name, std::size_t queued);

    /// Fires the probe task_started.
    ///
    /// \param pool    that it is for
    /// \param name    of the work, null-terminated
    /// \param worker  its slot; -1 if another thread does the work
    /// \param queued  how much of it waits
    static void probeStarted(const KTThreadPool* pool, const char* name, int worker,
                             std::size_t queued);

    /// Fires the probe task_ended.
    ///
    /// \param pool    that it is for
    /// \param name    of the work, null-terminated
    /// \param worker  its slot; -1 if another thread does the work
    /// \param queued  how much of it waits
    static void probeEnded(const KTThreadPool* pool, const char* name, int worker,
                           std::size_t queued);
};

}  // namespace KT
