// Unloads a plug-in while something of it is still in use.
#include "generic/tasklib/src/tasks/task_library.h"
#include "platform/src/watched_thread_test.h"

#include <event_routing/client.h>

#include <framework/exceptions/exceptions.h>
#include <framework/log/log_module.h>
#include <framework/module_interface/neighbour_module.h>
#include <framework/serialization/payload.h>
#include <platform/image_use.h>

#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace zel;
using namespace zel::event_routing;
using mi::library_state;
using platform::watched_thread;
using cookies = std::vector<std::shared_ptr<void>>;

class PlugInUnload : public testing::Test {
protected:
    void load() { library.emplace("plug_in"); }
    template <class... Arguments>
    void call(const char* function, Arguments&&... arguments) {
        library->function<void(Arguments...)>(function)(std::forward<Arguments>(arguments)...);
    }
    std::string why_it_is_not_loaded() {
        try {
            load();
        } catch (const exceptions::error& failure) {
            return failure.what();
        }
        return "loaded";
    }
    void broadcast(const std::string& path) { events->BroadcastEvent(path, nullptr, {}, nullptr); }

    const std::shared_ptr<event_routing::IModule> module = get_module();
    const std::shared_ptr<IEventRouting> events = get_event_routing(*module);
    const std::shared_ptr<IRequestRouting> requests = get_request_routing(*module);
    std::optional<mi::loaded_library> library;
    cookies held;
};

TEST_F(PlugInUnload, WaitsForABroadcastThatDestroysARetiredCallable) {
    platform::signal may_go_on;
    const auto queue = events->CreateTaskQueue();
    const auto slow = events->RegisterEventHandler(
        queue, "fills", nullptr, [&](auto&&...) { EXPECT_TRUE(may_go_on.comes()); }, "slow");
    constexpr int room = 1025; // of a queue, besides the task that runs
    for (int task = 0; task < room + 1; ++task)
        broadcast("fills");

    load();
    call("listen", queue, held);
    watched_thread inside([&] { broadcast("plug_in.listens"); });
    EXPECT_TRUE(inside.falls_asleep()) << "it waits for room in the queue";
    held.clear();
    const auto image = library->image();
    EXPECT_EQ(platform::describe_uses(image, 9),
              std::vector<std::string>{"handler of events 'plug_in.listens' (only later)"});
    EXPECT_EQ(library->give_back(), library_state::kept);
    may_go_on.set();
    inside.join();
    EXPECT_TRUE(mi::loader().unload_kept(image, platform::patience));
    events->EndAndWaitForHandlers();
}

// The text of an answer, which the plug-in's own type holds.
std::string text_of(const std::shared_ptr<serialization::IDataHolder>& answer) {
    Json::Value document = serialization::get_json_conversion_module()->ToJson(answer);
    return document["text"].asString();
}

TEST_F(PlugInUnload, IsRefusedANewLoadWhileAnAnswerIsKept) {
    std::shared_ptr<serialization::IDataHolder> answer, no_error;
    const auto ask = [&] {
        return requests->SendRequest("plug_in.answers", nullptr, answer, no_error, {});
    };
    load();
    call("answer", held);
    EXPECT_TRUE(ask());
    EXPECT_EQ(text_of(answer), "captured");
    held.clear();
    const auto image = library->image();
    const auto path = platform::image_path(image);
    EXPECT_EQ(library->give_back(), library_state::kept);
    EXPECT_EQ(why_it_is_not_loaded(),
              "The library " + path +
                  " could not be loaded: it was unloaded before, but it is still in use: "
                  "payload 'struct plug_in_answer', 1 interface object.");
    // Its memory was made by the plug-in, too.
    std::weak_ptr<serialization::IData> only_weakly = answer->GetData();
    answer.reset();
    EXPECT_FALSE(mi::loader().unload_kept(image, platform::milliseconds(0)));
    EXPECT_EQ(mi::loader().describe_uses(image, 9),
              std::vector<std::string>{"payload 'struct plug_in_answer'"});
    only_weakly.reset();
    for (int round = 0; round < 2; ++round) {
        load();
        call("answer", held);
        EXPECT_TRUE(ask());
        EXPECT_EQ(text_of(answer), "captured") << "with its types, round " << round;
        answer.reset();
        held.clear();
        EXPECT_EQ(library->give_back(), library_state::unmapped);
    }
}

struct : platform::signal {
} stands_still, may_go_on;

TEST_F(PlugInUnload, WaitsForCallablesThatOthersAreInsideOf) {
    const auto log = [] {
        log::get_log_module()->Write(
            {.module = "test", .source_id = {}, .text = {}, .exception = {}});
    };
    const struct {
        const char* function;
        std::function<void()> use;
        std::string kind;
    } ways[] = {
        {"make_data",
         [] { serialization::get_bin_serialization_module()->CreateData("plug_in.data"); },
         "factory of data 'plug_in.data'"},
        {"observe", [] { platform::raise_text_report("text"); }, "diagnostic observer"},
        {"write_log", log, "log sink"},
    };
    const auto stand_still = [] {
        stands_still.set();
        EXPECT_TRUE(may_go_on.comes());
    };
    for (const auto& [function, use, kind] : ways) {
        SCOPED_TRACE(kind);
        stands_still.reset();
        may_go_on.reset();
        load();
        call(function, held, static_cast<void (*)()>(stand_still));
        watched_thread inside(use);
        EXPECT_TRUE(stands_still.comes());
        held.clear();
        const auto image = library->image();
        EXPECT_EQ(platform::describe_uses(image, 9), std::vector<std::string>{kind});
        EXPECT_EQ(library->give_back(), library_state::kept);
        may_go_on.set();
        inside.join();
        EXPECT_TRUE(mi::loader().unload_kept(image, platform::patience));
    }
}

TEST_F(PlugInUnload, LeavesTheFunctionForFailedTasksToThoseWhoHoldIt) {
    auto& failures = tasklib::get_tasks_module()->log_exception_function();
    load();
    call("hear_failures");
    auto function = failures.get();
    const std::weak_ptr<const void> only_weakly = function; // outlives the library
    failures.set({});
    const auto image = library->image();
    EXPECT_EQ(library->give_back(), library_state::kept);
    EXPECT_EQ(mi::loader().describe_uses(image, 9),
              std::vector<std::string>{"function for failed tasks"});
    function.reset();
    EXPECT_TRUE(mi::loader().unload_kept(image, platform::milliseconds(0)));
    EXPECT_TRUE(only_weakly.expired());
}

TEST_F(PlugInUnload, ReportsWhatHadToStay) {
    std::vector<std::string> reports;
    const platform::exception_observer observer([&](auto, auto arguments) {
        reports.emplace_back(reinterpret_cast<const char*>(arguments[1]), arguments[0]);
    });
    load();
    call("watch", held);
    const auto image = library->image();
    const auto path = platform::image_path(image);
    library.reset();
    EXPECT_EQ(reports, std::vector<std::string>{"The library " + path +
                                                " stays mapped, because it is in use: monitor."});
    broadcast("a");
    held.clear();
    EXPECT_TRUE(mi::loader().unload_kept(image, platform::milliseconds(0)));
}

} // namespace
