#include <platform/diagnostics.h>

#include <gtest/gtest.h>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using namespace zel::platform;

void raise(std::uintptr_t number) {
    raise_exception(diagnostic::text_report, {&number, 1});
}

TEST(RaiseException, TellsEveryObserverWhateverTheyThrow) {
    std::string told;
    const auto listen = [&](diagnostic code, raise_arguments arguments) {
        EXPECT_EQ(code, diagnostic::text_report);
        told += std::to_string(arguments[0]);
        throw 5;
    };
    raise(1);
    {
        const exception_observer first(listen);
        const exception_observer second(listen);
        raise(2);
        raise(3);
    }
    raise(4);
    EXPECT_EQ(told, "2233");
}

TEST(RaiseException, LetsObserversComeGoAndRaiseFromInsideACall) {
    std::string told;
    std::optional<exception_observer> leaving;
    std::optional<exception_observer> coming;
    leaving.emplace([&, kept = std::string("leaving ")](diagnostic, raise_arguments arguments) {
        leaving.reset();
        coming.emplace([&](diagnostic, raise_arguments inner) {
            told += "coming " + std::to_string(inner[0]) + " ";
        });
        raise(7);
        told += kept + std::to_string(arguments[0]) + " ";
    });
    raise(8);
    raise(9);
    EXPECT_EQ(told, "coming 7 leaving 8 coming 9 ");
}

TEST(Guarded, ReturnsWhateverTheBodyThrew) {
    EXPECT_EQ(guarded([] {}), nullptr);
    EXPECT_THROW(std::rethrow_exception(guarded([] { throw 5; })), int);
    const auto failure = guarded([] { throw std::runtime_error("broken"); });
    EXPECT_THROW(std::rethrow_exception(failure), std::runtime_error);
    EXPECT_EQ(guarded([&] { std::rethrow_exception(failure); }), failure);
}

} // namespace
