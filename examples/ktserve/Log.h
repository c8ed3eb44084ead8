/// The service's records, in the category "ktserve".
#pragma once

#include <string>

#include <ro/log.h>

inline void logInfo(const std::string& text)
{
    ro::log::LogStream(6, "ktserve", "", "", 0) << text << std::endl;
}

inline void logWarning(const std::string& text)
{
    ro::log::LogStream(4, "ktserve", "", "", 0) << text << std::endl;
}
