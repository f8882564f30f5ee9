#include "framework/exceptions/exceptions.h"
#include "framework/log/log_area.h"

#include <platform/library_image.h>
#include <platform/thread_id.h>

#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <vector>

namespace {

using namespace zel::log;
using lines = std::vector<std::string>;

class calling_sink final : public ILogSink {
public:
    explicit calling_sink(std::function<void(const record&)> call) : call_(std::move(call)) {}
    void Write(const record& entry) override { call_(entry); }

private:
    std::function<void(const record&)> call_;
};

// The log of the process; its default sink is silent during a test.
class Log : public testing::Test {
protected:
    Log() { log->SetDefaultSinkSeverity(silent); }
    ~Log() override { log->SetDefaultSinkSeverity(severity::failed_operation); }

    void write(int severity, std::string_view text, std::exception_ptr exception = nullptr) {
        log->Write({"subject", "0000ABCD", 7, severity, text, std::move(exception)});
    }
    std::shared_ptr<ILogSink> sink_into(lines& target) {
        return std::make_shared<calling_sink>([&](const record& entry) {
            target.push_back(std::to_string(entry.severity) + " " + std::string(entry.text));
        });
    }
    lines take() { return std::exchange(heard, {}); }

    std::shared_ptr<ILogModule> log = get_log_module();
    lines heard;
};

TEST_F(Log, FeedsEachSinkFromItsOwnSeverityUpUntilTheSubscriptionEnds) {
    const auto sink = sink_into(heard);
    auto high = log->AddSink(sink, 4);
    EXPECT_EQ(log->LowestSeverity(), 4);
    auto low = log->AddSink(sink, 1); // the same sink, but a subscription of its own
    EXPECT_EQ(log->LowestSeverity(), 1);
    for (const int severity : {0, 1, 4})
        write(severity, "text");
    EXPECT_EQ(take(), (lines{"1 text", "4 text", "4 text"}));
    low.reset();
    EXPECT_EQ(log->LowestSeverity(), 4);
    write(4, "once");
    EXPECT_EQ(take(), lines{"4 once"});
    high.reset();
    EXPECT_EQ(log->LowestSeverity(), silent);
    EXPECT_EQ(sink.use_count(), 1);
    write(9, "unheard");
    EXPECT_EQ(take(), lines{});
    EXPECT_THROW(log->AddSink(nullptr, 0), std::invalid_argument);
}

TEST_F(Log, KeepsASinkThatThrowsApartFromTheOthers) {
    const auto before = log->AddSink(sink_into(heard), 0);
    const auto bad = log->AddSink(std::make_shared<calling_sink>(
                                      [](const record&) { throw std::runtime_error("disk full"); }),
                                  0);
    const auto after = log->AddSink(sink_into(heard), 0);
    EXPECT_THROW(write(3, "text"), std::runtime_error);
    EXPECT_EQ(take(), (lines{"3 text", "3 text"}));
    EXPECT_THROW(log->AddSink(nullptr, 0), std::invalid_argument);
}

TEST_F(Log, LetsSinksComeGoAndWriteFromInsideAWrite) {
    std::shared_ptr<zel::InterfaceBase> coming;
    std::shared_ptr<zel::InterfaceBase> leaving;
    leaving = log->AddSink(std::make_shared<calling_sink>([&](const record& entry) {
                               leaving.reset();
                               coming = log->AddSink(sink_into(heard), 0);
                               write(1, "on " + std::string(entry.text));
                           }),
                           0);
    write(2, "first");
    write(3, "second");
    EXPECT_EQ(heard, (lines{"1 on first", "3 second"}));
}

struct steering final : zel::exceptions::special_handling {
    const char* type_name() const noexcept override { return "my::steering"; }
};

TEST_F(Log, AppendsWhatAnExceptionHasToSay) {
    const auto subscription = log->AddSink(sink_into(heard), 0);
    const zel::exceptions::fatal ours("broken");
    testing::Message place;
    place << ours.address() << " in "
          << zel::platform::image_path(zel::platform::image_of(ours.address()));
    write(1, "text", std::make_exception_ptr(ours));
    write(2, "text", std::make_exception_ptr(std::runtime_error("standard")));
    write(3, "text", std::make_exception_ptr(steering()));
    write(4, "text", std::make_exception_ptr(5));
    EXPECT_EQ(heard, (lines{"1 text\nbroken (thrown at " + place.GetString() + ", number -1)",
                            "2 text\nstandard", "3 text\nException: my::steering",
                            "4 text\nException: Unknown"}));
}

TEST_F(Log, WritesOneLinePerRecordToStandardErrorFromSeverityFive) {
    const auto printed = [&](int severity) {
        testing::internal::CaptureStderr();
        write(severity, "a {}\tb\x7F", std::make_exception_ptr(std::runtime_error("c\r\nd")));
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(printed(9), "");
    log->SetDefaultSinkSeverity(severity::failed_operation);
    EXPECT_EQ(printed(4), "");
    const std::string line = printed(5);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_TRUE(line.ends_with(" " + std::to_string(zel::platform::this_thread_id()) +
                               " subject 0000ABCD:7 [5] a {}\\x09b\\x7f | c\\x0d | d\n"))
        << line;
}

TEST_F(Log, IsToldByAnAreaOnlyWhatASinkWantsAndNeverFailsAReport) {
    constexpr log_area area("area");
    source_position position(__FILE__, 3);
    int made = 0;
    const auto make_text = [&] { return std::to_string(++made); };
    const auto failure = std::make_exception_ptr(5);
    auto subscription = log->AddSink(sink_into(heard), severity::handler_failed);
    area.write(severity::failed_operation, position, make_text);
    EXPECT_EQ(made, 0);
    area.report_handler_failure(position, failure, make_text);
    EXPECT_EQ(heard, lines{"7 1\nException: Unknown"});

    subscription = log->AddSink(std::make_shared<calling_sink>([](auto&) { throw 5; }), 0);
    EXPECT_THROW(area.write(0, position, make_text), int);
    EXPECT_NO_THROW(area.report(0, position, failure, make_text));
}

} // namespace
