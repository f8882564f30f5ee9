#include "framework/module_interface/version_check.h"

#include "tests/support/failure_of.h"

#include <gtest/gtest.h>

namespace zel {

// Levels answer with what the test wants.
struct answering_object : InterfaceBase {
    static constexpr std::int32_t interface_version = 4;
    std::int32_t GetCheckVersion() const override { return check; }
    std::int32_t GetBaseVersion() const override { return base; }
    virtual std::int32_t GetInterfaceVersion() const { return interface; }

    std::int32_t check = check_version;
    std::int32_t base = base_version;
    std::int32_t interface = interface_version;
};

template <>
struct declared_type_name<answering_object> {
    static std::string text() { return "class my::object"; }
};

TEST(VersionCheck, StopsAtTheFirstWrongLevelAndNamesIt) {
    answering_object object;
    const auto is_refused_for = [&object](const std::string& level) {
        const auto failure = test::failure_of([&] { RequireInterface(object); });
        return failure.find("Interface: class " + level) != failure.npos;
    };
    object.interface = -5;
    EXPECT_TRUE(is_refused_for("my::object\n\tVersion: 4\n"));
    object.base = 3;
    EXPECT_TRUE(is_refused_for("zel::InterfaceBase\n\tVersion: 2\n"));
    object.check = 0;
    EXPECT_TRUE(is_refused_for("zel::IVersionCheck<class zel::mi::IExportable>\n\tVersion: 1\n"));
}

} // namespace zel
