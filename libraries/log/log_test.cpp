#include "framework/exceptions/exceptions.h"
#include "framework/log/log_area.h"

#include <platform/critical_section.h>
#include <platform/library_image.h>
#include <platform/thread_id.h>

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace zel::log {

namespace {

using lines = std::vector<std::string>;

class recording_sink final : public ILogSink {
public:
    void Write(const record& entry) override {
        std::string line(entry.module);
        line += " " + std::string(entry.source_id) + ":" + std::to_string(entry.line);
        line += " [" + std::to_string(entry.severity) + "] " + std::string(entry.text);
        platform::scoped_lock inside(guard_);
        lines_.push_back(std::move(line));
    }

    /// What came since the last call.
    lines take() {
        platform::scoped_lock inside(guard_);
        return std::exchange(lines_, {});
    }

private:
    platform::critical_section guard_;
    lines lines_ ZEL_GUARDED_BY(guard_);
};

// The log of the process, with its default sink as it is from the start.
class Log : public testing::Test {
protected:
    ~Log() override { log->SetDefaultSinkSeverity(severity::failed_operation); }

    void write(int severity, std::string_view text, std::exception_ptr exception = nullptr) {
        log->Write({"subject", "0000ABCD", 7, severity, text, std::move(exception)});
    }

    std::shared_ptr<ILogModule> log = get_log_module();
};

TEST_F(Log, FeedsEachSinkFromItsOwnSeverityUpUntilTheSubscriptionEnds) {
    log->SetDefaultSinkSeverity(silent);
    EXPECT_EQ(log->LowestSeverity(), silent);
    const auto sink = std::make_shared<recording_sink>();
    auto high = log->AddSink(sink, 4);
    EXPECT_EQ(log->LowestSeverity(), 4);
    const auto other = std::make_shared<recording_sink>();
    auto low = log->AddSink(other, 1);
    EXPECT_EQ(log->LowestSeverity(), 1);
    for (int severity = 0; severity < 5; severity += 2)
        write(severity, "text");
    EXPECT_EQ(sink->take(), lines{"subject 0000ABCD:7 [4] text"});
    EXPECT_EQ(other->take(), (lines{"subject 0000ABCD:7 [2] text", "subject 0000ABCD:7 [4] text"}));
    low.reset();
    EXPECT_EQ(log->LowestSeverity(), 4);
    EXPECT_EQ(other.use_count(), 1);

    // Two subscriptions of one sink are independent.
    auto all = log->AddSink(sink, 0);
    write(4, "twice");
    EXPECT_EQ(sink->take().size(), 2U);
    all.reset();
    EXPECT_EQ(log->LowestSeverity(), 4);
    high.reset();
    write(9, "unheard");
    EXPECT_EQ(sink->take(), lines{});
    EXPECT_THROW(log->AddSink(nullptr, 0), std::invalid_argument);
}

TEST_F(Log, LetsSinksComeGoAndWriteFromInsideAWrite) {
    class calling final : public ILogSink {
    public:
        explicit calling(std::function<void(const record&)> call) : call_(std::move(call)) {}
        void Write(const record& entry) override { call_(entry); }

    private:
        std::function<void(const record&)> call_;
    };
    const auto later = std::make_shared<recording_sink>();
    std::shared_ptr<InterfaceBase> following;
    std::shared_ptr<InterfaceBase> leaving;
    leaving = log->AddSink(std::make_shared<calling>([&](const record& entry) {
                               leaving.reset();
                               following = log->AddSink(later, 0);
                               write(1, "from inside, on " + std::string(entry.text));
                           }),
                           0);
    write(2, "first");
    write(3, "second");
    EXPECT_EQ(later->take(), (lines{"subject 0000ABCD:7 [1] from inside, on first",
                                    "subject 0000ABCD:7 [3] second"}));
}

struct steering final : exceptions::special_handling {
    const char* type_name() const noexcept override { return "my::steering"; }
};

TEST_F(Log, AppendsWhatAnExceptionHasToSay) {
    log->SetDefaultSinkSeverity(silent);
    const auto sink = std::make_shared<recording_sink>();
    const auto subscription = log->AddSink(sink, 0);
    std::exception_ptr ours;
    std::string place;
    try {
        throw exceptions::fatal("broken");
    } catch (const exceptions::fatal& failure) {
        ours = std::current_exception();
        std::ostringstream address;
        address << failure.address();
        place = address.str() + " in " +
                platform::image_path(platform::image_of(reinterpret_cast<void*>(&get_log_module)));
    }
    write(1, "text", ours);
    write(2, "text", std::make_exception_ptr(std::runtime_error("standard")));
    write(3, "text", std::make_exception_ptr(steering()));
    write(4, "text", std::make_exception_ptr(5));
    EXPECT_EQ(sink->take(),
              (lines{"subject 0000ABCD:7 [1] text\nbroken (thrown at " + place + ", number -1)",
                     "subject 0000ABCD:7 [2] text\nstandard",
                     "subject 0000ABCD:7 [3] text\nException: my::steering",
                     "subject 0000ABCD:7 [4] text\nException: Unknown"}));
}

TEST_F(Log, WritesOneLinePerRecordToStandardErrorFromSeverityFive) {
    const auto printed = [&](int severity) {
        testing::internal::CaptureStderr();
        write(severity, "a {}\tb\x7F", std::make_exception_ptr(std::runtime_error("c\r\nd")));
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(printed(4), "");
    const std::string line = printed(5);
    const std::string expected = " " + std::to_string(platform::this_thread_id()) +
                                 " subject 0000ABCD:7 [5] a {}\\x09b\\x7f | c\\x0d | d\n";
    EXPECT_TRUE(line.ends_with(expected)) << line;
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
    log->SetDefaultSinkSeverity(4);
    EXPECT_NE(printed(4), "");
    log->SetDefaultSinkSeverity(silent);
    EXPECT_EQ(printed(9), "");
}

TEST_F(Log, IsToldByAnAreaOnlyWhatASinkWantsAndNeverFailsAReport) {
    class failing final : public ILogSink {
        void Write(const record&) override { throw 5; }
    };
    log->SetDefaultSinkSeverity(silent);
    constexpr log_area area("area");
    source_position position("event_routing/platform/src/event.cpp", 3);
    int made = 0;
    const auto make_text = [&] { return std::to_string(++made); };

    const auto sink = std::make_shared<recording_sink>();
    auto subscription = log->AddSink(sink, severity::handler_failed);
    area.write(severity::failed_operation, position, make_text);
    EXPECT_EQ(made, 0);
    area.report_handler_failure(position, std::make_exception_ptr(5), make_text);
    EXPECT_EQ(sink->take(), lines{"area DDFF5BED:3 [7] 1\nException: Unknown"});
    area.write(severity::fatal_failure, position, make_text);
    EXPECT_EQ(sink->take(), lines{"area DDFF5BED:3 [8] 2"});

    subscription = log->AddSink(std::make_shared<failing>(), 0);
    EXPECT_THROW(area.write(0, position, make_text), int);
    EXPECT_NO_THROW(area.report(0, position, std::make_exception_ptr(5), make_text));
}

} // namespace

} // namespace zel::log
