include(GoogleTest)

# What every test includes, compiled once: most of a test's compile time goes there.
function(krl_add_test_headers)
    set(source "${CMAKE_CURRENT_BINARY_DIR}/test_headers.cpp")
    file(CONFIGURE OUTPUT "${source}" CONTENT "int main() {}\n")
    # A program, because that decides how it and the tests are compiled.
    add_executable(krl_test_headers "${source}")
    set_target_properties(krl_test_headers PROPERTIES
        RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests")
    target_link_libraries(krl_test_headers PRIVATE krl::options GTest::gmock GTest::gtest)
    target_precompile_headers(krl_test_headers PRIVATE
        <gmock/gmock.h> <gtest/gtest.h> <algorithm> <filesystem> <fstream> <functional> <map>
        <memory> <optional> <string> <vector>)
endfunction()

# krl_add_test(name SOURCES ... LIBRARIES ... [DEFINITIONS ...] [LABELS ...])
#
# One GoogleTest program; each of its tests is a test of ctest's. Label "wire" marks tests that talk
# to a virtual phone over sockets, "fast" all others, "wire-threads" those of the former that are
# about threads. The target quick_tests builds the last two, which `ctest -L 'fast|threads'` runs.
add_custom_target(quick_tests)

function(krl_add_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES;DEFINITIONS;LABELS" ${ARGN})
    if(NOT ARG_LABELS)
        set(ARG_LABELS fast)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE krl::options ${ARG_LIBRARIES} GTest::gmock
                                          GTest::gtest_main)
    target_compile_definitions(${name} PRIVATE ${ARG_DEFINITIONS})
    if(NOT "${ARG_SOURCES}" MATCHES "\\.c(;|$)")
        target_precompile_headers(${name} REUSE_FROM krl_test_headers)
    endif()
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests")
    if(ARG_LABELS MATCHES "fast|threads")
        add_dependencies(quick_tests ${name})
    endif()
    set(limit 120)
    if(KRL_SANITIZE)
        set(limit 300)
    endif()
    gtest_discover_tests(${name}
        TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES
        WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}"
        PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT ${limit})
endfunction()
