#include "framework/module_interface/version_check.h"

#include "framework/exceptions/message_of_test.h"

#include <platform/library_image.h>
#include <platform/process.h>

#include <chrono>
#include <gtest/gtest.h>
#include <optional>

namespace zel::version_check_test {

// Levels answer with what the test wants and note that they were asked.
template <class Base>
class answering : public Base {
public:
    static constexpr std::int32_t interface_version = 4;
    std::int32_t GetCheckVersion() const override { return asked += 'c', check; }
    std::int32_t GetBaseVersion() const override { return asked += 'b', base; }
    virtual std::int32_t GetInterfaceVersion() const { return asked += 'i', interface; }
    const void* GetImplementationAddress() const override { return address; }

    mutable std::string asked;
    std::int32_t check = 1;
    std::int32_t base = Base::base_version;
    std::int32_t interface = 4;
    const void* address = nullptr; // which stands for this program
};

class object : public answering<InterfaceBase> {};

class module : public answering<ModuleInterfaceBase> {
    const mi::LibraryDescriptor& GetLibraryDescriptor() const override {
        static const mi::LibraryDescriptor descriptor;
        return descriptor;
    }
};

} // namespace zel::version_check_test

template <>
struct zel::declared_type_name<zel::version_check_test::object> {
    static std::string text() { return "class my::object"; }
};
template <>
struct zel::declared_type_name<zel::version_check_test::module> {
    static std::string text() { return "class my::module"; }
};

namespace {

using namespace zel;
using version_check_test::module;
using version_check_test::object;

const char in_this_program = 'p';

std::string path_of(const void* address) {
    return platform::image_path(platform::image_of(address));
}

template <class Object>
void expect_refused(const std::string& asked, const Object& checked, const std::string& interface,
                    const std::string& implementation, const std::string& found) {
    EXPECT_EQ(exceptions::message_of<WrongIfcVersion>([&] { RequireInterface(checked); }),
              "Wrong interface version implemented.\nModule: " + path_of(&in_this_program) +
                  "\n:\n\tInterface: " + interface +
                  "\nModule: " + path_of(checked.address ? checked.address : &in_this_program) +
                  "\n:\n\tImplementation: zel::version_check_test::" + implementation +
                  "\n\tVersion: " + found);
    EXPECT_EQ(checked.asked, asked);
}

TEST(VersionCheck, StopsAtTheFirstWrongLevelAndNamesBothLibraries) {
    // Each level is wrong, and found to be so when those below it are right.
    module m;
    m.interface = -5;
    expect_refused("cbi", m, "class my::module\n\tVersion: 4", "module", "-5");
    m.base = 2;
    m.asked.clear();
    expect_refused("cb", m, "class zel::ModuleInterfaceBase\n\tVersion: 3", "module", "2");
    m.check = 2;
    m.asked.clear();
    expect_refused("c", m, "class zel::IVersionCheck<class zel::mi::IModule>\n\tVersion: 1",
                   "module", "2");

    object o;
    o.address = reinterpret_cast<const void*>(&platform::process_id);
    ASSERT_NE(path_of(o.address), path_of(&in_this_program));
    RequireInterface(o);
    o.interface = 5;
    o.asked.clear();
    expect_refused("cbi", o, "class my::object\n\tVersion: 4", "object", "5");
    o.base = 3;
    o.asked.clear();
    expect_refused("cb", o, "class zel::InterfaceBase\n\tVersion: 2", "object", "3");
    o.check = 0;
    o.asked.clear();
    expect_refused("c", o, "class zel::IVersionCheck<class zel::mi::IExportable>\n\tVersion: 1",
                   "object", "0");
}

TEST(LiveObjects, CountModulesAndAllObjectsAndWaitABitForStragglers) {
    using mi::live_objects::current;
    std::optional<object> straggler(std::in_place);
    std::optional<module> last(std::in_place);
    EXPECT_EQ(current().modules, 1);
    EXPECT_EQ(current().objects, 2);
    const auto start = std::chrono::steady_clock::now();
    last.reset();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(10));
    EXPECT_EQ(current().modules, 0);
    EXPECT_EQ(current().objects, 1);
    straggler.reset();
    EXPECT_EQ(current().objects, 0);
}

} // namespace
