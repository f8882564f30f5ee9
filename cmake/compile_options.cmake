# How everything in this tree is compiled and linked, and where the built files
# lie. Every target of ours links `project_options` privately.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
# Static archives too: they end up inside shared libraries.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# Who builds with a newer compiler turns this off with the option
# --compile-no-warning-as-error of cmake.
set(CMAKE_COMPILE_WARNING_AS_ERROR ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Debug or Release" FORCE)
endif()

# The libraries load each other from the folder they lie in, so they share one.
# The search paths are relative: a built or installed tree can be moved.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_INSTALL_RPATH "$ORIGIN")
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
string(APPEND CMAKE_EXE_LINKER_FLAGS " -Wl,-rpath,'$ORIGIN/../lib'")

set(EVENT_ROUTING_SANITIZE "" CACHE STRING
    "Sanitizers to build with, for example address;undefined or thread")

# For the whole tree and not by target: one translation unit without
# instrumentation is enough to hide a race or to report a false one.
if(EVENT_ROUTING_SANITIZE)
    list(JOIN EVENT_ROUTING_SANITIZE "," sanitizers)
    add_compile_options(-fsanitize=${sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    # The sanitizers call dlopen in the caller's place, so the caller's own
    # search path (RUNPATH) does not count there; the program's older RPATH does.
    add_link_options(-fsanitize=${sanitizers} -Wl,--disable-new-dtags)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # The added checks lead GCC to paths that do not exist in the code.
        add_compile_options(-Wno-maybe-uninitialized)
        # GCC's thread sanitizer cannot follow fences and refuses them. Asio's stand
        # around handlers that its queues have passed on under a lock anyway.
        if("thread" IN_LIST EVENT_ROUTING_SANITIZE)
            add_compile_definitions(ASIO_DISABLE_FENCED_BLOCK)
        endif()
    endif()
endif()

add_library(project_options INTERFACE)

# Our own code names a header by its path in the repository.
target_include_directories(project_options INTERFACE ${PROJECT_SOURCE_DIR})

target_compile_options(project_options INTERFACE
    -Wall
    -Wextra
    -Wpedantic
    -Wshadow
    -Wnon-virtual-dtor
    -Woverloaded-virtual
    # __FILE__ reads the same wherever the checkout lies.
    -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=event_routing/)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # A unique symbol pins its library in memory after the last release.
    target_compile_options(project_options INTERFACE -fno-gnu-unique)
elseif(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(project_options INTERFACE -Wthread-safety)
endif()

# --as-needed: what a library does not use of its dependencies is not loaded with it.
# -Bsymbolic: two libraries that hold the same code keep their own state.
# --no-undefined: a missing symbol shows when the library is linked, not when a
# user loads it. Clang puts the sanitizer's run time into the program only, so
# there a library has to leave those symbols open.
set(shared_library_options -Wl,--as-needed -Wl,-Bsymbolic)
if(NOT (EVENT_ROUTING_SANITIZE AND CMAKE_CXX_COMPILER_ID MATCHES "Clang"))
    list(APPEND shared_library_options -Wl,--no-undefined)
endif()
set(is_shared "$<IN_LIST:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY;MODULE_LIBRARY>")
target_link_options(project_options INTERFACE "$<${is_shared}:${shared_library_options}>")
