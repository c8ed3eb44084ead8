/// Loops in pieces.
#pragma once

#include <cstddef>
#include <type_traits>

#include <ktasync/KTPoolRef.h>
#include <ktasync/export.h>

namespace KT {
namespace detail {

struct Piece {
    std::size_t number;
    std::size_t begin;  ///< of passes, counted from 0
    std::size_t end;
};

/// `passes` passes in pieces of `grain`, the last one perhaps smaller.
class KTASYNC_EXPORT Pieces {
public:
    /// Throws KTError for a negative grain.
    Pieces(std::size_t passes, std::ptrdiff_t grain);

    std::size_t number() const { return count; }
    Piece at(std::size_t number) const;

private:
    std::size_t passes;
    std::size_t size;
    std::size_t count;
};

/// Throws KTError.
[[noreturn]] KTASYNC_EXPORT void refuseNegativeBound();

/// The type that the bounds of a loop have in common.
template <typename First, typename Last>
struct IndexOf {
    static constexpr bool possible = std::is_integral_v<First> && std::is_integral_v<Last> &&
                                     !std::is_same_v<First, bool> && !std::is_same_v<Last, bool>;
    static_assert(possible, "a loop goes over integers");
    using type = std::common_type_t<std::conditional_t<possible, First, int>,
                                    std::conditional_t<possible, Last, int>>;
};

/// A bound of a loop in that type.
template <typename Index, typename Bound>
Index asIndex(Bound bound)
{
    if constexpr (std::is_signed_v<Bound> && std::is_unsigned_v<Index>) {
        if (bound < 0) {
            refuseNegativeBound();
        }
    }
    return static_cast<Index>(bound);
}

/// The integers from `first` to `last`, by their distance from `first`; empty if `last` is not
/// greater. The distance may be more than the type itself can say.
template <typename Index>
class Span {
public:
    Span(Index firstIndex, Index lastIndex)
        : first(static_cast<Unsigned>(firstIndex)),
          length(firstIndex < lastIndex ? static_cast<Unsigned>(lastIndex) - first : 0)
    {
    }

    std::size_t size() const { return static_cast<std::size_t>(length); }
    Index at(std::size_t distance) const
    {
        return static_cast<Index>(static_cast<Unsigned>(first + distance));
    }

private:
    using Unsigned = std::make_unsigned_t<Index>;
    Unsigned first;
    Unsigned length;
};

/// Calls `piece(context, p)` for each piece, on the workers and on the calling thread.
KTASYNC_EXPORT void runPieces(const KTPoolRef& pool, const Pieces& pieces,
                              void (*piece)(void* context, Piece p), void* context);

template <typename Body>
void forEachPiece(const KTPoolRef& pool, const Pieces& pieces, Body&& body)
{
    using Function = std::remove_reference_t<Body>;
    runPieces(
        pool, pieces, [](void* context, Piece piece) { (*static_cast<Function*>(context))(piece); },
        const_cast<std::remove_const_t<Function>*>(&body));
}

}  // namespace detail
}  // namespace KT
