// Which words stand in the text files, and where.
//
// Reading a file's words takes longer than walking past it, so that is done by asynchronous
// parts. They share a queue: a file's former words go before its new ones come, and the
// answer to "work.flush" stands behind all the files that were found before.
#include "examples/directory_index/component.h"
#include "examples/directory_index/components/word_table.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/report.h"
#include "examples/directory_index/report_text.h"

#include <platform/critical_section.h>

#include <fmt/format.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <optional>

namespace directory_index {

namespace {

constexpr std::int64_t largest_file = 4 * 1024 * 1024; // beyond that it is data, not prose
constexpr std::size_t most_words = 1'000'000;
constexpr std::size_t most_shown = 10;

struct close_file {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};

// Nothing for a file that cannot be read, which others report, and for one that is no text.
std::optional<std::string> text_of(const std::string& file, std::int64_t size) {
    const std::unique_ptr<std::FILE, close_file> stream(std::fopen(file.c_str(), "rb"));
    if (!stream)
        return std::nullopt;
    std::string text(static_cast<std::size_t>(size), '\0');
    text.resize(std::fread(text.data(), 1, text.size(), stream.get()));
    if (std::ferror(stream.get()) || text.find('\0') != std::string::npos)
        return std::nullopt;
    return text;
}

class word_index final {
public:
    explicit word_index(const services& to) {
        IEventRouting& events = *to.events;
        const auto queue = events.CreateTaskQueue();
        cookies_.push_back(events.RegisterEventHandler(
            queue, paths::any_found,
            [](const std::string&, const event_data&, const routing_parameters& about) {
                const std::int64_t size = about.at(parameter::size).number;
                return size > 0 && size <= largest_file;
            },
            [this, &events](const std::string&, const event_data&,
                            const routing_parameters& about) {
                add(about.at(parameter::path).text, about.at(parameter::size).number);
                events.BroadcastEvent(paths::index_changed, nullptr, {}, nullptr);
            },
            "word index"));
        cookies_.push_back(events.RegisterEventHandler(
            queue, paths::any_gone, nullptr,
            [this, &events](const std::string&, const event_data&,
                            const routing_parameters& about) {
                remove(about.at(parameter::path).text);
                events.BroadcastEvent(paths::index_changed, nullptr, {}, nullptr);
            },
            "word index: gone files"));
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::walk_interrupted,
            [this](auto&&...) {
                is_interrupted_ = true;
                return true;
            },
            nullptr, "word index: interruption"));
        cookies_.push_back(events.RegisterEventHandler(
            queue, paths::work_flush,
            [&events](auto&&...) {
                events.BroadcastEvent(paths::work_pending, nullptr, {}, nullptr);
                return true;
            },
            [&events](auto&&...) {
                events.BroadcastEvent(paths::work_flushed, nullptr, {}, nullptr);
            },
            "word index: flush"));
        cookies_.push_back(to.requests->RegisterRequestHandler(
            paths::index_lookup, 0,
            Lookup::RequestHandler([this](const std::string& word) { return look_up(word); }),
            "word index"));
        cookies_.push_back(register_section(to, "word index", [this] { return report(); }));
    }

private:
    std::string report() const {
        zel::platform::scoped_lock inside(guard_);
        if (table_.distinct_words() == 0 && unread_ == 0)
            return {};
        std::string text = fmt::format(
            "Words: {} distinct, {} in all, in {}{}{}\n",
            grouped(static_cast<std::int64_t>(table_.distinct_words())),
            grouped(table_.all_words()), counted(static_cast<std::int64_t>(table_.files()), "file"),
            table_.is_full() ? "; further ones are left out" : "",
            unread_ > 0 ? "; not read: " + counted(unread_, "file") : "");
        for (const auto& [word, count] : table_.top(most_shown))
            text += fmt::format("{:>12}  {}\n", grouped(count), printable(word));
        return text;
    }

    void add(const std::string& file, std::int64_t size) {
        if (is_interrupted_) {
            zel::platform::scoped_lock inside(guard_);
            ++unread_;
            return;
        }
        const auto text = text_of(file, size);
        if (!text)
            return;
        const auto counts = words_of(*text);
        zel::platform::scoped_lock inside(guard_);
        table_.add(file, counts);
    }

    void remove(const std::string& file) {
        zel::platform::scoped_lock inside(guard_);
        table_.remove(file);
    }

    // Nothing for a word that is in no file: perhaps somebody else knows it.
    std::optional<std::vector<word_place>> look_up(const std::string& word) const {
        std::vector<word_place> places;
        zel::platform::scoped_lock inside(guard_);
        for (auto& [file, count] : table_.files_with(lower(word)))
            places.push_back({file, count});
        return places.empty() ? std::nullopt : std::optional(std::move(places));
    }

    // Between the queue's parts and those who ask.
    mutable zel::platform::critical_section guard_;
    word_table table_ ZEL_GUARDED_BY(guard_){most_words};
    std::int64_t unread_ ZEL_GUARDED_BY(guard_) = 0; // since the interruption
    // Between the host's thread and those of the task library. No other data depend on it.
    std::atomic<bool> is_interrupted_{false};
    cookies cookies_;
};

} // namespace

} // namespace directory_index

void start_event_routing_component(std::shared_ptr<void>& made) {
    made =
        std::make_shared<directory_index::word_index>(directory_index::services::of_this_process());
}
