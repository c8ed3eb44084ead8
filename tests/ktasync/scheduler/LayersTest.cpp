/// The folders of libktasync's sources are layers: none includes a file of one above it.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

const std::vector<std::string> layers = {"base",  "clock", "scheduler", "job",    "future",
                                         "group", "loop",  "pool",      "observe"};

std::ptrdiff_t layerOf(const fs::path& file)
{
    const fs::path folder = *file.lexically_relative(KT_ASYNC_SOURCES).begin();
    return std::find(layers.begin(), layers.end(), folder.string()) - layers.begin();
}

std::vector<fs::path> includesOf(const fs::path& file)
{
    std::vector<fs::path> found;
    std::ifstream text(file);
    const std::regex include("^#include \"(.*)\"$");
    for (std::string line; std::getline(text, line);) {
        std::smatch match;
        if (std::regex_match(line, match, include)) {
            found.push_back((file.parent_path() / match[1].str()).lexically_normal());
        }
    }
    return found;
}

TEST(Layers, IncludeNoneAboveThem)
{
    int files = 0;
    int includes = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(KT_ASYNC_SOURCES)) {
        if (!entry.is_regular_file()) {
            continue;
        }
        ++files;
        EXPECT_LT(layerOf(entry.path()), static_cast<std::ptrdiff_t>(layers.size()))
            << entry.path() << " is in no layer";
        for (const fs::path& included : includesOf(entry.path())) {
            ++includes;
            EXPECT_TRUE(fs::exists(included)) << included;
            EXPECT_LE(layerOf(included), layerOf(entry.path()))
                << entry.path() << " includes " << included;
        }
    }
    EXPECT_GT(files, 40);
    EXPECT_GT(includes, files);
}

}  // namespace
