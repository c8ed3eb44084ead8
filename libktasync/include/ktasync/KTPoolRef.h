/// \file
/// How the functions of this library take a pool.
#pragma once

#include <boost/shared_ptr.hpp>

#include <ktasync/detail/ShortName.h>
#include <ktasync/export.h>

namespace KT {

class KTScopedPool;
class KTThreadPool;

namespace detail {
class Scheduler;
}

/// A running pool, and the place in the code that names it. Both kinds of pool turn into one by
/// themselves; a client has no need to write the type:
/// \code
/// KT::submit(scopedPool, callable);
/// KT::submit(boostSharedPool, callable);
/// \endcode
/// It is meant for parameters: it refers to what it was made from, and to the names, which must
/// outlive it. A value, as safe as a pointer. Nothing here blocks.
///
/// \ingroup ktasync
class KTASYNC_EXPORT KTPoolRef {
public:
    /// A pool of the core. Throws KTError for a null pointer; std::bad_alloc if this library
    /// hasn't used the pool before. The place is the caller's; leave it to the compiler.
    ///
    /// \param pool      not copied
    /// \param function  that the call is in; not copied
    /// \param file      that the call is in; not copied
    /// \param line      that the call is in
    // NOLINTNEXTLINE(google-explicit-constructor)
    KTPoolRef(const boost::shared_ptr<KTThreadPool>& pool,
              const char* function = __builtin_FUNCTION(), const char* file = __builtin_FILE(),
              int line = __builtin_LINE());

    /// A pool for a scope. Throws KTError if the pool was moved away.
    ///
    /// \param pool      not copied
    /// \param function  that the call is in; not copied
    /// \param file      that the call is in; not copied
    /// \param line      that the call is in
    // NOLINTNEXTLINE(google-explicit-constructor)
    KTPoolRef(const KTScopedPool& pool, const char* function = __builtin_FUNCTION(),
              const char* file = __builtin_FILE(), int line = __builtin_LINE());

    /// The pool. Throws nothing, as the rest.
    ///
    /// \return  never null
    const boost::shared_ptr<KTThreadPool>& pool() const { return *target; }

    /// What tasks are called that get no name: the calling function, or, in a lambda, the file and
    /// the line.
    ///
    /// \return  15 characters of it at most
    detail::ShortName defaultName() const { return {function, file, line}; }

    /// What brings tasks to the pool. Not for clients.
    ///
    /// \return  lives as long as the pool
    detail::Scheduler& scheduler() const { return *itsScheduler; }

private:
    const boost::shared_ptr<KTThreadPool>* target;
    detail::Scheduler* itsScheduler;
    const char* function;
    const char* file;
    int line;
};

}  // namespace KT
