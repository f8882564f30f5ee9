# The Debian packages that `cpack` makes of the installed files, one for each install
# component: what programs run with, what they are built with, and the tools.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "event_routing maintainers <maintainers@event-routing.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development tools)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# The libraries of one build belong together: their versions are not mixed.
set(exact_runtime
    "libevent-routing${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libevent-routing${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "Components of one process notify and ask each other by paths of names, without
knowing each other. This package has the shared libraries that programs run with.")

# The static client part hands its dependencies on to whoever links it.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libevent-routing-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${exact_runtime}, libfmt-dev, libjsoncpp-dev, libmd-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "Headers, the static client part, the CMake package and the pkg-config module
event_routing.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME event-routing-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${exact_runtime}")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "event_routing_inspect loads components, shows who listens to which path, sends
messages by hand and watches the traffic.")

if(TARGET event_routing_nats)
    list(APPEND CPACK_COMPONENTS_ALL nats)
    set(CPACK_DEBIAN_NATS_PACKAGE_NAME event-routing-nats)
    set(CPACK_DEBIAN_NATS_PACKAGE_SECTION libs)
    set(CPACK_DEBIAN_NATS_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_NATS_PACKAGE_DEPENDS "${exact_runtime}")
    set(CPACK_COMPONENT_NATS_DESCRIPTION
        "A bridge that takes events, requests and snowballs of event_routing to other
processes and machines over NATS: the library, its header, the CMake target and the
pkg-config module event_routing-nats, the same as a component, and
event_routing_bridge, a program that runs components and connects them.")
endif()

# Where the tools' libraries lie while they are packed.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")

include(CPack)
