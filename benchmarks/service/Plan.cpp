#include "Plan.h"

bool Plan::chance(double share)
{
    return std::uniform_real_distribution<double>(0, 1)(random) < share;
}

Request Plan::next()
{
    const std::string id = std::to_string(number++);
    Request request = {"/healthz", "alive", chance(mix.blockingShare)};
    if (request.blocks) {
        std::uniform_int_distribution<int> duration(mix.leastMs, mix.mostMs);
        request.target = "/sleep/" + std::to_string(duration(random));
        request.body = "slept";
    } else if (!mix.file.empty() && chance(0.5)) {
        request.target = "/sum/" + mix.file;
        request.body = mix.sum;
    }
    request.target += "?id=" + id;
    request.body += " " + id + "\n";
    return request;
}
