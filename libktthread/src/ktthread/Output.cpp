#include "Output.h"

#include <array>
#include <cstddef>
#include <iostream>
#include <ostream>

#include <pthread.h>

#include <ro/log.h>

#include "CancelState.h"

namespace KT::core {

void logRecord(const char* category, const char* function, const std::string& text, int severity)
{
    const CancelState disabled(PTHREAD_CANCEL_DISABLE);
    ro::log::LogStream(severity, category, "", function, 0) << text << std::endl;
}

void consoleLine(std::string_view text)
{
    const CancelState disabled(PTHREAD_CANCEL_DISABLE);
    std::array<char, 160> line{};
    const std::size_t length = text.copy(line.data(), line.size() - 1);
    line[length] = '\n';
    std::cout.write(line.data(), static_cast<std::streamsize>(length + 1)).flush();
}

}  // namespace KT::core
