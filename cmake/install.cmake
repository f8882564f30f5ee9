# What `cmake --install` puts where, by component, and how a user's build finds it:
# find_package(event_routing) with the target event_routing::event_routing, or
# the pkg-config module event_routing.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

# The number counts the generations of the interface, whose headers can lie side by
# side.
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/event_routing-1)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/event_routing)

# Those after the platform are loaded when first used and never linked; they are installed
# because the library does not run without them.
set(installed_targets
    event_routing
    event_routing_client
    zel_platform
    zel_dll_loader
    zel_log
    zel_module_lifetime
    zel_perfstats
    zel_serialization
    zel_tasks_core)

# Users compile our headers with their own options.
target_compile_features(event_routing INTERFACE cxx_std_20)
# A user's own library carries a copy of the client part, with counts and actions
# of its own: it must not share them with its host, nor be pinned in memory.
target_link_options(event_routing INTERFACE
    "$<$<IN_LIST:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY;MODULE_LIBRARY>:-Wl,-Bsymbolic>")
target_compile_options(event_routing INTERFACE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)

foreach(target IN LISTS installed_targets)
    # A static library hands its private dependencies on to whoever links it;
    # our own compile options are none of the user's business.
    get_target_property(links ${target} INTERFACE_LINK_LIBRARIES)
    if(links)
        list(FILTER links EXCLUDE REGEX "project_options")
        set_target_properties(${target} PROPERTIES INTERFACE_LINK_LIBRARIES "${links}")
    endif()
endforeach()

# The link libevent_routing.so belongs to the runtime: hosts load the library by its name.
install(TARGETS ${installed_targets}
    EXPORT event_routing-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    INCLUDES DESTINATION ${header_dir})

# Programs find the libraries from where they lie, wherever the tree is moved to.
file(RELATIVE_PATH libraries_from_programs
    /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
set_target_properties(event_routing_inspect PROPERTIES
    INSTALL_RPATH "$ORIGIN/${libraries_from_programs}")
install(TARGETS event_routing_inspect
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)

function(install_headers folder destination)
    install(DIRECTORY ${folder}/
        DESTINATION ${header_dir}/${destination} COMPONENT development
        FILES_MATCHING PATTERN "*.h"
        PATTERN "*_test.h" EXCLUDE
        PATTERN "src" EXCLUDE)
endfunction()

install_headers(platform/include/platform platform)
install_headers(generic/tasklib/include/tasklib tasklib)
install_headers(framework/event_routing/include/event_routing event_routing)
foreach(subject exceptions lifetime log module_interface serialization text threading)
    install_headers(framework/${subject} framework/${subject})
endforeach()

install(EXPORT event_routing-targets
    NAMESPACE event_routing::
    DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(
    cmake/event_routing-config.cmake.in
    ${PROJECT_BINARY_DIR}/event_routing-config.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/event_routing-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/event_routing-config.cmake
    ${PROJECT_BINARY_DIR}/event_routing-config-version.cmake
    DESTINATION ${package_dir} COMPONENT development)

# The bridge is a package of its own with a dependency of its own: where it is not installed, the
# rest must still be found.
if(TARGET event_routing_nats)
    install(TARGETS event_routing_nats
        EXPORT event_routing-nats-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT nats
        INCLUDES DESTINATION ${header_dir})
    install(TARGETS event_routing_bridge_component
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT nats)
    set_target_properties(event_routing_bridge PROPERTIES
        INSTALL_RPATH "$ORIGIN/${libraries_from_programs}")
    install(TARGETS event_routing_bridge
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT nats)
    install(FILES libraries/nats_bridge/include/event_routing/nats_bridge.h
        DESTINATION ${header_dir}/event_routing COMPONENT nats)
    install(EXPORT event_routing-nats-targets
        NAMESPACE event_routing::
        DESTINATION ${package_dir} COMPONENT nats)
    # Its target is all that `./dev package` builds.
    add_dependencies(event_routing_inspect
        event_routing_nats event_routing_bridge_component event_routing_bridge)
endif()

# Relative to the .pc file, so that an installed tree can be moved.
string(REGEX REPLACE "[^/]+" ".." pkg_config_prefix ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
configure_file(cmake/event_routing.pc.in ${PROJECT_BINARY_DIR}/event_routing.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/event_routing.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
if(TARGET event_routing_nats)
    configure_file(
        cmake/event_routing-nats.pc.in ${PROJECT_BINARY_DIR}/event_routing-nats.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/event_routing-nats.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT nats)
endif()
