#include "Target.h"

#include <charconv>
#include <string>

#include "HttpError.h"

namespace {

const int longestSleepMs = 60000;
const int longestTrace = 60;  // seconds

int numberIn(std::string_view text, int least, int most, const std::string& name)
{
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < least ||
        number > most) {
        throw HttpError(400,
                        name + " must be " + std::to_string(least) + " to " + std::to_string(most));
    }
    return number;
}

}  // namespace

std::string_view pathIn(std::string_view target)
{
    return target.substr(0, target.find_first_of("?#"));
}

bool consume(std::string_view& path, std::string_view prefix)
{
    if (path.substr(0, prefix.size()) != prefix) {
        return false;
    }
    path.remove_prefix(prefix.size());
    return true;
}

int millisecondsIn(std::string_view text)
{
    return numberIn(text, 0, longestSleepMs, "milliseconds");
}

int secondsIn(std::string_view target)
{
    target.remove_prefix(pathIn(target).size());
    if (!consume(target, "?seconds=")) {
        throw HttpError(400, "the query must be seconds=N");
    }
    return numberIn(target, 1, longestTrace, "seconds");
}
