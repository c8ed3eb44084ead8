#include <ktasync/KTPoolRef.h>

#include <kterror/KTError.h>

#include <ktasync/KTScopedPool.h>

#include "../scheduler/Scheduler.h"

namespace KT {

namespace {

void checkPool(const boost::shared_ptr<KTThreadPool>& pool, const char* function, const char* file,
               int line)
{
    if (!pool) {
        throw KTError("ktasync", function, "there is no pool: the pointer is null, or moved from",
                      file, static_cast<unsigned>(line));
    }
}

}  // namespace

KTPoolRef::KTPoolRef(const boost::shared_ptr<KTThreadPool>& pool, const char* inFunction,
                     const char* inFile, int inLine)
    : target(&pool), function(inFunction), file(inFile), line(inLine)
{
    checkPool(pool, function, file, line);
    itsScheduler = &detail::Scheduler::of(pool);
}

KTPoolRef::KTPoolRef(const KTScopedPool& pool, const char* inFunction, const char* inFile,
                     int inLine)
    : target(&pool.owned),
      itsScheduler(pool.scheduler),
      function(inFunction),
      file(inFile),
      line(inLine)
{
    checkPool(pool.owned, function, file, line);
}

}  // namespace KT
