/// Futures: results of tasks, work that goes on from a result, and what becomes of exceptions.
///
/// Prints:
///     6 times 7 is 42
///     the squares add up to 30
///     instead of a number: 'seven' is no number
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <ktasync/ktasync.h>

int numberIn(const std::string& text)
{
    if (text.find_first_not_of("0123456789") != std::string::npos) {
        throw std::runtime_error("'" + text + "' is no number");
    }
    return std::stoi(text);
}

int main()
{
    KT::KTScopedPool pool;

    // A task for the number, and one for the text as soon as there is a number.
    KT::KTFuture<std::string> text = KT::submit(pool, "parse", numberIn, "42").then([](int n) {
        return "6 times 7 is " + std::to_string(n);
    });
    std::printf("%s\n", text.get().c_str());

    // Many at once are cheaper than one after the other.
    std::vector<std::function<int()>> squares;
    for (int i = 1; i <= 4; ++i) {
        squares.emplace_back([i] { return i * i; });
    }
    int sum = 0;
    for (KT::KTFuture<int>& square : KT::submitAll(pool, "square", std::move(squares))) {
        sum += square.get();
    }
    std::printf("the squares add up to %d\n", sum);

    // An exception passes by what was to go on from the result, and comes out of get().
    KT::KTFuture<int> twice =
        KT::submit(pool, "parse", numberIn, "seven").then([](int n) { return 2 * n; });
    try {
        twice.get();
    } catch (const std::runtime_error& error) {
        std::printf("instead of a number: %s\n", error.what());
    }
}
