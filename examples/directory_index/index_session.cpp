#include "examples/directory_index/index_session.h"

#include "examples/directory_index/paths.h"
#include "examples/directory_index/questions.h"
#include "examples/directory_index/report_text.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fmt/format.h>
#include <utility>

namespace directory_index {

namespace fs = std::filesystem;

namespace {

// The sections of the report stand in the order of their components here.
constexpr std::array component_names = {
    "progress",   "extension_table",  "largest_files", "totals",       "line_counter",
    "word_index", "unreadable_files", "stop_words",    "lookup_cache", "explanations"};

bool is_at_or_below(const std::string& path, const std::string& folder) {
    return path == folder || path.starts_with(folder.ends_with('/') ? folder : folder + "/");
}

ignored_files ignored_of(const std::string& folder) {
    ignored_files ignored(folder);
    for (const auto& line : ignored.not_understood())
        complain("passes over '" + printable(line) + "' in .gitignore; --help says what it takes");
    return ignored;
}

// How many files there were and are at a path; nothing for none at all.
std::string news_of(const std::string& path, std::size_t before, std::size_t after) {
    if (before == 0 && after == 0)
        return {};
    const char* const what = before == 0 ? "New" : after == 0 ? "Gone" : "Changed";
    return fmt::format("{:<8} {}", what, printable(path));
}

} // namespace

index_session::index_session(services to, options chosen)
    : to_(std::move(to)), chosen_(std::move(chosen)),
      watch_(chosen_.watch ? std::make_unique<zel::platform::folder_watch>() : nullptr),
      told_(*to_.events, chosen_.watch ? catalogue::memory::all : catalogue::memory::none),
      walker_(told_, watch_.get(),
              chosen_.gitignore ? ignored_of(chosen_.folder) : ignored_files()),
      work_(*to_.events), is_working_(to_.events->RegisterEventHandler(
                              nullptr, paths::walk_working,
                              [this](auto&&...) {
                                  break_off_when_stopped();
                                  return true;
                              },
                              nullptr, "interruption of large files")) {
    for (const std::string name : component_names) {
        try {
            components_.start("directory_index_" + name);
        } catch (const std::exception& failure) {
            all_components_are_there_ = false;
            complain("goes on without " + name + ": " + failure.what());
        }
    }
}

// Components that read files ask by paths::walk_working, now and then, whether they are to go on.
// The walk itself looks at the stop only between two files: it does not come to that while a
// component reads a large one on its thread, and one that reads on another thread may have
// thousands still to come.
void index_session::break_off_when_stopped() {
    if (is_stopped())
        to_.events->BroadcastEvent(paths::walk_interrupted, nullptr, {}, nullptr);
}

std::error_code index_session::index(zel::platform::event& stop) {
    stop_ = &stop;
    const auto failure = walker_.walk(chosen_.folder, stop_);
    settle();
    return failure;
}

// When this returns, the components have made of it all what they can.
void index_session::settle() {
    break_off_when_stopped();
    to_.events->BroadcastEvent(paths::walk_ended, nullptr, {}, nullptr);
    work_.wait();
    const auto& unwatched = walker_.first_unwatched();
    if (unwatched && !std::exchange(has_complained_of_unwatched_, true))
        complain(fmt::format("'{}', and perhaps more, cannot be watched: {}",
                             printable(unwatched->path), unwatched->reason.message()));
}

std::error_code index_session::follow(zel::platform::event& stop) {
    stop_ = &stop;
    folder_follower follower(*to_.events, *watch_);
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
        if (is_stopped() || is_done(folder))
            continue;
        if (const auto failure = look_again_below(folder, news))
            return failure;
        done.push_back(folder);
    }
    for (const auto& file : seen.files)
        if (!is_stopped() && !is_done(file) && !is_own_output(file))
            look_again(file, news);
    return {};
}

// Returns why the indexed folder itself cannot be opened any more.
std::error_code index_session::look_again_below(const std::string& folder, std::string& news) {
    const std::size_t before = told_.forget_below(folder);
    const std::size_t elsewhere = told_.size();
    std::error_code failure;
    if (folder == chosen_.folder) {
        failure = walker_.walk(folder, stop_);
        if (failure)
            return failure;
    } else if (fs::symlink_status(folder, failure).type() == fs::file_type::directory) {
        failure = walker_.walk(folder, stop_);
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

void index_session::print_handlers() {
    chosen_.show(handlers_as_json(*to_.requests));
}

void index_session::print_report() {
    std::string text;
    reported_ = Report::Send(*to_.snowballs, paths::report_build, {});
    for (const auto& section : reported_)
        text += (text.empty() ? "" : "\n") + section.text;
    chosen_.show(text);
}

bool index_session::print_answers(const std::vector<std::string>& words) {
    if (watch_) // to tell changes from
        reported_ = Report::Send(*to_.snowballs, paths::report_build, {});
    return ask(*to_.requests, words, chosen_.show);
}

// Of the report only what reads differently now.
void index_session::print_changes(const std::string& news) {
    settle();
    std::string text = news;
    const auto former =
        std::exchange(reported_, Report::Send(*to_.snowballs, paths::report_build, {}));
    for (const auto& section : reported_)
        if (std::find(former.begin(), former.end(), section) == former.end())
            text += "\n" + section.text;
    if (!text.empty())
        chosen_.show("\n" + text);
}

} // namespace directory_index
