/// How the elements of a range are passed on.
#pragma once

#include <iterator>
#include <type_traits>
#include <utility>

namespace KT {
namespace detail {

template <typename Range>
using ElementOf = decltype(*std::begin(std::declval<Range&>()));

/// Whether a range has elements of its own, as a container does: they are constant where it is. A
/// view lets the elements of some container be changed all the same.
template <typename Range, typename = void>
inline constexpr bool ownsItsElements = false;
template <typename Range>
inline constexpr bool ownsItsElements<Range, std::void_t<ElementOf<const Range>>> =
    std::is_const_v<std::remove_reference_t<ElementOf<const Range>>>;

/// As what type to pass on the elements of an argument of type `Range&&`: for moving only if they
/// go with a range that the caller has given away.
template <typename Range>
using PassedElement =
    std::conditional_t<!std::is_lvalue_reference_v<Range> && ownsItsElements<Range>,
                       std::remove_reference_t<ElementOf<Range>>&&, ElementOf<Range>&&>;

}  // namespace detail
}  // namespace KT
