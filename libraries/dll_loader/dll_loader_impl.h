// The loader: counts the references to each library, ends it with the last and unmaps
// it when nothing of it is in use.
#pragma once

#include "framework/module_interface/loader.h"

#include <platform/critical_section.h>
#include <platform/event.h>
#include <platform/thread_id.h>

#include <map>
#include <memory>
#include <string>

namespace zel::mi {

class DllLoaderImpl final : public IDllLoader {
public:
    platform::image_handle load_dll(const std::string& library, const void* caller) override;
    bool free_dll(platform::image_handle image) override;
    library_state give_back(platform::image_handle image) override;
    bool unload_kept(platform::image_handle image, platform::milliseconds timeout) override;
    std::size_t unload_all_kept() override;
    std::vector<std::string> describe_uses(platform::image_handle image, std::size_t most) override;

private:
    // What the system names an image by is the key: it finds the same image for every
    // path and link that leads to one file.
    //
    //                  | load_dll                    | free_dll           | the last free_dll
    // -----------------+-----------------------------+--------------------+------------------
    // not known        | mapped_by_us if the system  | is refused         |
    //                  | had to map it, else         |                    |
    //                  | mapped_by_others            |                    |
    // mapped_by_us     | one reference more          | one reference less | ending
    // mapped_by_others | one more; mapped_by_us if   | one reference less | not known; it is
    //                  | it was not mapped when this |                    | not ended; remains
    //                  | load_dll began              |                    | while in use
    // ending           | waits and begins anew       | is refused         |
    // kept             | tries `ending`; refused if  | is refused         |
    //                  | that leads back here        |                    |
    //
    // `ending` leads to `not known` when nothing of the image is in use and the system
    // has unmapped it, and to `kept` otherwise. Whatever is called for any library leads
    // from `kept` to `ending` as soon as nothing of it is in use.
    enum class image_state { mapped_by_us, mapped_by_others, ending, kept };

    struct library {
        std::string path;
        image_state state = image_state::mapped_by_others;
        int references = 0;
        // The one reference that the loader has from the system. Without it, something
        // else keeps the image mapped after the loader has let go of it.
        bool is_held = true;
        platform::thread_id ending_thread = platform::no_thread;
        // Not set while the image is `ending`. Made with the record: an end must not fail
        // because memory is short.
        std::shared_ptr<platform::event> end_is_over;
    };
    using library_map = std::map<platform::image_handle, library>;

    /// What a reference is recorded in; made before there is one, so that none is lost.
    static library_map::node_type make_record();
    enum class addition { first, further, refused };
    addition add_reference(const platform::load_result& loaded,
                           library_map::node_type& record) noexcept;
    bool remove_reference(platform::image_handle image);
    void wait_for_the_end(platform::image_handle image, platform::milliseconds timeout);
    static void begin_ending(library& ending) noexcept;
    library_state end(platform::image_handle image);
    library& record_of(platform::image_handle image);
    static bool lets_go_of(platform::image_handle image, const library& ended);
    /// Of a library that was kept. `held_for_good`: the loader has let go of it but
    /// something else keeps it mapped, or the process exits; waiting is of no use.
    enum class kept_state { over, ending, in_use, held_for_good };
    kept_state end_if_unused(platform::image_handle image);
    void let_go_of_unused();
    [[noreturn]] void refuse(platform::image_handle image, const std::string& path);

    // Guards the map, for short bookkeeping only: loading, ending and unmapping run code
    // of the library and take the system's own lock.
    platform::critical_section guard_;
    library_map libraries_ ZEL_GUARDED_BY(guard_);
    bool process_exits_ ZEL_GUARDED_BY(guard_) = false; // as an end was told
};

} // namespace zel::mi
