// Counts the lines of text files and broadcasts each count.
//
// Registered for each extension by itself: a file of another kind never gets here.
// Broadcasts from inside its handler, so whoever shows lines gets them before the
// file's own broadcast has reached the less specific registrations.
#include "examples/directory_index/component.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/report.h"
#include "examples/directory_index/report_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <optional>
#include <system_error>
#include <unordered_map>

namespace directory_index {

namespace {

constexpr std::array text_extensions = {
    "adoc", "awk", "bash", "c",     "cc",  "cfg",  "cmake", "conf", "cpp", "cs",  "css",
    "csv",  "cxx", "go",   "h",     "hh",  "hpp",  "htm",   "html", "hxx", "in",  "inc",
    "ini",  "inl", "ipp",  "java",  "js",  "json", "kt",    "log",  "lua", "m4",  "md",
    "mk",   "pas", "php",  "pl",    "pm",  "po",   "proto", "ps1",  "py",  "pyi", "rb",
    "rs",   "rst", "s",    "scala", "sed", "sh",   "sql",   "svg",  "tcl", "tex", "toml",
    "ts",   "tsv", "txt",  "vim",   "xml", "yaml", "yml",
};

struct close_file {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};

// A last line counts even if no newline ends it. Calls `step` now and then, and returns
// nothing when that wants no more.
template <class Step>
std::optional<std::int64_t> count_lines(const std::string& file, const Step& step) {
    errno = 0;
    const std::unique_ptr<std::FILE, close_file> stream(std::fopen(file.c_str(), "rb"));
    std::int64_t lines = 0;
    char last = '\n';
    std::array<char, 256 * 1024> buffer;
    while (stream) {
        const std::size_t length = std::fread(buffer.data(), 1, buffer.size(), stream.get());
        if (length == 0)
            break;
        lines += std::count(buffer.data(), buffer.data() + length, '\n');
        last = buffer[length - 1];
        if (!step())
            return std::nullopt;
    }
    if (!stream || std::ferror(stream.get()))
        throw std::system_error(errno, std::generic_category());
    return last == '\n' ? lines : lines + 1;
}

class line_counter final {
public:
    explicit line_counter(const services& to) : events_(*to.events) {
        IEventRouting& events = *to.events;
        for (const std::string extension : text_extensions)
            cookies_.push_back(events.RegisterEventHandler(
                nullptr, paths::found + extension,
                [this, extension](const std::string&, const event_data&,
                                  const routing_parameters& about) {
                    count(extension, about.at(parameter::path).text);
                    return true;
                },
                nullptr, "line counter"));
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::walk_interrupted,
            [this](auto&&...) {
                is_interrupted_ = true;
                return true;
            },
            nullptr, "line counter: interruption"));
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::any_gone,
            [this](const std::string& path, const event_data&, const routing_parameters& about) {
                take_back(path.substr(paths::gone.size()), about.at(parameter::path).text);
                return true;
            },
            nullptr, "line counter: gone files"));
        cookies_.push_back(register_section(to, "line counter", [this] { return report(); }));
    }

private:
    std::string report() const {
        const auto files = std::ssize(files_) - unreadable_;
        if (files == 0)
            return {};
        return fmt::format("Text: {} in {}\n", counted(lines_, "line"), counted(files, "file"));
    }

    void count(const std::string& extension, const std::string& file) {
        routing_parameters parameters;
        parameters[parameter::path] = file;
        std::string path = paths::lines + extension;
        try {
            const auto lines = count_lines(file, [this] { return is_still_wanted(); });
            if (!lines)
                return; // part of a count is none
            lines_ += *lines;
            files_[file] = lines;
            parameters[parameter::lines] = *lines;
        } catch (const std::system_error& failure) {
            ++unreadable_;
            files_[file] = std::nullopt;
            path = paths::unreadable;
            parameters[parameter::reason] = failure.code().message();
        }
        events_.BroadcastEvent(path, nullptr, parameters, nullptr);
    }

    bool is_still_wanted() {
        is_interrupted_ = false;
        events_.BroadcastEvent(paths::walk_working, nullptr, {}, nullptr);
        return !is_interrupted_; // the answer came on this thread, before that returned
    }

    void take_back(const std::string& extension, const std::string& file) {
        const auto counted_file = files_.find(file);
        if (counted_file == files_.end())
            return;
        routing_parameters parameters;
        parameters[parameter::path] = file;
        std::string path = paths::unreadable_gone;
        if (const auto lines = counted_file->second) {
            lines_ -= *lines;
            path = paths::lines_gone + extension;
            parameters[parameter::lines] = *lines;
        } else {
            --unreadable_;
        }
        files_.erase(counted_file);
        events_.BroadcastEvent(path, nullptr, parameters, nullptr);
    }

    IEventRouting& events_;
    bool is_interrupted_ = false;
    std::int64_t lines_ = 0;
    std::ptrdiff_t unreadable_ = 0;
    // Lines by path; none of a file that could not be read.
    std::unordered_map<std::string, std::optional<std::int64_t>> files_;
    cookies cookies_;
};

} // namespace

} // namespace directory_index

void start_event_routing_component(std::shared_ptr<void>& made) {
    made = std::make_shared<directory_index::line_counter>(
        directory_index::services::of_this_process());
}
