// Compiled by itself: the probes in here have counters of those who listen, unlike the core's own.
#ifdef KT_PROBES
// The names are those of sys/sdt.h, and the section is where tools look for the counters.
#define _SDT_HAS_SEMAPHORES 1  // NOLINT(bugprone-reserved-identifier)
extern "C" {
#define KT_LISTENERS(probe) \
    __attribute__((section(".probes"))) volatile unsigned short ktthread_##probe##_semaphore
KT_LISTENERS(task_queued);
KT_LISTENERS(task_started);
KT_LISTENERS(task_ended);
}
#endif

#include <ktthread/KTPoolExtension.h>

#include <mutex>

#include <ktthread/KTThread.h>
#include <ktthread/KTThreadPool.h>

#include "LiveThreadCount.h"
#include "Probes.h"
#include "TaskLink.h"

namespace KT {

KTCarrier::KTCarrier()
{
    isCarrier = true;
}

KTCarrier::~KTCarrier() = default;

int KTCarrier::slotOfWorker() const
{
    boost::shared_ptr<KTThread> worker;  // released after the mutex
    const std::lock_guard<std::mutex> hold(core::taskLinkMutex(this));
    worker = managingThread.lock();
    return worker ? worker->index : -1;
}

KTPoolExtension::KTPoolExtension() = default;

KTPoolExtension::~KTPoolExtension() = default;

const void* KTPoolExtension::workerOfThisThread()
{
    return KTLiveThreadCount::ofThisThread();
}

void KTPoolExtension::standInFor(const void* worker)
{
    KTLiveThreadCount::countThisThreadAs(static_cast<const KTLiveThreadCount*>(worker));
}

KTPoolExtension::Listeners KTPoolExtension::probeListeners()
{
#ifdef KT_PROBES
    return {&ktthread_task_queued_semaphore, &ktthread_task_started_semaphore,
            &ktthread_task_ended_semaphore};
#else
    static const volatile unsigned short none = 0;
    return {&none, &none, &none};
#endif
}

void KTPoolExtension::probeQueued(const KTThreadPool* pool, const char* name, std::size_t queued)
{
    KT_PROBE(task_queued, pool, KT_AT(name), KT_IS(-1), KT_AT(queued));
}

void KTPoolExtension::probeStarted(const KTThreadPool* pool, const char* name, int worker,
                                   std::size_t queued)
{
    KT_PROBE(task_started, pool, KT_AT(name), KT_AT(worker), KT_AT(queued));
}

void KTPoolExtension::probeEnded(const KTThreadPool* pool, const char* name, int worker,
                                 std::size_t queued)
{
    KT_PROBE(task_ended, pool, KT_AT(name), KT_AT(worker), KT_AT(queued));
}

}  // namespace KT
