#include <ktthread/KTPoolExtension.h>

#include <mutex>

#include <ktthread/KTThread.h>

#include "Probes.h"
#include "TaskLink.h"

namespace KT {

KTCarrier::KTCarrier()
{
    isCarrier = true;
}

int KTCarrier::slotOfWorker() const
{
    boost::shared_ptr<KTThread> worker;  // released after the mutex
    const std::lock_guard<std::mutex> hold(core::taskLinkMutex(this));
    worker = managingThread.lock();
    return worker ? worker->index : -1;
}

KTPoolExtension::KTPoolExtension() = default;

KTPoolExtension::~KTPoolExtension() = default;

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
