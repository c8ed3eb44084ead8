#include <ktthread/KTMonitor.h>

#include <utility>

#include <ktthread/KTCriticalSection.h>
#include <ktthread/KTThread.h>
#include <ktthread/KTThreadPool.h>

#include "PoolLoad.h"
#include "Probes.h"
#include "SpinGate.h"
#include "TimeStamps.h"

namespace KT {

namespace {

/// From this many busy workers on, a monitor requests no more.
const int busyLimit = 190;

}  // namespace

KTMonitor::KTMonitor(int tasksPerLook, int second, int third,
                     boost::shared_ptr<KTThreadPool> watched)
    : pool(std::move(watched)),
      mutex(KTMutex::createKTMutex()),
      period(tasksPerLook),
      param2(second),
      param3(third),
      taskCount(0),
      idleSeconds(0),
      idleMicroseconds(0),
      gate(false)
{
}

KTMonitor::~KTMonitor() = default;

// Inline, since each enqueue takes this way.
inline void KTMonitor::lookAtPool(std::vector<boost::shared_ptr<KTThread>>& displaced)
{
    const KTThreadPool::Load load = pool->load();
    if (load.busy >= busyLimit) {
        const KTThreadPool& full = *pool;
        KT_POOL_PROBE(limit_reached, &full, KT_AT(full.queueLength), KT_AT(full.nbThreads),
                      KT_AT(full.maxThreads));
        full.tellLimit(load.busy, load.live);
    } else if (load.busy + 1 >= load.live) {
        pool->resize(1, displaced);
    }
}

void KTMonitor::assimilate(boost::shared_ptr<KTTask> task)
{
    if (!task) {
        return;
    }
    {
        std::vector<boost::shared_ptr<KTThread>> displaced;  // released after the mutex
        const core::SpinThenLock<KTCriticalSection> hold(gate, mutex);
        const std::int32_t sum = core::wrappingSum(idleMicroseconds, task->getIdleTime());
        idleSeconds = core::wrappingSum(idleSeconds, sum / 1000000);
        idleMicroseconds = sum % 1000000;
        taskCount = core::wrappingSum(taskCount, 1);
        // The count wraps after months of tasks, and may then equal a period of 0 or less, which
        // means none.
        if (period > 0 && taskCount == period) {
            taskCount = 0;
            lookAtPool(displaced);
        }
    }
    if (task->autoDelete) {
        task.reset();
    }
}

void KTMonitor::adjustPool()
{
    std::vector<boost::shared_ptr<KTThread>> displaced;
    lookAtPool(displaced);
}

}  // namespace KT
