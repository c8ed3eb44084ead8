/// \file
/// The error that stands for "this was never done".
#pragma once

#include <string>

#include <kterror/KTError.h>

#include <ktasync/export.h>

namespace KT {

/// What a future or a group throws for a task that was cancelled before it began, dropped by a
/// shutdown, or cut off by a forced one. A callable may throw it too, to say that it gave up.
/// \code
/// try {
///     use(future.get());
/// } catch (const KT::KTCancelled&) {
///     // nobody will ever do it
/// }
/// \endcode
///
/// \ingroup ktasync
class KTASYNC_EXPORT KTCancelled : public KTError {
public:
    /// Says that `task` was not done. Doesn't block. Throws std::bad_alloc.
    ///
    /// \param task  is named in the text
    explicit KTCancelled(const std::string& task);
};

}  // namespace KT
