/// Loops whose passes are shared out among the pool's workers and the calling thread.
///
/// Prints:
///     168 primes below 1000
///     pi is about 3.14159265
///     AB CD EF
#include <cctype>
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include <ktasync/ktasync.h>

bool isPrime(int n)
{
    for (int divisor = 2; divisor * divisor <= n; ++divisor) {
        if (n % divisor == 0) {
            return false;
        }
    }
    return n > 1;
}

int main()
{
    const KT::KTScopedPool pool;

    // Each pass writes to a place of its own. (Not to a vector<bool>, whose places share bytes.)
    std::vector<char> prime(1000);
    KT::parallelFor(pool, 0, 1000, [&](int n) { prime[std::size_t(n)] = isPrime(n) ? 1 : 0; });

    // The sum is put together in the same order each time, so it is always rounded the same way.
    const int primes =
        KT::parallelReduce(pool, 0, 1000, 0, [&](int n) { return int(prime[std::size_t(n)]); });
    std::printf("%d primes below 1000\n", primes);

    const int slices = 100000;
    const double pi = KT::parallelReduce(pool, 0, slices, 0.0, [](int i) {
        const double x = (i + 0.5) / slices;
        return 4 / (1 + x * x) / slices;
    });
    std::printf("pi is about %.8f\n", pi);

    std::vector<std::string> words = {"ab", "cd", "ef"};
    KT::parallelForEach(pool, words, [](std::string& word) {
        for (char& letter : word) {
            letter = char(std::toupper(letter));
        }
    });
    std::printf("%s %s %s\n", words[0].c_str(), words[1].c_str(), words[2].c_str());
}
