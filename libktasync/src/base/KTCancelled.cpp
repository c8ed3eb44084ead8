#include <ktasync/KTCancelled.h>

namespace KT {

KTCancelled::KTCancelled(const std::string& task)
    : KTError("ktasync", task, "cancelled", __FILE__, __LINE__)
{
}

}  // namespace KT
