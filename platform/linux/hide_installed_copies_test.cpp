// For tests of what happens when a library is missing: programs that are started with this in
// LD_AUDIT do not find the copies of our libraries that are installed in the system.
#include <platform/export.h>

#include <cstdint>
#include <link.h>
#include <string_view>

extern "C" ZEL_EXPORT unsigned la_version(unsigned version) {
    return version;
}

// The loader asks this about every place where a library may lie. Null passes over the place.
extern "C" ZEL_EXPORT char* la_objsearch(const char* name, std::uintptr_t* /*seeker*/,
                                         unsigned where) {
    const bool is_system_folder = where == LA_SER_CONFIG || where == LA_SER_DEFAULT;
    const std::string_view file(name);
    const bool is_ours = file.find("/libzel_") != std::string_view::npos ||
                         file.find("/libevent_routing.") != std::string_view::npos;
    return is_system_folder && is_ours ? nullptr : const_cast<char*>(name);
}
