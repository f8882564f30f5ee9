# Unit tests stand beside their subject; each floor has one program of them.
find_package(GTest REQUIRED)

# add_unit_tests(NAME SOURCES ... LINKS ... [SECONDS n])
function(add_unit_tests name)
    cmake_parse_arguments(arg "" "SECONDS" "SOURCES;LINKS" ${ARGN})
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE ${arg_LINKS} GTest::gtest_main project_options)
    add_test(NAME ${name} COMMAND ${name})
    if(NOT arg_SECONDS)
        set(arg_SECONDS 120)
    endif()
    # A deadlock fails its test instead of the whole run.
    set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_SECONDS})
endfunction()
