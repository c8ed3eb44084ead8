#include "Sum.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <system_error>
#include <utility>

Sum sumOf(const KT::KTStopToken& stop, Entry entry, const Digest& digest, Board& board,
          std::chrono::steady_clock::time_point submitted)
{
    using Microseconds = std::chrono::duration<std::int64_t, std::micro>;
    const auto waited =
        std::chrono::duration_cast<Microseconds>(std::chrono::steady_clock::now() - submitted);
    Sum sum;
    sum.waitedUs = static_cast<std::int32_t>(std::min<std::int64_t>(waited.count(), INT32_MAX));
    sum.entry = std::move(entry);
    sum.error = sum.entry.error;
    try {
        if (sum.error.empty()) {
            sum.digest = digestOf(digest, sum.entry.path, [&board, &stop](std::size_t size) {
                board.bytes += size;
                return !stop.stopRequested();
            });
        }
        if (stop.stopRequested()) {
            sum.error = "interrupted";
        }
    } catch (const std::system_error& error) {
        sum.isMissing = error.code().value() == ENOENT;
        sum.error = std::strerror(error.code().value());
    } catch (const std::exception& error) {
        sum.error = error.what();
    }
    ++board.files;
    return sum;
}

std::string nameOf(const Entry& entry)
{
    return entry.path.substr(entry.path.rfind('/') + 1);
}
