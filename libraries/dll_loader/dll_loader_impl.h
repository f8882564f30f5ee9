// The loader: counts the references to each library and ends it with the last.
#pragma once

#include "framework/module_interface/loader.h"
#include "framework/threading/recursive_shared_mutex.h"

#include <platform/critical_section.h>

#include <map>
#include <memory>
#include <string>

namespace zel::mi {

class DllLoaderImpl final : public IDllLoader {
public:
    platform::image_handle load_dll(const std::string& library_name, const void* caller) override;
    bool free_dll(platform::image_handle image) override;

private:
    struct library {
        std::string name; // under which it was loaded
        int references = 0;
        bool mapped_here = false; // else somebody else's, and not ours to end
        // The system's reference to a library that could not be unmapped when its
        // last user gave it back.
        bool kept_mapped = false;
    };
    using name_lock = threading::recursive_shared_mutex;

    std::shared_ptr<name_lock> lock_of(const std::string& name);
    std::string name_of(platform::image_handle image);
    bool give_back(platform::image_handle image);
    void keep_mapped(platform::image_handle image);
    void forget(platform::image_handle image);

    // Guards the maps, for short bookkeeping only: loading, ending and unmapping
    // run code of the library and take the system's own lock.
    platform::critical_section guard_;
    std::map<platform::image_handle, library> libraries_ ZEL_GUARDED_BY(guard_);
    // One for each file name ever loaded: held shared while such a library is
    // loaded and exclusively while it ends, so that nobody gets a dying one.
    std::map<std::string, std::shared_ptr<name_lock>> name_locks_ ZEL_GUARDED_BY(guard_);
};

} // namespace zel::mi
