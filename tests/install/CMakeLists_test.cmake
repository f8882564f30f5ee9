# The outside program is compiled as a user would, without instrumentation, and
# cannot load sanitized libraries.
if(NOT EVENT_ROUTING_SANITIZE)
    add_test(NAME install_test
        COMMAND ${CMAKE_CURRENT_LIST_DIR}/install_test.sh ${PROJECT_BINARY_DIR} ${CMAKE_CXX_COMPILER})
endif()
