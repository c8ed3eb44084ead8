/// The memory in which a process tells kttop which pool each of its workers belongs to.
#pragma once

#include <cstdint>

namespace KT::core {

/// What the memfd is called; the kernel shows it as "/memfd:ktthread-workers (deleted)".
constexpr char workerMapName[] = "ktthread-workers";

/// Another layout gets another number.
constexpr std::int32_t workerMapMagic = 0x4b54576d;

/// All of the memfd. An empty place is all zeros.
/// \tparam Word  std::int32_t, or an atomic one where others write at the same time
template <typename Word>
struct WorkerMapLayout {
    struct Place {
        Word thread;    ///< as the process itself numbers its threads; 0: free; -1: being taken
        char pool[32];  ///< the pool's name, null-terminated; written before `thread`
    };
    Word magic;    ///< written last
    Word process;  ///< as the process numbers itself: a forked child inherits the descriptor
    Place places[4096];
};

}  // namespace KT::core
