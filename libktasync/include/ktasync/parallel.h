/// \file
/// Loops whose passes run on the workers of a pool and on the calling thread.
///
/// The passes are done in pieces of `grain` passes in a row; 0 makes 256 pieces, fewer for short
/// loops. Pieces begin in order. The caller takes part, so a loop ends whatever the pool does, busy
/// or shut down, and loops may be nested to any depth. When a pass throws, pieces that haven't
/// begun are not done any more, and the first exception reaches the caller when all pieces have
/// ended. KTCancelled: a forced shutdown cut a piece off. Bodies are called from several threads at
/// once, and are not copied. All block until the loop has ended; may be called from any thread; are
/// cancellation points; throw KTError for a negative grain, and for bounds that no integer of 64
/// bits holds both; std::bad_alloc, or std::length_error for more pieces than there can be memory
/// for.
///
/// \ingroup ktasync
#pragma once

#include <cstddef>
#include <functional>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include <ktasync/KTPoolRef.h>
#include <ktasync/KTScopedPool.h>
#include <ktasync/detail/Pieces.h>

// Between a signed bound and an unsigned one the loop may have to be compiled for two types of
// indices. What a body takes holds all indices that it is called with: not the compiler's business.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"

namespace KT {

/// Calls `body(i)` for each i from `first` to `last`, without `last`; the types are integers. Where
/// only one of them is signed, i is of a type that holds both: std::int64_t, or std::uint64_t if
/// the other one has 64 bits and neither is negative. \code KT::parallelFor(pool, 0, rows, [&](int
/// row) { render(row); }); \endcode Blocks until the loop has ended, and throws what a pass threw:
/// see parallel.h.
///
/// \param pool   whose workers help
/// \param first  the first index
/// \param last   the one after the last; no passes if it isn't greater
/// \param body   called from several threads at once; not copied
/// \param grain  passes in a piece; 0: chosen
/// \ingroup ktasync
template <typename First, typename Last, typename Body>
void parallelFor(const KTPoolRef& pool, First first, Last last, Body&& body,
                 std::ptrdiff_t grain = 0)
{
    detail::withSpan(first, last, [&](auto span) {
        detail::forEachPiece(pool, detail::Pieces(span.size(), grain), [&](detail::Piece piece) {
            const auto end = span.at(piece.end);
            for (auto i = span.at(piece.begin); i != end; ++i) {
                body(i);
            }
        });
    });
}

/// Calls `body(element)` for each element of `range`, which has forward iterators at least; where
/// they have no random access, a list of them is made first.
/// \code
/// KT::parallelForEach(pool, images, [](Image& image) { image.sharpen(); });
/// \endcode
/// Blocks until the loop has ended, and throws what a pass threw: see parallel.h.
///
/// \param pool   whose workers help
/// \param range  not copied; nobody else may change it meanwhile
/// \param body   called from several threads at once; not copied
/// \param grain  passes in a piece; 0: chosen
/// \ingroup ktasync
template <typename Range, typename Body>
void parallelForEach(const KTPoolRef& pool, Range&& range, Body&& body, std::ptrdiff_t grain = 0)
{
    using Iterator = decltype(std::begin(range));
    using Category = typename std::iterator_traits<Iterator>::iterator_category;
    static_assert(std::is_base_of_v<std::forward_iterator_tag, Category>,
                  "parallelForEach needs a range that can be gone through more than once");
    if constexpr (std::is_base_of_v<std::random_access_iterator_tag, Category>) {
        const Iterator begin = std::begin(range);
        parallelFor(
            pool, std::ptrdiff_t(0), std::ptrdiff_t(std::end(range) - begin),
            [&](std::ptrdiff_t i) { body(begin[i]); }, grain);
    } else {
        std::vector<Iterator> places;
        for (Iterator place = std::begin(range); place != std::end(range); ++place) {
            places.push_back(place);
        }
        parallelForEach(
            pool, places, [&](const Iterator& place) { body(*place); }, grain);
    }
}

/// Combines `map(i)` for each i from `first` to `last`, without `last`:
/// combine(combine(identity, map(first)), map(first + 1)) and so on within a piece, and then the
/// pieces' results in their order. So the result depends on `grain` alone, and not on the machine
/// or on chance, also where `combine` rounds. `combine` must be associative otherwise, and
/// `identity` its neutral element, a copy of which each piece begins with. Holds one result a
/// piece.
/// \code
/// const double sum = KT::parallelReduce(pool, 0, n, 0.0, [&](int i) { return x[i] * y[i]; });
/// \endcode
/// Blocks until the loop has ended, and throws what a pass threw: see parallel.h.
///
/// \param pool      whose workers help
/// \param first     the first index
/// \param last      the one after the last; no passes if it isn't greater
/// \param identity  what combining changes nothing with; the result of no passes
/// \param map       called from several threads at once; not copied
/// \param combine   called from several threads at once, with two values; not copied
/// \param grain     passes in a piece; 0: chosen
/// \return          the whole
/// \ingroup ktasync
template <typename First, typename Last, typename T, typename Map, typename Combine = std::plus<>>
T parallelReduce(const KTPoolRef& pool, First first, Last last, T identity, Map&& map,
                 Combine&& combine = Combine(), std::ptrdiff_t grain = 0)
{
    std::vector<std::optional<T>> results;
    detail::withSpan(first, last, [&](auto span) {
        const detail::Pieces pieces(span.size(), grain);
        results.resize(pieces.number());
        detail::forEachPiece(pool, pieces, [&](detail::Piece piece) {
            T result = identity;
            const auto end = span.at(piece.end);
            for (auto i = span.at(piece.begin); i != end; ++i) {
                result = combine(std::move(result), map(i));
            }
            results[piece.number] = std::move(result);
        });
    });
    T total = std::move(identity);
    for (std::optional<T>& result : results) {
        total = combine(std::move(total), std::move(*result));
    }
    return total;
}

}  // namespace KT

#pragma GCC diagnostic pop
