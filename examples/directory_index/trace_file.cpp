#include "examples/directory_index/trace_file.h"

#include "examples/directory_index/report_text.h"

#include <framework/text/utf8.h>
#include <platform/process.h>
#include <platform/thread_description.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <fmt/format.h>
#include <iterator>
#include <json/writer.h>
#include <system_error>

namespace directory_index {

namespace {

constexpr std::size_t enough_to_write = 64 * 1024;
constexpr std::string_view begin_of_file = "{\"traceEvents\":[";
// Is written behind every piece and overwritten by the next one.
constexpr std::string_view end_of_file = "\n]}\n";

std::string quoted(std::string_view text) {
    return Json::valueToQuotedString(zel::text::as_utf8(text).c_str());
}

double or_zero(double time) {
    return std::isnan(time) ? 0 : time;
}

} // namespace

// One broadcast, or one part of one handler.
struct trace_file::span {
    std::string name;
    std::string category;
    std::string path;
    std::int64_t message = 0;
    double begin = 0; // in microseconds since the trace began
    double duration = 0;
    double processor_time = 0;
    bool has_pair = false;
    std::string more = {}; // arguments that only some have, each behind a comma
};

trace_file::trace_file(const std::string& file, const services& traced, std::size_t size)
    : size_(size), stream_(std::fopen(file.c_str(), "wb")) {
    zel::platform::scoped_lock inside(guard_);
    if (!stream_)
        throw std::system_error(errno, std::generic_category());
    buffer_ = begin_of_file;
    name_this_thread("main");
    write_out();
    if (failure_ != 0)
        throw std::system_error(failure_, std::generic_category());
    monitors_.push_back(traced.events->RegisterMonitorHandler(
        [this](const std::string& path, const event_data&, const routing_parameters& about,
               const auto& info) { trace(path, about, info); }));
    monitors_.push_back(traced.requests->RegisterMonitorHandler(
        [this](const std::string& path, const auto&, const auto&, const auto&,
               const routing_parameters& about, const auto& info, const std::exception_ptr&) {
            span request{path, "request", path};
            if (const auto& by = info.processing_handler)
                request.more = fmt::format(R"(,"level":{},"answered_by":{})", by->level,
                                           quoted(by->description));
            append(std::move(request), about, info.elapsed_time, info.cpu_time);
        }));
    monitors_.push_back(traced.snowballs->RegisterMonitorHandler(
        [this](const std::string& path, const auto&, const auto&, const auto&,
               const routing_parameters& about, const auto& info, const std::exception_ptr&) {
            append({path, "snowball", path}, about, info.elapsed_time, info.cpu_time);
        }));
}

trace_file::~trace_file() {
    monitors_.clear(); // waits for running calls
    zel::platform::scoped_lock inside(guard_);
    if (stream_)
        write_out();
}

void trace_file::close() {
    monitors_.clear();
    zel::platform::scoped_lock inside(guard_);
    write_out();
    if (std::fclose(stream_.release()) != 0 && failure_ == 0)
        failure_ = errno;
    if (failure_ != 0)
        throw std::system_error(failure_, std::generic_category());
}

std::string trace_file::omission() const {
    zel::platform::scoped_lock inside(guard_);
    if (left_out_ == 0)
        return {};
    return fmt::format("would be larger than {}: {} of {} are left out, from marked places on",
                       readable_size(static_cast<std::int64_t>(size_)), grouped(left_out_),
                       counted(events_, "event"));
}

void trace_file::trace(const std::string& path, const routing_parameters& about,
                       const zel::event_routing::monitor::event_handling_info_2& info) {
    constexpr std::string_view asynchronous = "Async: ";
    constexpr std::string_view synchronous = "Sync: ";
    span traced{path, "broadcast", path};
    traced.has_pair = true;
    if (info.handler_info) {
        const std::string& text = info.handler_info->second;
        const bool is_asynchronous = text.starts_with(asynchronous);
        traced.name = text.substr((is_asynchronous ? asynchronous : synchronous).size());
        traced.category = is_asynchronous ? "asynchronous" : "synchronous";
        traced.has_pair = is_asynchronous;
        traced.more = fmt::format(R"(,"level":{})", info.handler_info->first);
    }
    append(std::move(traced), about, info.elapsed_time, info.cpu_time);
}

// On the thread that did the work, right after it.
void trace_file::append(span traced, const routing_parameters& about, double elapsed_time,
                        double cpu_time) {
    const microseconds end = std::chrono::steady_clock::now() - start_;
    traced.message = about.at(zel::event_routing::parameter::monitoring_message_id).number;
    traced.duration = or_zero(elapsed_time) * 1e6;
    traced.begin = end.count() - traced.duration;
    traced.processor_time = or_zero(cpu_time) * 1e6;

    zel::platform::scoped_lock inside(guard_);
    ++events_;
    if (!is_taken(traced.message)) {
        ++left_out_;
        return;
    }
    name_this_thread();
    append_complete(traced);
    if (traced.has_pair)
        append_pair(traced);
    thin_out_when_long();
    if (buffer_.size() >= enough_to_write)
        write_out();
}

// By the message and not by the event: what belongs together is taken together.
bool trace_file::is_taken(std::int64_t message) const {
    return message % one_of_ == 0 && written_ + buffer_.size() < size_;
}

// A viewer shows a thread's number, which says little, where it has no name.
void trace_file::name_this_thread() {
    const auto thread = zel::platform::this_thread_id();
    if (named_threads_.contains(thread))
        return;
    // A task tells what its thread is doing; other threads have no such text.
    const bool runs_a_task = !zel::platform::thread_description(thread).empty();
    name_this_thread(
        fmt::format("{} {}", runs_a_task ? "task thread" : "thread", named_threads_.size()));
}

void trace_file::name_this_thread(const std::string& name) {
    const auto thread = zel::platform::this_thread_id();
    begin_event();
    fmt::format_to(std::back_inserter(buffer_),
                   R"({{"name":"thread_name","ph":"M","pid":{},"tid":{},"args":{{"name":"{}"}}}})",
                   zel::platform::process_id(), thread, name);
    named_threads_.insert(thread);
}

void trace_file::thin_out_when_long() {
    if (written_ + buffer_.size() < next_thinning_)
        return;
    constexpr std::int64_t much_fewer = 4;
    next_thinning_ += size_ / 16;
    one_of_ *= much_fewer;
    const bool is_full = next_thinning_ > size_;
    const microseconds now = std::chrono::steady_clock::now() - start_;
    begin_event();
    fmt::format_to(std::back_inserter(buffer_),
                   R"({{"name":"{}","ph":"i","s":"g","ts":{:.3f},"pid":{},"tid":{}}})",
                   is_full ? "the trace is full"
                           : fmt::format("from here on one of {} messages", one_of_),
                   now.count(), zel::platform::process_id(), zel::platform::this_thread_id());
}

void trace_file::append_complete(const span& traced) {
    begin_event();
    fmt::format_to(std::back_inserter(buffer_),
                   R"({{"name":{},"cat":"{}","ph":"X","ts":{:.3f},"dur":{:.3f},"pid":{},"tid":{},)"
                   R"("args":{{"path":{},"message":{},"processor_us":{:.3f}{}}}}})",
                   quoted(traced.name), traced.category, traced.begin, traced.duration,
                   zel::platform::process_id(), zel::platform::this_thread_id(),
                   quoted(traced.path), traced.message, traced.processor_time, traced.more);
}

// Viewers match begin and end by category and id, as a stack: parts of different handlers
// of one message may overlap, so each handler has a category of its own.
void trace_file::append_pair(const span& traced) {
    const std::string category =
        traced.category + (traced.category == "broadcast" ? "" : "," + traced.name);
    for (const auto& [phase, time] :
         {std::pair('b', traced.begin), std::pair('e', traced.begin + traced.duration)}) {
        begin_event();
        fmt::format_to(
            std::back_inserter(buffer_),
            R"({{"name":{},"cat":{},"ph":"{}","id":"{}","ts":{:.3f},"pid":{},"tid":{}}})",
            quoted(traced.name), quoted(category), phase, traced.message, time,
            zel::platform::process_id(), zel::platform::this_thread_id());
    }
}

void trace_file::begin_event() {
    buffer_ += is_first_ ? "\n" : ",\n";
    is_first_ = false;
}

// A monitor must not throw because of the file: that would end the broadcast it is told of.
void trace_file::write_out() {
    const std::size_t piece = buffer_.size();
    written_ += piece;
    buffer_ += end_of_file;
    if (failure_ == 0) {
        errno = 0;
        const bool is_written =
            std::fwrite(buffer_.data(), 1, buffer_.size(), stream_.get()) == buffer_.size() &&
            std::fseek(stream_.get(), -static_cast<long>(buffer_.size() - piece), SEEK_CUR) == 0 &&
            std::fflush(stream_.get()) == 0;
        if (!is_written)
            failure_ = errno != 0 ? errno : EIO;
    }
    buffer_.clear();
}

} // namespace directory_index
