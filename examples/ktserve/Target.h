/// What a request's target says. Functions of it alone; any thread may call them.
#pragma once

#include <string_view>

/// The target without its query.
std::string_view pathIn(std::string_view target);

/// Whether `path` begins with `prefix`, which is removed then.
bool consume(std::string_view& path, std::string_view prefix);

/// N of /sleep/N. Throws HttpError(400) for what isn't 0 to 60,000.
int millisecondsIn(std::string_view text);

/// N of a target whose query is seconds=N, and nothing else. Throws HttpError(400) for another one,
/// and for what isn't 1 to 60.
int secondsIn(std::string_view target);
