/// kttop on a terminal, and its recordings.
#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "Controls.h"
#include "History.h"
#include "Recording.h"
#include "Screen.h"
#include "Source.h"
#include "View.h"
#include "Waiting.h"

/// Takes samples, shows them, writes them to a file, until the user or the process ends that.
class Watch {
public:
    /// `recorder` may be null. Without `onTerminal` nothing is shown.
    Watch(Source& samples, RecordingWriter* recorder, bool onTerminal, bool hasUtf8);

    /// The exit status. Throws what the source, the recorder and the screen throw.
    int go();

    /// What is to be said once the terminal is as before; empty: nothing.
    const std::string& lastWord() const { return end; }

private:
    void takeSample();
    void finish();
    void refreshScene();
    void draw();
    void handleKeys();

    Source& source;
    RecordingWriter* const recorder;
    const bool utf8;
    Waiting waiting;
    std::unique_ptr<Screen> screen;
    History history;
    Controls controls;
    Scene scene;
    std::chrono::steady_clock::time_point due;
    bool ended = false;
    std::string end;
};
