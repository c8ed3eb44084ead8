#include <ktasync/KTTraceRecorder.h>

#include <system_error>
#include <utility>

#include <kterror/KTError.h>

#include "Recording.h"
#include "TraceFile.h"

namespace KT {

namespace {

[[noreturn]] void refuse(const std::string& why)
{
    throw KTError("KTTraceRecorder", "KTTraceRecorder", why, __FILE__, __LINE__);
}

}  // namespace

KTTraceRecorder::KTTraceRecorder(const KTPoolRef& pool, const std::string& file, int sampleMs)
{
    if (sampleMs < 1) {
        refuse("sampleMs is " + std::to_string(sampleMs) + ": it must be 1 or more");
    }
    std::unique_ptr<detail::TraceFile> opened;
    try {
        opened = std::make_unique<detail::TraceFile>(file);
    } catch (const std::system_error& error) {
        refuse("'" + file + "' can't be written: " + error.code().message());
    }
    recording = std::make_unique<Recording>(pool, file, std::move(opened), sampleMs);
}

KTTraceRecorder::~KTTraceRecorder()
{
    if (!recording->isOfThisProcess()) {
        // Its thread isn't there, and its locks may be held by others that aren't.
        static_cast<void>(recording.release());
    }
}

void KTTraceRecorder::flush()
{
    recording->flush();
}

bool KTTraceRecorder::hasFailed() const
{
    return recording->hasFailed();
}

}  // namespace KT
