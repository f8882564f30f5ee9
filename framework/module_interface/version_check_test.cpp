#include "framework/module_interface/version_check.h"

#include <chrono>
#include <gtest/gtest.h>

namespace zel {

// Levels answer with what the test wants.
class answering_object : public InterfaceBase {
public:
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
    const auto refusal = [&object] {
        try {
            RequireInterface(object);
        } catch (const WrongIfcVersion& failure) {
            const std::string text = failure.what();
            return text.substr(text.find("Interface: class "));
        }
        return std::string("accepted");
    };
    EXPECT_EQ(refusal(), "accepted");
    object.interface = -5;
    EXPECT_TRUE(refusal().starts_with("Interface: class my::object\n\tVersion: 4\n")) << refusal();
    EXPECT_TRUE(refusal().ends_with("zel::answering_object\n\tVersion: -5")) << refusal();
    object.base = 3;
    EXPECT_TRUE(refusal().starts_with("Interface: class zel::InterfaceBase\n")) << refusal();
    object.check = 0;
    EXPECT_TRUE(refusal().starts_with("Interface: class zel::IVersionCheck<")) << refusal();
}

TEST(LiveObjects, AreWaitedForABitByTheLastModule) {
    using namespace mi::live_objects;
    answering_object straggler;
    add_object();
    add_module();
    const auto start = std::chrono::steady_clock::now();
    remove_module();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(10));
    EXPECT_EQ(current().modules, 0);
    remove_object();
    EXPECT_EQ(current().objects, 1);
}

} // namespace zel
