#include <string>

#include <gtest/gtest.h>

#include <ktthread/version.h>

TEST(Version, OfTheLibraryIsThatOfItsHeaders)
{
    const std::string text = std::to_string(KT_VERSION_MAJOR) + '.' +
                             std::to_string(KT_VERSION_MINOR) + '.' +
                             std::to_string(KT_VERSION_PATCH);
    EXPECT_EQ(text, KT_VERSION);
    EXPECT_EQ(text, KT::getVersion());
}

TEST(Version, CanBeComparedByThePreprocessor)
{
#if KT_VERSION_NUMBER < KT_VERSION_NUMBER_OF(1, 0, 0) || \
    KT_VERSION_NUMBER >= KT_VERSION_NUMBER_OF(KT_VERSION_MAJOR, KT_VERSION_MINOR + 1, 0)
    FAIL() << KT_VERSION_NUMBER;
#endif
    EXPECT_LT(KT_VERSION_NUMBER_OF(1, 2, 999), KT_VERSION_NUMBER_OF(1, 3, 0));
    EXPECT_LT(KT_VERSION_NUMBER_OF(1, 999, 999), KT_VERSION_NUMBER_OF(2, 0, 0));
}
