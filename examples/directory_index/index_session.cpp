#include "examples/directory_index/index_session.h"

#include "examples/directory_index/console.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/report_text.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fmt/format.h>
#include <utility>

namespace directory_index {

namespace fs = std::filesystem;

namespace {

// In the order of their reports.
constexpr std::array component_names = {"progress",        "extension_table", "largest_files",
                                        "totals",          "line_counter",    "word_index",
                                        "unreadable_files"};

bool is_at_or_below(const std::string& path, const std::string& folder) {
    return path == folder || path.starts_with(folder.ends_with('/') ? folder : folder + "/");
}

// How many files there were and are at a path; nothing for none at all.
std::string news_of(const std::string& path, std::size_t before, std::size_t after) {
    if (before == 0 && after == 0)
        return {};
    const char* const what = before == 0 ? "New" : after == 0 ? "Gone" : "Changed";
    return fmt::format("{:<8} {}", what, printable(path));
}

} // namespace

index_session::index_session(std::shared_ptr<IEventRouting> events, options chosen)
    : events_(std::move(events)), chosen_(std::move(chosen)),
      watch_(chosen_.watch ? std::make_unique<zel::platform::folder_watch>() : nullptr),
      told_(*events_, chosen_.watch ? catalogue::memory::all : catalogue::memory::none),
      walker_(told_, watch_.get()), work_(*events_) {
    for (const std::string name : component_names) {
        try {
            components_.push_back(std::make_unique<component_library>("directory_index_" + name));
        } catch (const std::exception& failure) {
            all_components_are_there_ = false;
            complain("goes on without " + name + ": " + failure.what());
        }
    }
}

std::error_code index_session::index(zel::platform::event& stop) {
    const auto failure = walker_.walk(chosen_.folder, &stop);
    settle();
    return failure;
}

// When this returns, the components have made of it all what they can.
void index_session::settle() {
    events_->BroadcastEvent(paths::walk_ended, nullptr, {}, nullptr);
    work_.wait();
    const auto& unwatched = walker_.first_unwatched();
    if (unwatched && !std::exchange(has_complained_of_unwatched_, true))
        complain(fmt::format("'{}', and perhaps more, cannot be watched: {}",
                             printable(unwatched->path), unwatched->reason.message()));
}

std::error_code index_session::follow(zel::platform::event& stop) {
    folder_follower follower(*events_, *watch_);
    const std::array awaited{&stop, &follower.due()};
    for (bool ends = false; !ends;) {
        ends = zel::platform::wait_any(awaited) == 0;
        std::string news;
        if (const auto failure = apply(follower.take(), news))
            return failure;
        print_changes(news);
    }
    return {};
}

std::error_code index_session::apply(const changes& seen, std::string& news) {
    std::vector<std::string> done;
    const auto is_done = [&](const std::string& path) {
        return std::any_of(done.begin(), done.end(),
                           [&](const auto& folder) { return is_at_or_below(path, folder); });
    };
    auto folders = seen.folders;
    if (seen.everywhere)
        folders = {chosen_.folder};
    for (const auto& folder : folders) {
        if (is_done(folder))
            continue;
        if (const auto failure = look_again_below(folder, news))
            return failure;
        done.push_back(folder);
    }
    for (const auto& file : seen.files)
        if (!is_done(file) && !is_own_output(file))
            look_again(file, news);
    return {};
}

// Returns why the indexed folder itself cannot be opened any more.
std::error_code index_session::look_again_below(const std::string& folder, std::string& news) {
    const std::size_t before = told_.forget_below(folder);
    const std::size_t elsewhere = told_.size();
    std::error_code failure;
    if (folder == chosen_.folder) {
        failure = walker_.walk(folder, nullptr);
        if (failure)
            return failure;
    } else if (fs::symlink_status(folder, failure).type() == fs::file_type::directory) {
        failure = walker_.walk(folder, nullptr);
        if (failure && failure != std::errc::no_such_file_or_directory)
            told_.unreadable(folder, failure.message());
    }
    const std::size_t after = told_.size() - elsewhere;
    const std::string line = news_of(folder, before, after);
    if (!line.empty())
        news += fmt::format("{} ({})\n", line,
                            counted(static_cast<std::int64_t>(after > 0 ? after : before), "file"));
    return {};
}

void index_session::look_again(const std::string& file, std::string& news) {
    const bool was_there = told_.forget(file);
    walker_.visit(file);
    const std::string line = news_of(file, was_there, told_.knows(file));
    if (!line.empty())
        news += line + "\n";
}

// What the program itself writes into the folder it watches would be news for ever.
bool index_session::is_own_output(const std::string& file) const {
    return std::any_of(chosen_.own_outputs.begin(), chosen_.own_outputs.end(),
                       [&](const std::string& output) {
                           std::error_code ignored;
                           return fs::equivalent(file, output, ignored);
                       });
}

void index_session::print_report() {
    std::string text;
    printed_ = sections();
    for (const auto& section : printed_) {
        if (!text.empty() && !section.empty())
            text += '\n';
        text += section;
    }
    print(text);
}

// Of the report only what reads differently now.
void index_session::print_changes(const std::string& news) {
    settle();
    std::string text = news;
    const auto current = sections();
    for (std::size_t i = 0; i < current.size(); ++i)
        if (current[i] != printed_[i] && !current[i].empty())
            text += "\n" + current[i];
    printed_ = current;
    if (!text.empty())
        print("\n" + text);
}

std::vector<std::string> index_session::sections() const {
    std::vector<std::string> texts;
    for (const auto& library : components_)
        texts.push_back(library->get().report());
    return texts;
}

} // namespace directory_index
