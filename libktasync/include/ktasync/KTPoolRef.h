/// \file
/// How the functions of this library take a pool.
#pragma once

#include <memory>

#include <boost/shared_ptr.hpp>

#include <ktasync/detail/ShortName.h>
#include <ktasync/export.h>

namespace KT {

class KTScopedPool;
class KTThreadPool;

namespace detail {
class PoolContext;
}

/// A running pool, and the place in the code that names it. Both kinds of pool turn into one by
/// themselves; a client has no need to write the type:
/// \code
/// KT::submit(scopedPool, callable);
/// KT::submit(boostSharedPool, callable);
/// \endcode
/// It keeps the pool object alive, but doesn't keep it running. A value, as safe as a pointer.
/// Nothing here blocks.
///
/// \ingroup ktasync
class KTASYNC_EXPORT KTPoolRef {
public:
    /// A pool of the core. Throws KTError for a null pointer. The place is the caller's; leave it
    /// to the compiler.
    ///
    /// \param pool      shared
    /// \param function  that the call is in; copied
    /// \param file      that the call is in; its name without folder and ending is copied
    /// \param line      that the call is in
    // NOLINTNEXTLINE(google-explicit-constructor)
    KTPoolRef(const boost::shared_ptr<KTThreadPool>& pool,
              const char* function = __builtin_FUNCTION(), const char* file = __builtin_FILE(),
              int line = __builtin_LINE());

    /// A pool for a scope. Throws KTError if the pool was moved away.
    ///
    /// \param pool      whose pool is shared; the object itself may go
    /// \param function  that the call is in; copied
    /// \param file      that the call is in; its name without folder and ending is copied
    /// \param line      that the call is in
    // NOLINTNEXTLINE(google-explicit-constructor)
    KTPoolRef(const KTScopedPool& pool, const char* function = __builtin_FUNCTION(),
              const char* file = __builtin_FILE(), int line = __builtin_LINE());

    /// The pool. Throws nothing, as the rest.
    ///
    /// \return  never null
    const boost::shared_ptr<KTThreadPool>& pool() const { return target; }

    /// What tasks are called that get no name: the calling function, or, in a lambda, the file and
    /// the line.
    ///
    /// \return  15 characters of it at most
    const detail::ShortName& defaultName() const { return place; }

    /// What this library keeps beside the pool. Not for clients.
    ///
    /// \return  null if nothing
    const std::shared_ptr<detail::PoolContext>& context() const { return kept; }

private:
    boost::shared_ptr<KTThreadPool> target;
    std::shared_ptr<detail::PoolContext> kept;
    detail::ShortName place;
};

}  // namespace KT
