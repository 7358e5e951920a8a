include(GoogleTest)

# krl_add_test(name SOURCES ... LIBRARIES ... [DEFINITIONS ...] [LABELS ...])
#
# One GoogleTest program; each of its tests is a test of ctest's. Label "wire" marks tests that talk
# to a virtual phone over sockets, "fast" all others.
function(krl_add_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES;DEFINITIONS;LABELS" ${ARGN})
    if(NOT ARG_LABELS)
        set(ARG_LABELS fast)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE krl::options ${ARG_LIBRARIES} GTest::gmock
                                          GTest::gtest_main)
    target_compile_definitions(${name} PRIVATE ${ARG_DEFINITIONS})
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests")
    gtest_discover_tests(${name}
        TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST
        WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}"
        PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT 120)
endfunction()
