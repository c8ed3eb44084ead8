#include "Once.h"

#include <chrono>
#include <cstdio>
#include <thread>

#include "ExitStatus.h"
#include "Json.h"
#include "View.h"

namespace {

/// A process that ends between the two readings can't be shown.
void takeTwo(Source& source, History& history)
{
    for (int i = 0; i < 2; ++i) {
        const std::optional<Sample> sample = source.next(Details::all);
        if (!sample) {
            throw ProcessError(source.ending());
        }
        history.add(*sample);
        if (i == 0) {
            std::this_thread::sleep_for(std::chrono::duration<double>(source.pause()));
        }
    }
}

void takeAll(Source& source, History& history)
{
    bool any = false;
    while (const std::optional<Sample> sample = source.next(Details::all)) {
        history.add(*sample);
        any = true;
    }
    if (!any) {
        throw RecordingError("there is no sample in the recording");
    }
}

}  // namespace

int runOnce(Source& source, const Options& options, bool utf8)
{
    History history;
    if (source.isRecorded()) {
        takeAll(source, history);
    } else {
        takeTwo(source, history);
    }
    Scene scene;
    scene.process = source.process();
    scene.snapshot = history.snapshot();
    scene.recorded = source.isRecorded();
    const std::string text =
        options.json ? asJson(scene.process, scene.snapshot) + '\n' : asText(scene, utf8);
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() ||
        std::fflush(stdout) != 0) {
        std::perror("kttop: standard output");
        return exitFailure;
    }
    return exitDone;
}
