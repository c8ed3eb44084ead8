/// The task of the core that runs work.
#pragma once

#include <atomic>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ktthread/KTPoolExtension.h>

#include <ktasync/detail/CurrentWork.h>
#include "Runner.h"
#include "Scheduler.h"

namespace KT {
namespace detail {

/// Runs a scheduler's work for as long as there is any. Destroyed without having run, by a
/// shutdown, it tells the scheduler.
class Carrier final : public KTCarrier {
public:
    Carrier(Scheduler& itsScheduler, Runner& itsPlace);
    ~Carrier() override;

    void run() override;
    /// Asks the work that runs, and lets no other begin.
    void exitTask() override;

    /// It wasn't queued: its scheduler takes care of its place.
    void disown();
    bool isStopped() const { return current.isStopped(); }

    /// The place of the carrier that the calling thread is in; null in none of `scheduler`.
    static Runner* runnerOfThisThread(const Scheduler& scheduler);
    /// The slot of the worker that the calling thread is; -1 if it runs no carrier.
    static int workerOfThisThread();
    /// Whether the calling thread is a worker with a carrier, which is named after its work.
    static bool isThisThread();

private:
    class Shift;
    void runOne(Work& work);

    const boost::intrusive_ptr<Scheduler> scheduler;
    Runner& runner;
    CurrentWork current;
    bool hasBegun = false;
    std::atomic<bool> isAtWork{false};
};

}  // namespace detail
}  // namespace KT
