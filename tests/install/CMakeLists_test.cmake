# The outside program is compiled as a user would, without instrumentation, and
# cannot load sanitized libraries.
if(NOT EVENT_ROUTING_SANITIZE)
    add_test(NAME install_test
        COMMAND ${CMAKE_CURRENT_LIST_DIR}/install_test.sh ${PROJECT_BINARY_DIR} ${CMAKE_CXX_COMPILER})
    add_test(NAME package_test
        COMMAND ${CMAKE_CURRENT_LIST_DIR}/package_test.sh
            ${PROJECT_BINARY_DIR} ${CMAKE_CXX_COMPILER} ${PROJECT_SOURCE_DIR}/README.md)
    set_tests_properties(package_test PROPERTIES TIMEOUT 300 SKIP_RETURN_CODE 77)
endif()
