// The loader: counts the references to each library and ends it with the last.
#pragma once

#include "framework/module_interface/loader.h"

#include <platform/critical_section.h>

#include <map>

namespace zel::mi {

class DllLoaderImpl final : public IDllLoader {
public:
    const LibraryDescriptor& GetLibraryDescriptor() const override;
    platform::image_handle load_dll(const std::string& library_name, const void* caller) override;
    bool free_dll(platform::image_handle image) override;

private:
    struct library {
        int references = 0;
        // The system's reference to a library that could not be unmapped when its
        // last user gave it back.
        bool kept_mapped = false;
    };

    bool give_back(platform::image_handle image);
    void keep_mapped(platform::image_handle image);

    // Guards the counts. Not held while a library is loaded or ended, because
    // both run code of that library.
    platform::critical_section guard_;
    std::map<platform::image_handle, library> libraries_ ZEL_GUARDED_BY(guard_);
};

} // namespace zel::mi
