// Writes what the routing services do into a file that trace viewers open.
//
// The file is JSON in the Trace Event Format. Each broadcast and each part of a handler is a
// complete event ("X") of the thread that did the work, and so is each request, with who
// answered it, and each snowball pass. Because asynchronous parts overlap
// with the rest, each broadcast and each asynchronous part is also a pair of asynchronous
// events ("b", "e") whose id is the number of the message: that ties a part to its broadcast.
//
// The file stays small enough for viewers. While it is less than half full it takes every
// message; then, with each sixteenth of its size, one of four messages that it took before.
// Where that begins, the file has an instant event that says so.
//
// What the file holds is valid JSON from the first moment on, however the program ends.
#pragma once

#include "examples/directory_index/component.h"

#include <platform/critical_section.h>
#include <platform/thread_id.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <string_view>

namespace directory_index {

class trace_file {
public:
    static constexpr std::size_t usual_size = 128 * 1024 * 1024;

    /// Makes or replaces the file and traces from now on. The file gets no larger than about
    /// `size` bytes. Throws std::system_error when it cannot be written.
    trace_file(const std::string& file, const services& traced, std::size_t size = usual_size);
    ~trace_file();
    trace_file(const trace_file&) = delete;
    trace_file& operator=(const trace_file&) = delete;

    /// Ends the trace. Throws std::system_error when not all of it could be written.
    void close();

    /// What was left out to keep the file small, as a sentence without a full stop; empty when
    /// nothing was.
    std::string omission() const;

private:
    using microseconds = std::chrono::duration<double, std::micro>;
    struct span;
    struct close_stream {
        void operator()(std::FILE* stream) const { std::fclose(stream); }
    };

    void trace(const std::string& path, const routing_parameters& about,
               const zel::event_routing::monitor::event_handling_info_2& info);
    void append(span traced, const routing_parameters& about, double elapsed_time, double cpu_time);
    bool is_taken(std::int64_t message) const ZEL_REQUIRES(guard_);
    void name_this_thread() ZEL_REQUIRES(guard_);
    void name_this_thread(const std::string& name) ZEL_REQUIRES(guard_);
    void thin_out_when_long() ZEL_REQUIRES(guard_);
    void append_complete(const span& traced) ZEL_REQUIRES(guard_);
    void append_pair(const span& traced) ZEL_REQUIRES(guard_);
    void begin_event() ZEL_REQUIRES(guard_);
    void write_out() ZEL_REQUIRES(guard_);

    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    // Threads of the task library trace, too. Held while a full buffer is written.
    mutable zel::platform::critical_section guard_;
    const std::size_t size_;
    std::size_t written_ ZEL_GUARDED_BY(guard_) = 0;
    std::size_t next_thinning_ ZEL_GUARDED_BY(guard_) = size_ / 2;
    std::int64_t one_of_ ZEL_GUARDED_BY(guard_) = 1; // so many messages is taken
    std::int64_t events_ ZEL_GUARDED_BY(guard_) = 0;
    std::int64_t left_out_ ZEL_GUARDED_BY(guard_) = 0; // of those
    std::set<zel::platform::thread_id> named_threads_ ZEL_GUARDED_BY(guard_);
    std::unique_ptr<std::FILE, close_stream> stream_ ZEL_GUARDED_BY(guard_);
    std::string buffer_ ZEL_GUARDED_BY(guard_);
    bool is_first_ ZEL_GUARDED_BY(guard_) = true;
    int failure_ ZEL_GUARDED_BY(guard_) = 0; // the first one; from then on nothing is written
    cookies monitors_;
};

} // namespace directory_index
