/// Loops in pieces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
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

/// Throws KTError: no integer of 64 bits holds both bounds.
[[noreturn]] KTASYNC_EXPORT void refuseBounds();

/// The type in which a loop counts from a `First` to a `Last`.
template <typename First, typename Last>
struct IndexOf {
    static constexpr bool possible = std::is_integral_v<First> && std::is_integral_v<Last> &&
                                     !std::is_same_v<First, bool> && !std::is_same_v<Last, bool>;
    static_assert(possible, "a loop goes over integers");
    using Common = std::common_type_t<std::conditional_t<possible, First, int>,
                                      std::conditional_t<possible, Last, int>>;
    /// Whether negative values of one bound are not among those of `Common`.
    static constexpr bool losesSign =
        std::is_unsigned_v<Common> && (std::is_signed_v<First> || std::is_signed_v<Last>);
    /// Whether it takes the values to choose one.
    static constexpr bool dependsOnValues = losesSign && sizeof(Common) == sizeof(std::uint64_t);
    using type = std::conditional_t<losesSign, std::int64_t, Common>;
};

template <typename Bound>
bool isNegative([[maybe_unused]] Bound bound)
{
    if constexpr (std::is_signed_v<Bound>) {
        return bound < 0;
    } else {
        return false;
    }
}

/// Whether a std::int64_t holds it.
template <typename Bound>
bool fitsSigned(Bound bound)
{
    return isNegative(bound) || static_cast<std::uint64_t>(bound) <=
                                    std::uint64_t(std::numeric_limits<std::int64_t>::max());
}

/// The integers from `first` to `last`, by their distance from `first`; empty if `last` is not
/// greater. The distance may be more than the type itself can say.
template <typename T>
class Span {
public:
    using Index = T;

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

/// Calls `loop` with the Span from `first` to `last`, in a type that holds both.
template <typename First, typename Last, typename Loop>
auto withSpan(First first, Last last, Loop&& loop)
{
    using Chosen = IndexOf<First, Last>;
    using Index = typename Chosen::type;
    if constexpr (Chosen::dependsOnValues) {
        if (!isNegative(first) && !isNegative(last)) {
            return loop(Span<std::uint64_t>(static_cast<std::uint64_t>(first),
                                            static_cast<std::uint64_t>(last)));
        }
        if (!fitsSigned(first) || !fitsSigned(last)) {
            refuseBounds();
        }
    }
    return loop(Span<Index>(static_cast<Index>(first), static_cast<Index>(last)));
}

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
