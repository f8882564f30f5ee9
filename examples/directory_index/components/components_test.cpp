// Components as the host loads them, side by side.
#include "examples/directory_index/catalogue.h"
#include "examples/directory_index/component_library.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/payloads.h"
#include "examples/directory_index/pending_work.h"

#include <platform/process.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace {

using namespace directory_index;

TEST(Components, AnswerFromTheCacheUntilTheIndexChanges) {
    const std::string file = std::filesystem::temp_directory_path() /
                             ("components_test_" + std::to_string(zel::platform::process_id()));
    const auto to = services::of_this_process();
    pending_work work(*to.events);
    catalogue told(*to.events, catalogue::memory::all);
    const component_library index("directory_index_word_index");
    const component_library cache("directory_index_lookup_cache");
    std::string answered_by;
    const auto monitor =
        to.requests->RegisterMonitorHandler([&](const auto&, const auto&, const auto&, const auto&,
                                                const auto&, const auto& info, const auto&) {
            if (info.processing_handler)
                answered_by += info.processing_handler->description + ";";
        });
    const auto change = [&](const std::string& text) {
        told.forget(file);
        std::ofstream(file) << text;
        told.found(file, static_cast<std::int64_t>(text.size()));
        work.wait();
    };
    const auto ask = [&] {
        answered_by.clear();
        return Lookup::Ask(*to.requests, paths::index_lookup, "TWO").value->at(0).count;
    };
    change("one Two B-two 2two two_");
    EXPECT_EQ(ask(), 2);
    EXPECT_EQ(answered_by, "word index;lookup cache;");
    EXPECT_EQ(ask(), 2);
    EXPECT_EQ(answered_by, "lookup cache;");
    change("two");
    EXPECT_EQ(ask(), 1);
    told.forget(file);
    work.wait();
    EXPECT_THROW(ask(), zel::event_routing::request_was_not_processed);
    std::filesystem::remove(file);
}

} // namespace
