#include "PoolNames.h"

#include <array>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <fcntl.h>

#include <ktthread/WorkerMapLayout.h>

namespace {

const std::int64_t nsBetweenSearches = 5'000'000'000;

/// A process that has more is up to something else.
const std::size_t mostMaps = 8;

const std::string wantedLink = std::string("/memfd:") + KT::core::workerMapName + " (deleted)";

bool leadsToAMap(int folder, const char* entry)
{
    std::array<char, 64> link{};
    const ssize_t length = readlinkat(folder, entry, link.data(), link.size());
    return length > 0 &&
           std::string_view(link.data(), static_cast<std::size_t>(length)) == wantedLink;
}

}  // namespace

struct PoolNames::Map : KT::core::WorkerMapLayout<std::int32_t> {};

PoolNames::PoolNames(std::string folder, int pid)
    : fdFolder(std::move(folder) + "/fd"), process(pid)
{
}

PoolNames::PoolNames(PoolNames&& other) noexcept = default;

PoolNames::~PoolNames() = default;

void PoolNames::read(std::int64_t nowNs)
{
    if (missed && nowNs >= nextSearchNs) {
        find();
        nextSearchNs = nowNs + nsBetweenSearches;
    }
    missed = false;
    names.clear();
    for (const FileDescriptor& map : maps) {
        readFrom(map);
    }
}

void PoolNames::find()
{
    maps.clear();
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(fdFolder.c_str()), closedir);
    while (const dirent* const entry = listing ? readdir(listing.get()) : nullptr) {
        const int folder = dirfd(listing.get());
        if (maps.size() < mostMaps && leadsToAMap(folder, entry->d_name)) {
            // A device or a pipe may have the number by now: no wait for that.
            const int flags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
            maps.emplace_back(openat(folder, entry->d_name, flags));
        }
    }
}

void PoolNames::readFrom(const FileDescriptor& map)
{
    if (!buffer) {
        buffer = std::make_unique<Map>();
    }
    const ssize_t got = pread(map.get(), buffer.get(), sizeof(Map), 0);
    // A child that was forked has its parent's map as well.
    if (got != ssize_t{sizeof(Map)} || buffer->magic != KT::core::workerMapMagic ||
        buffer->process != process) {
        return;
    }
    for (const Map::Place& place : buffer->places) {
        const std::string_view bytes(place.pool, sizeof place.pool - 1);
        if (place.thread > 0 && bytes.front() != '\0') {
            names[place.thread] = bytes.substr(0, bytes.find('\0'));
        }
    }
}

std::string PoolNames::of(int thread)
{
    const auto found = names.find(thread);
    missed = missed || found == names.end();
    return found == names.end() ? "" : found->second;
}
