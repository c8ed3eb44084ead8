#include <exception>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include <kterror/KTError.h>

namespace {

static_assert(std::is_base_of<std::exception, KT::KTError>::value, "caught as std::exception too");

TEST(Error, NamesWhatItWasBuiltWith)
{
    const KT::KTError error("storage", "open", "no such volume", "storage/volume.cpp", 42);
    EXPECT_EQ(error.toString(), "storage::open: no such volume (storage/volume.cpp:42)");
    EXPECT_EQ(error.what(), error.toString());
}

TEST(Error, CopiesOutliveTheOriginal)
{
    std::string text;
    try {
        throw KT::KTError("m", "f", "d", nullptr, 0);
    } catch (const std::exception& error) {
        text = error.what();
    }
    EXPECT_EQ(text, "m::f: d (:0)");
}

}  // namespace
