#include <ktasync/KTPoolRef.h>

#include <kterror/KTError.h>

#include <ktasync/KTScopedPool.h>

#include "PoolContext.h"

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

KTPoolRef::KTPoolRef(const boost::shared_ptr<KTThreadPool>& pool, const char* function,
                     const char* file, int line)
    : target(pool), place(function, file, line)
{
    checkPool(pool, function, file, line);
    kept = detail::PoolContext::find(pool);
}

KTPoolRef::KTPoolRef(const KTScopedPool& pool, const char* function, const char* file, int line)
    : target(pool.owned), kept(pool.context), place(function, file, line)
{
    checkPool(target, function, file, line);
}

}  // namespace KT
