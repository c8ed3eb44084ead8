#include <ktasync/KTPoolOptions.h>

#include <algorithm>
#include <thread>

#include "processors.h"

namespace KT {

int availableProcessors()
{
    int processors = detail::processorsOfAffinity();
    if (processors == 0) {
        processors = static_cast<int>(std::thread::hardware_concurrency());
    }
    if (const int granted = detail::processorsOfControlGroup("")) {
        processors = std::min(processors, granted);
    }
    return std::max(processors, 1);
}

}  // namespace KT
