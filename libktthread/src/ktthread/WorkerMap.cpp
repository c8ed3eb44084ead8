#include "WorkerMap.h"

#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include "WorkerMapLayout.h"

namespace KT::core {

namespace {

using WorkerMap = WorkerMapLayout<std::atomic<std::int32_t>>;
static_assert(sizeof(WorkerMap) == sizeof(WorkerMapLayout<std::int32_t>),
              "kttop reads it without atomics");

/// A forked child sees its parent's here until it has made its own.
std::atomic<WorkerMap*> mapInUse(nullptr);

/// Whether the file has memory for a map. To be had in advance: where there is none left for a
/// page, the write to it would end the process, as would growing beyond the limit of files.
bool hasMemory(int file)
{
    rlimit limit{};
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur >= sizeof(WorkerMap) &&
           fallocate(file, 0, 0, sizeof(WorkerMap)) == 0;
}

/// A map with its descriptor, taken back in the end unless it is kept.
class NewMap {
public:
    NewMap() : file(memfd_create(workerMapName, MFD_CLOEXEC))
    {
        // A program that has closed its standard output must not write to the map instead.
        if (file > STDERR_FILENO && hasMemory(file)) {
            memory = mmap(nullptr, sizeof(WorkerMap), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        }
    }
    ~NewMap()
    {
        if (!kept && memory != MAP_FAILED) {
            // Another worker has made one at the same time.
            munmap(memory, sizeof(WorkerMap));  // GCOVR_EXCL_LINE: only now and then
        }
        if (!kept && file >= 0) {
            close(file);
        }
    }
    NewMap(const NewMap&) = delete;
    NewMap& operator=(const NewMap&) = delete;

    /// The map that all use from now on: this one, if that in use is still `former`. Null if it
    /// couldn't be made.
    WorkerMap* use(WorkerMap* former, int process)
    {
        if (memory == MAP_FAILED) {
            return nullptr;
        }
        auto* const map = static_cast<WorkerMap*>(memory);
        map->process = process;
        kept = mapInUse.compare_exchange_strong(former, map);
        // So that a reader that finds one which isn't kept goes on looking.
        map->magic = kept ? workerMapMagic : 0;
        return kept ? map : former;
    }

private:
    const int file;
    void* memory = MAP_FAILED;
    bool kept = false;
};

WorkerMap* mapOfThisProcess()
{
    WorkerMap* const found = mapInUse;
    const int process = getpid();
    return found != nullptr && found->process == process ? found : NewMap().use(found, process);
}

}  // namespace

InWorkerMap::InWorkerMap(const char* pool)
{
    WorkerMap* const map = *pool == '\0' ? nullptr : mapOfThisProcess();
    if (map == nullptr) {
        return;
    }
    for (WorkerMap::Place& place : map->places) {
        std::int32_t thread = place.thread.load(std::memory_order_relaxed);
        if (thread == 0 && place.thread.compare_exchange_strong(thread, -1)) {
            std::strncpy(place.pool, pool, sizeof place.pool - 1);
            place.thread = gettid();
            taken = &place.thread;
            return;
        }
    }
}

InWorkerMap::~InWorkerMap()
{
    if (taken != nullptr) {
        // Has another number in a child that a task has forked: the place is the parent's there.
        std::int32_t thread = gettid();
        taken->compare_exchange_strong(thread, 0);
    }
}

}  // namespace KT::core
