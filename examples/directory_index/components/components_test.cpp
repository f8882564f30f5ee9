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
using answerers = std::vector<std::string>;

class Components : public testing::Test {
protected:
    ~Components() override { std::filesystem::remove(file_); }

    void index(const std::string& text) {
        told_.forget(file_);
        std::ofstream(file_) << text;
        told_.found(file_, static_cast<std::int64_t>(text.size()));
        work_.wait();
    }

    // How often the word stands in the file, or why nobody says so.
    std::string ask(const std::string& word, const std::string& question = paths::index_lookup) {
        answered_by_.clear();
        try {
            const auto answer = Lookup::Ask(*to_.requests, question, word);
            if (answer)
                return answer.value->at(0).path == file_ ? std::to_string(answer.value->at(0).count)
                                                         : "another file";
            explanation scratch;
            return zel::serialization::GetDataValue<explanation>(answer.error, scratch)->text;
        } catch (const zel::event_routing::request_was_not_processed& nobody) {
            return nobody.what();
        }
    }

    const std::string file_ = std::filesystem::temp_directory_path() /
                              ("components_test_" + std::to_string(zel::platform::process_id()));
    const services to_ = services::of_this_process();
    pending_work work_{*to_.events};
    catalogue told_{*to_.events, catalogue::memory::all};
    const component_library words_{"directory_index_word_index"};
    const component_library stop_words_{"directory_index_stop_words"};
    const component_library cache_{"directory_index_lookup_cache"};
    const component_library explanations_{"directory_index_explanations"};
    answerers answered_by_;
    const cookie monitor_ = to_.requests->RegisterMonitorHandler(
        [this](const auto&, const auto&, const auto&, const auto&, const auto&, const auto& info,
               const auto&) {
            if (info.processing_handler)
                answered_by_.push_back(info.processing_handler->description);
        });
};

TEST_F(Components, AnswerFromTheCacheUntilTheIndexChanges) {
    index("one Two two");
    EXPECT_EQ(ask("TWO"), "2");
    EXPECT_EQ(answered_by_, (answerers{"word index", "lookup cache"}));
    EXPECT_EQ(ask("TWO"), "2");
    EXPECT_EQ(answered_by_, answerers{"lookup cache"});
    index("two");
    EXPECT_EQ(ask("TWO"), "1");
    told_.forget(file_);
    work_.wait();
    EXPECT_EQ(ask("TWO"), "Request 'index.lookup' was not processed. Routing parameters: ");
    EXPECT_TRUE(answered_by_.empty());
}

TEST_F(Components, OverrideTheIndexForStopWordsAndExplainUnknownQuestions) {
    index("the end");
    EXPECT_EQ(ask("The"), "stands nearly everywhere and is not looked up");
    EXPECT_EQ(answered_by_, (answerers{"stop words", "lookup cache"}));
    EXPECT_EQ(ask("end"), "1");
    EXPECT_EQ(ask("", "index.size"), "nobody answers this question; there is index.lookup");
}

} // namespace
