#include "Answer.h"

#include <gtest/gtest.h>

namespace {

const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\n";

struct Case {
    const char* name;
    std::string bytes;
    const char* fault;  ///< when the server has closed the connection
};

void PrintTo(const Case& of, std::ostream* out)
{
    *out << of.name;
}

class AnswerOf : public testing::TestWithParam<Case> {};

TEST_P(AnswerOf, HasTheFault)
{
    Answer whole("slept\n");
    whole.add(GetParam().bytes);
    EXPECT_EQ(GetParam().fault, whole.fault(true));

    Answer piecewise("slept\n");
    for (const char byte : GetParam().bytes) {
        piecewise.add({&byte, 1});
    }
    EXPECT_EQ(GetParam().fault, piecewise.fault(true));
}

INSTANTIATE_TEST_SUITE_P(
    Bytes, AnswerOf,
    testing::Values(Case{"None", "", "no answer"}, Case{"HalfAHead", "HTTP/1.1 200", "cut off"},
                    Case{"HeadOnly", head, "cut off"}, Case{"HalfABody", head + "sle", "cut off"},
                    Case{"Right", head + "slept\n", ""},
                    Case{"Other", head + "awake\n", "another body"},
                    Case{"OtherNumber", head + "slepT\n", "another body"},
                    Case{"Twice", head + "slept\n" + head + "slept\n", "more than one answer"},
                    Case{"Status", "HTTP/1.1 503 \r\n\r\nslept\n", "another status"}),
    [](const auto& test) { return test.param.name; });

TEST(Answer, IsWholeWithTheLastByte)
{
    Answer answer("slept\n");
    EXPECT_FALSE(answer.add(head + "slept"));
    EXPECT_EQ("", answer.fault(false));
    EXPECT_TRUE(answer.add("\n"));
    EXPECT_EQ("", answer.fault(false));
}

}  // namespace
