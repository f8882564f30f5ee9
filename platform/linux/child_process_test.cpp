#include <platform/child_process.h>

#include <gtest/gtest.h>
#include <system_error>
#include <vector>

namespace {

using namespace zel::platform;
using texts = std::vector<std::string>;

TEST(RunProgram, GivesInputAndArgumentsAsTheyAreAndReadsAllOutput) {
    const std::string large(300'000, 'x'); // more than a pipe takes at once, both ways
    const auto copied = run_program("cat", {}, large);
    EXPECT_EQ(copied.output, large);
    EXPECT_EQ(copied.exit_code, 0);
    EXPECT_EQ(run_program("true", {}, large).output, "") << "a program that does not read";
    const texts odd{"[%s]", "a b; $(echo c) *\n"};
    EXPECT_EQ(run_program("printf", odd, "").output, "[a b; $(echo c) *\n]");
}

TEST(RunProgram, TellsHowTheProgramEndedAndThatThereIsNone) {
    EXPECT_EQ(run_program("sh", texts{"-c", "echo part; exit 7"}, "").exit_code, 7);
    EXPECT_EQ(run_program("sh", texts{"-c", "kill -TERM $$"}, "").exit_code, 128 + 15);
    try {
        run_program("no_such_program_anywhere", {}, "");
        ADD_FAILURE() << "started nothing, and said nothing";
    } catch (const std::system_error& failure) {
        EXPECT_EQ(failure.code(), std::errc::no_such_file_or_directory);
        EXPECT_NE(std::string(failure.what()).find("no_such_program_anywhere"), std::string::npos);
    }
}

} // namespace
