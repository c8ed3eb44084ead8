#include <ktthread/version.h>

namespace KT {

const char* getVersion() noexcept
{
    return KT_VERSION;
}

}  // namespace KT
