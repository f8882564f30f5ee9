#include "framework/log/log_area.h"
#include "tests/support/scarce_memory.h"

#include <functional>
#include <gtest/gtest.h>
#include <regex>
#include <stdexcept>

namespace {

using namespace zel::log;

struct calling_sink final : ILogSink {
    explicit calling_sink(std::function<void(const record&)> f) : call(std::move(f)) {}
    void Write(const record& entry) override { call(entry); }
    std::function<void(const record&)> call;
};

void write(int severity, std::string_view text, std::exception_ptr exception = nullptr) {
    get_log_module()->Write({"subject", "0000ABCD", 7, severity, text, std::move(exception)});
}

auto listen(int severity, std::function<void(const record&)> call) {
    return get_log_module()->AddSink(std::make_shared<calling_sink>(std::move(call)), severity);
}

TEST(Log, FeedsEachSinkFromItsOwnSeverityUpAlsoBesideOneThatThrowsUntilItGoes) {
    std::string heard;
    const auto hear = [&](const record& entry) { heard += std::string(entry.text) + "; "; };
    const auto high = listen(3, hear);
    const auto bad = listen(4, [](auto&) { throw 5; });
    auto low = listen(1, hear);
    write(0, "nobody");
    write(1, "low", std::make_exception_ptr(5));
    EXPECT_THROW(write(4, "all"), int);
    low.reset();
    write(3, "high");
    EXPECT_EQ(heard, "low\nException: Unknown; all; all; high; ");
}

TEST(Log, LetsSinksComeGoAndWriteFromInsideAWrite) {
    std::string heard;
    std::shared_ptr<zel::InterfaceBase> coming;
    std::shared_ptr<zel::InterfaceBase> leaving;
    leaving = listen(0, [&](const record& first) {
        leaving.reset();
        coming = listen(0, [&](const record& entry) { heard += entry.text; });
        write(1, "inside " + std::string(first.text));
    });
    write(2, "first ");
    write(3, "second");
    EXPECT_EQ(heard, "inside first second");
}

TEST(Log, WritesOneLinePerRecordToStandardErrorFromSeverityFive) {
    testing::internal::CaptureStderr();
    write(4, "unheard");
    write(5, "a {}\tb\x7F", std::make_exception_ptr(std::runtime_error("c\r\nd")));
    const std::string line = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(line.ends_with(" subject 0000ABCD:7 [5] a {}\\x09b\\x7f | c\\x0d | d\n")) << line;
    EXPECT_EQ(line.find('\n'), line.size() - 1);
}

// What standard error shows of failures, from the severity on.
std::string shown_of(const auto& act) {
    testing::internal::CaptureStderr();
    act();
    return std::regex_replace(testing::internal::GetCapturedStderr(),
                              std::regex("(^|\n)[^\n]*\\[7\\] "), "$1");
}

std::string shown_of_failure(std::string_view text, const std::string& why = "why") {
    return shown_of([&] { write(7, text, std::make_exception_ptr(std::runtime_error(why))); });
}

TEST(Log, ShowsARepeatedFailureOnceOnStandardErrorAndThenItsCountsUntilTheSeverityChanges) {
    std::string shown;
    for (int time = 1; time <= 12; ++time)
        shown += shown_of_failure("same", "why " + std::to_string(time));
    EXPECT_EQ(shown, "same | why 1\nsame: 10 times so far | why 10\n");
    // More different ones than are counted: each is shown, and the counts end with a line.
    int counts = 0;
    for (int i = 0; i < 300; ++i) {
        const std::string text = "other\n" + std::to_string(i), line = shown_of_failure(text);
        EXPECT_TRUE(line.ends_with("other | " + std::to_string(i) + " | why\n")) << line;
        counts += line.starts_with("same: 12 times in all\n");
    }
    EXPECT_EQ(counts, 1);
    EXPECT_EQ(shown_of_failure("same"), "same | why\n");
    EXPECT_EQ(shown_of_failure("same"), "");
    const auto change_severity = [] {
        get_log_module()->SetDefaultSinkSeverity(silent);
        get_log_module()->SetDefaultSinkSeverity(severity::failed_operation);
    };
    EXPECT_NE(shown_of(change_severity).find("same: 2 times in all\n"), std::string::npos);
    EXPECT_EQ(shown_of(change_severity), "") << "they are forgotten";
    EXPECT_EQ(shown_of_failure("same"), "same | why\n");
    change_severity();
}

TEST(Log, ShowsAFailureAlsoWhereItHasNoMemoryToCountIt) {
    std::vector<std::string> messages(100);
    for (std::size_t i = 0; i < messages.size(); ++i)
        messages[i] = "message " + std::to_string(1000 + i);
    // How many records were not shown when one allocation after the other was refused.
    const auto missing_with = [&](const std::exception_ptr& exception) {
        const auto log = get_log_module();
        std::size_t written = 0;
        testing::internal::CaptureStderr();
        zel::test::failures_of([&] {
            log->Write({"subject", "0000ABCD", 7, 7, messages.at(written++), exception});
        });
        const std::string shown = testing::internal::GetCapturedStderr();
        std::size_t lines = 0;
        for (std::size_t i = 0; i < written; ++i)
            lines += shown.find("[7] " + messages[i]) != std::string::npos ? 1 : 0;
        return written - lines;
    };
    const auto why = std::make_exception_ptr(std::runtime_error("why it failed, at some length"));
    EXPECT_EQ(missing_with(why), missing_with(nullptr)) << "those without memory for a line";
}

TEST(LogArea, MakesTheTextOnlyForASinkThatWantsItAndNeverFailsAReport) {
    constexpr log_area area("area");
    source_position position(__FILE__, 3);
    const auto bad = listen(3, [](auto&) { throw 5; });
    int made = 0;
    const auto make_text = [&] { return std::to_string(++made); };
    area.write(2, position, make_text);
    EXPECT_EQ(made, 0);
    EXPECT_THROW(area.write(4, position, make_text), int);
    EXPECT_NO_THROW(area.report(4, position, std::make_exception_ptr(5), make_text));

    const auto source = identify_source("event_routing/Platform/SRC/Event.CPP");
    EXPECT_EQ(std::string_view(source.data(), source.size()), "DDFF5BED");
}

} // namespace
