#include "libraries/dll_loader/dll_loader_impl.h"

#include "framework/exceptions/exceptions.h"
#include "framework/module_interface/lifetime_service.h"
#include "framework/module_interface/load_library.h"

#include <platform/cancellation.h>
#include <platform/diagnostics.h>
#include <platform/image_use.h>
#include <platform/process.h>
#include <platform/wait_on_address.h>

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace zel::mi {

namespace {

using platform::image_handle;

// How many uses an error names.
constexpr std::size_t most_named = 10;

// One of the system's references, given back unless it is kept.
class new_reference {
public:
    explicit new_reference(image_handle image) noexcept : image_(image) {}
    ~new_reference() { platform::unload_library(image_); }
    new_reference(const new_reference&) = delete;
    new_reference& operator=(const new_reference&) = delete;

    void keep() noexcept { image_ = image_handle::none; }

private:
    image_handle image_;
};

// Interface objects tell nobody when they go, so they are looked at so often.
constexpr platform::milliseconds pause_between_looks{1};

std::string list_of(const std::vector<std::string>& uses) {
    return uses.empty() ? "something outside of the loader keeps it mapped"
                        : fmt::format("it is still in use: {}", fmt::join(uses, ", "));
}

bool is_in_use(image_handle image, IModuleLifetimeService& objects) {
    return platform::uses_of(image) != 0 || objects.CountObjects(image) != 0;
}

} // namespace

image_handle DllLoaderImpl::load_dll(const std::string& library_name, const void* caller) {
    unload_all_kept();
    const std::string file = library_file(library_name, caller);
    auto record = make_record();
    for (;;) {
        const auto loaded = load_library(library_name, file);
        {
            new_reference reference(loaded.image);
            record.mapped().path = platform::image_path(loaded.image);
            const auto added = add_reference(loaded, record);
            if (added == addition::first)
                reference.keep();
            // One does for all, so that the last is the one that counts.
            if (added != addition::refused)
                return loaded.image;
        }
        // Not this one, but the one that is mapped when its end is over.
        wait_for_the_end(loaded.image, platform::infinite);
        if (const auto now = end_if_unused(loaded.image);
            now != kept_state::over && now != kept_state::ending)
            refuse(loaded.image, record.mapped().path);
    }
}

DllLoaderImpl::library_map::node_type DllLoaderImpl::make_record() {
    library_map one;
    one[image_handle::none].end_is_over =
        std::make_shared<platform::event>(platform::reset_mode::manual, false);
    return one.extract(image_handle::none);
}

DllLoaderImpl::addition DllLoaderImpl::add_reference(const platform::load_result& loaded,
                                                     library_map::node_type& record) noexcept {
    platform::scoped_lock inside(guard_);
    auto known = libraries_.find(loaded.image);
    const bool is_first = known == libraries_.end();
    if (is_first) {
        record.key() = loaded.image;
        known = libraries_.insert(std::move(record)).position;
    }
    library& found = known->second;
    if (found.state == image_state::ending || found.state == image_state::kept)
        return addition::refused;
    // Of two that load a library for the first time, the later one may arrive first and
    // take it for one that others had mapped.
    if (!loaded.already_mapped)
        found.state = image_state::mapped_by_us;
    ++found.references;
    return is_first ? addition::first : addition::further;
}

// Of a library that another thread is ending.
void DllLoaderImpl::wait_for_the_end(image_handle image, platform::milliseconds timeout) {
    std::shared_ptr<platform::event> end_is_over;
    {
        platform::scoped_lock inside(guard_);
        const auto known = libraries_.find(image);
        if (known == libraries_.end() || known->second.state != image_state::ending)
            return;
        if (known->second.ending_thread == platform::this_thread_id())
            throw exceptions::error("The library " + known->second.path +
                                    " is being ended by the thread that asks for it.");
        end_is_over = known->second.end_is_over;
    }
    end_is_over->wait(timeout);
}

void DllLoaderImpl::refuse(image_handle image, const std::string& path) {
    const auto uses = describe_uses(image, most_named);
    throw exceptions::error("The library " + path +
                            " could not be loaded: it was unloaded before, but " + list_of(uses) +
                            ".");
}

bool DllLoaderImpl::free_dll(image_handle image) {
    return give_back(image) == library_state::unmapped;
}

library_state DllLoaderImpl::give_back(image_handle image) {
    const auto outcome = remove_reference(image) ? end(image) : library_state::loaded;
    unload_all_kept(); // what this library had kept, perhaps
    return outcome;
}

// True for the last one to a library that has to be ended.
bool DllLoaderImpl::remove_reference(image_handle image) {
    auto& objects = lifetime_service();
    {
        platform::scoped_lock inside(guard_);
        const auto known = libraries_.find(image);
        if (known == libraries_.end() || known->second.references == 0)
            throw exceptions::error(fmt::format(
                "free_dll: the image {:#x} was not loaded by load_dll, or is freed already.",
                static_cast<std::uintptr_t>(image)));
        library& found = known->second;
        if (found.references > 1) {
            --found.references;
            return false;
        }
        if (found.state == image_state::mapped_by_us) {
            begin_ending(found);
            return true;
        }
        // It has not ended, and the others may let go of it before what is in use does.
        found.references = 0;
        if (is_in_use(image, objects))
            return false;
        libraries_.erase(known);
    }
    platform::unload_library(image);
    return false;
}

void DllLoaderImpl::begin_ending(library& ending) noexcept {
    ending.end_is_over->reset();
    ending.references = 0;
    ending.state = image_state::ending;
    ending.ending_thread = platform::this_thread_id();
}

// Of a library that this thread has set to `ending`. Until it sets another state, nobody
// else changes the record.
library_state DllLoaderImpl::end(image_handle image) {
    const platform::no_cancellation to_the_end;
    library& ending = record_of(image);
    // What the loader has let go of may be another image by now, which is not to be ended.
    bool is_unused = !ending.is_held;
    auto became = image_end::in_use;
    std::exception_ptr failure;
    if (!is_unused)
        failure = platform::guarded([&] { became = lifetime_service().EndImage(image); });
    is_unused = is_unused || became == image_end::unused;
    const bool is_unmapped = is_unused && lets_go_of(image, ending);
    {
        platform::scoped_lock inside(guard_);
        ending.is_held = ending.is_held && !is_unused;
        process_exits_ = process_exits_ || became == image_end::process_exits;
        ending.state = image_state::kept;
        // Inside, because another thread may end the library anew as soon as it is `kept`.
        ending.end_is_over->set();
        if (is_unmapped)
            libraries_.erase(image);
    }
    if (failure)
        std::rethrow_exception(failure);
    return is_unmapped ? library_state::unmapped : library_state::kept;
}

DllLoaderImpl::library& DllLoaderImpl::record_of(image_handle image) {
    platform::scoped_lock inside(guard_);
    return libraries_.find(image)->second;
}

// Whether the image is unmapped with that.
bool DllLoaderImpl::lets_go_of(image_handle image, const library& ended) {
    if (ended.is_held)
        return platform::unload_library(image);
    const auto still_mapped = platform::find_mapped_library(ended.path);
    const bool is_unmapped = platform::unload_library(still_mapped);
    return still_mapped != image || is_unmapped;
}

DllLoaderImpl::kept_state DllLoaderImpl::end_if_unused(image_handle image) {
    auto& objects = lifetime_service();
    {
        platform::scoped_lock inside(guard_);
        const auto known = libraries_.find(image);
        if (known == libraries_.end())
            return kept_state::over;
        library& found = known->second;
        if (found.state == image_state::ending)
            return kept_state::ending;
        if (found.state != image_state::kept)
            return kept_state::over;
        if (found.is_held && is_in_use(image, objects))
            return process_exits_ ? kept_state::held_for_good : kept_state::in_use;
        begin_ending(found);
    }
    if (end(image) == library_state::unmapped)
        return kept_state::over;
    platform::scoped_lock inside(guard_);
    const auto known = libraries_.find(image);
    const bool is_held = known == libraries_.end() || known->second.is_held;
    return is_held && !process_exits_ ? kept_state::in_use : kept_state::held_for_good;
}

// Of libraries that others had mapped: they were left with a reference because they were in
// use when the last one was given back.
void DllLoaderImpl::let_go_of_unused() {
    auto& objects = lifetime_service();
    for (;;) {
        auto image = image_handle::none;
        {
            platform::scoped_lock inside(guard_);
            const auto unused = std::find_if(libraries_.begin(), libraries_.end(), [&](auto& l) {
                return l.second.state == image_state::mapped_by_others &&
                       l.second.references == 0 && !is_in_use(l.first, objects);
            });
            if (unused == libraries_.end())
                return;
            image = unused->first;
            libraries_.erase(unused);
        }
        platform::unload_library(image);
    }
}

std::size_t DllLoaderImpl::unload_all_kept() {
    let_go_of_unused();
    std::size_t left = 0;
    auto last = image_handle::none;
    for (;;) {
        {
            platform::scoped_lock inside(guard_);
            auto next = libraries_.upper_bound(last);
            while (next != libraries_.end() && next->second.state != image_state::kept)
                ++next;
            if (next == libraries_.end())
                return left;
            last = next->first;
        }
        // What a library throws while it ends must not fail those who have to do with another.
        auto now = kept_state::in_use;
        if (const auto failure = platform::guarded([&] { now = end_if_unused(last); })) {
            const auto address = reinterpret_cast<std::uintptr_t>(&failure);
            platform::raise_exception(platform::diagnostic::exception_report, {&address, 1});
        }
        if (now == kept_state::in_use || now == kept_state::held_for_good)
            ++left;
    }
}

bool DllLoaderImpl::unload_kept(image_handle image, platform::milliseconds timeout) {
    const auto deadline = platform::deadline_after(timeout);
    const auto time_left = [&] {
        using namespace std::chrono;
        return deadline ? ceil<milliseconds>(*deadline - steady_clock::now()) : platform::infinite;
    };
    for (;;) {
        const auto left = time_left();
        wait_for_the_end(image, std::max(left, platform::milliseconds(0)));
        const auto now = end_if_unused(image);
        if (now == kept_state::over)
            return true;
        if (now == kept_state::held_for_good || left <= platform::milliseconds(0))
            return false;
        if (now == kept_state::ending)
            continue;
        if (platform::uses_of(image) != 0)
            platform::wait_until_unused(image, left);
        else
            platform::sleep_for(std::min(left, pause_between_looks));
    }
}

std::vector<std::string> DllLoaderImpl::describe_uses(image_handle image, std::size_t most) {
    auto& service = lifetime_service();
    auto lines = platform::describe_uses(image, most);
    std::int32_t objects = 0;
    {
        // The image is asked, so it must stay meanwhile: whoever ends it enters here first.
        platform::scoped_lock inside(guard_);
        const auto known = libraries_.find(image);
        if (known != libraries_.end() && known->second.state != image_state::ending &&
            known->second.is_held)
            objects = service.CountObjects(image);
    }
    if (objects != 0 && lines.size() < most)
        lines.push_back(fmt::format("{} interface object{}", objects, objects == 1 ? "" : "s"));
    return lines;
}

} // namespace zel::mi
