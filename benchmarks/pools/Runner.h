/// Lets contestants take turns at a piece of work, and keeps what came out.
#pragma once

#include <cstdio>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

/// Who competes, and one turn of it: the figure that counts, of which less is better.
struct Contestant {
    std::string name;
    std::function<double()> turn;
};

/// A contestant under a name of its own: one turn is `Measure::of<Pool>(arguments...)`.
template <typename Measure, typename Pool, typename... Arguments>
Contestant contestant(const std::string& name, const Arguments&... arguments)
{
    return {name, [=] { return Measure::template of<Pool>(arguments...); }};
}

/// One contestant a pool, whose turn is `Measure::of<Pool>(arguments...)`.
template <typename Measure, typename... Pools, typename... Arguments>
std::vector<Contestant> contestants(const Arguments&... arguments)
{
    return {{Pools::name(), [=] { return Measure::template of<Pools>(arguments...); }}...};
}

struct Comparison {
    std::string workload;
    std::string title;
    std::string unit;
};

class Runner {
public:
    struct Options {
        int repetitions = 7;
        std::string only;
        std::string pools;
    };

    explicit Runner(const Options& given)
        : options(given), only(given.only), pools(given.pools), comparisons(Json::array())
    {
    }

    void compare(const Comparison& what, const std::vector<Contestant>& contestants)
    {
        const std::string title = what.workload + ": " + what.title;
        if (!std::regex_search(title, only)) {
            return;
        }
        std::fprintf(stderr, "%s\n", title.c_str());
        Json samples;
        for (int repetition = 0; repetition < options.repetitions; ++repetition) {
            for (const Contestant& contestant : contestants) {
                if (std::regex_search(contestant.name, pools)) {
                    samples[contestant.name].push_back(contestant.turn());
                }
            }
        }
        comparisons.push_back({{"workload", what.workload},
                               {"title", what.title},
                               {"unit", what.unit},
                               {"samples", samples}});
    }

    nlohmann::ordered_json results() const
    {
        return {{"repetitions", options.repetitions}, {"comparisons", comparisons}};
    }

private:
    using Json = nlohmann::ordered_json;

    Options options;
    std::regex only;
    std::regex pools;
    Json comparisons;
};
