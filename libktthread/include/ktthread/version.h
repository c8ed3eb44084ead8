/// \file
/// The version: of these headers, for the preprocessor, and of the library that a program runs
/// with.
///
/// Versions are MAJOR.MINOR.PATCH, as semantic versioning has them: with the same major number, a
/// program goes on working with a newer library without being compiled again.
///
/// \ingroup ktthread
#pragma once

#include <ktthread/export.h>

// The one place that has the number; the build reads it from here.
/// Grows with changes that break programs. \ingroup ktthread
#define KT_VERSION_MAJOR 1
/// Grows with additions. \ingroup ktthread
#define KT_VERSION_MINOR 0
/// Grows with fixes. \ingroup ktthread
#define KT_VERSION_PATCH 0

/// The version of the headers as text, such as "1.2.3".
///
/// \ingroup ktthread
#define KT_VERSION                    \
    KT_VERSION_TEXT(KT_VERSION_MAJOR) \
    "." KT_VERSION_TEXT(KT_VERSION_MINOR) "." KT_VERSION_TEXT(KT_VERSION_PATCH)

/// For comparison: `#if KT_VERSION_NUMBER >= KT_VERSION_NUMBER_OF(1, 2, 0)`.
///
/// \ingroup ktthread
#define KT_VERSION_NUMBER KT_VERSION_NUMBER_OF(KT_VERSION_MAJOR, KT_VERSION_MINOR, KT_VERSION_PATCH)

/// The number that a version has in comparisons; each part is below 1000.
///
/// \param major  grows with changes that break programs
/// \param minor  grows with additions
/// \param patch  grows with fixes
/// \ingroup ktthread
#define KT_VERSION_NUMBER_OF(major, minor, patch) ((major)*1000000 + (minor)*1000 + (patch))

/// A number as text. Not for clients. \ingroup ktthread_own
#define KT_VERSION_TEXT(number) KT_VERSION_TEXT_OF(number)
/// The same without expanding a macro in `number`. \ingroup ktthread_own
#define KT_VERSION_TEXT_OF(number) #number

namespace KT {

/// The version of the library that the program runs with, as KT_VERSION writes it: with a shared
/// library it may be newer than that of the headers. In static storage; any thread may call it, at
/// any time. Doesn't block.
/// \code
/// std::printf("made for %s, runs with %s\n", KT_VERSION, KT::getVersion());
/// \endcode
///
/// \return  a text that is never freed
/// \ingroup ktthread
KTTHREAD_EXPORT const char* getVersion() noexcept;

}  // namespace KT
