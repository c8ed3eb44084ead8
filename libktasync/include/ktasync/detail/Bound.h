/// A callable and what it is to be called with.
#pragma once

#include <functional>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include <ktasync/KTStopToken.h>

namespace KT {
namespace detail {

/// Whether a first argument is a task's name rather than the callable.
template <typename T>
inline constexpr bool isName = std::is_convertible_v<const std::decay_t<T>&, std::string_view>;

/// Calling `F` with `Args`, and with a stop token in front of them where it takes none without.
template <typename F, typename... Args>
struct CallOf {
    static constexpr bool plain = std::is_invocable_v<F, Args...>;
    static constexpr bool withToken = !plain && std::is_invocable_v<F, const KTStopToken&, Args...>;
    static constexpr bool possible = plain || withToken;

    struct NoResult {
        using type = void;
    };
    using Result = typename std::conditional_t<
        plain, std::invoke_result<F, Args...>,
        std::conditional_t<withToken, std::invoke_result<F, const KTStopToken&, Args...>,
                           NoResult>>::type;

    template <typename MakeToken>
    static Result call(F&& callable, [[maybe_unused]] const MakeToken& makeToken, Args&&... args)
    {
        if constexpr (plain) {
            return std::invoke(std::forward<F>(callable), std::forward<Args>(args)...);
        } else {
            return std::invoke(std::forward<F>(callable), makeToken(), std::forward<Args>(args)...);
        }
    }
};

/// Owns copies of a callable and its arguments, and moves from them when it calls it, once.
template <typename F, typename... Args>
class Bound {
public:
    using Call = CallOf<F, Args...>;
    using Result = typename Call::Result;

    template <typename... Parts>
    explicit Bound(std::in_place_t, Parts&&... given) : parts(std::forward<Parts>(given)...)
    {
    }

    template <typename MakeToken>
    Result operator()(const MakeToken& makeToken)
    {
        return std::apply(
            [&makeToken](F& callable, Args&... args) -> Result {
                return Call::call(std::move(callable), makeToken, std::move(args)...);
            },
            parts);
    }

private:
    std::tuple<F, Args...> parts;
};

template <typename F, typename... Args>
using BoundOf = Bound<std::decay_t<F>, std::decay_t<Args>...>;

}  // namespace detail
}  // namespace KT
