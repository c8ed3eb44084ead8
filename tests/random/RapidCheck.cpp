#include "RapidCheck.h"

#include <cstdlib>
#include <string>

#include "Scaled.h"

namespace {

class Amount : public testing::Environment {
    void SetUp() override
    {
        const char* const given = std::getenv("RC_PARAMS");
        const std::string params = given != nullptr ? given : "";
        if (params.find("max_success") == std::string::npos) {
            const std::string amount = " max_success=" + std::to_string(scaled(KT_CASES));
            setenv("RC_PARAMS", (params + amount).c_str(), 1);
        }
    }
};

const testing::Environment* const amount = testing::AddGlobalTestEnvironment(new Amount);

}  // namespace
