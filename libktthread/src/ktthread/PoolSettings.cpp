// What the owner of a pool sets.
#include "PoolSettings.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include <pthread.h>

#include <kterror/KTError.h>

#include "Output.h"

namespace KT {

namespace {

[[noreturn]] void refuse(const char* operation, const std::string& why)
{
    throw KTError("KTThreadPool", operation, why, core::sourceFile, __LINE__);
}

bool isAcceptedByPlatform(std::size_t stack)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    const bool isAccepted = pthread_attr_setstacksize(&attributes, stack) == 0;
    pthread_attr_destroy(&attributes);
    return isAccepted;
}

/// Such that it can be shown anywhere as it is.
void checkCharacters(std::string_view name)
{
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] < ' ' || name[i] > '~') {
            char text[96];
            std::snprintf(text, sizeof text,
                          "name is no printable ASCII: it has the byte 0x%02x at position %zu",
                          static_cast<unsigned>(static_cast<unsigned char>(name[i])), i);
            refuse("setName", text);
        }
    }
}

}  // namespace

void KTThreadPool::setStackSize(std::size_t bytes)
{
    if (bytes != 0 && (bytes == Settings::ofTheProcess || !isAcceptedByPlatform(bytes))) {
        refuse("setStackSize",
               "stackSize is " + std::to_string(bytes) + ": the platform takes none such");
    }
    settings->stackSize = bytes;
}

void KTThreadPool::setName(const std::string& chosen)
{
    const std::size_t most = sizeof settings->name - 1;
    if (chosen.size() > most) {
        refuse("setName", "name is " + std::to_string(chosen.size()) +
                              " bytes long: it must be at most " + std::to_string(most));
    }
    checkCharacters(chosen);
    if (monitorInUse.load(std::memory_order_acquire) != nullptr) {
        refuse("setName", "name is to be set before init: other threads read it without a lock");
    }
    std::memcpy(settings->name, chosen.c_str(), chosen.size() + 1);
}

const char* KTThreadPool::name() const
{
    static_assert(offsetof(Settings, name) == 0, "see Probes.h");
    return settings->name;
}

void KTThreadPool::setMessages(Messages where)
{
    settings->messages = where;
}

}  // namespace KT
