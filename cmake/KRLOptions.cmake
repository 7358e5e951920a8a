# How everything here is compiled: the language, where includes begin, warnings, sanitizers.

option(KRL_WARNINGS_AS_ERRORS "Treat warnings as errors" OFF)
option(KRL_BENCH "Build the benchmarks" OFF)
option(KRL_FUZZ "Build the fuzz targets (needs Clang)" OFF)
set(KRL_SANITIZE "" CACHE STRING "Sanitizers, as for -fsanitize=")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# All binaries of a build tree stand side by side: the library finds the provider in its own folder,
# and a test finds the programs.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")

# Where a program looks for our libraries: where they lie once installed, and nowhere else. The build
# tree has the same path by a link, so that both run the same binary: CMake pads a path of its own
# that is replaced at installation, and the padding reads as the working directory.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
cmake_path(GET CMAKE_INSTALL_LIBDIR PARENT_PATH libdir_parent)
file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/bin" "${CMAKE_BINARY_DIR}/${libdir_parent}")
file(CREATE_LINK "${CMAKE_BINARY_DIR}/bin" "${CMAKE_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR}" SYMBOLIC)

add_library(krl_options INTERFACE)
add_library(krl::options ALIAS krl_options)
# Includes are written from the root of the tree: a line tells where each thing comes from.
target_include_directories(krl_options INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(krl_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wformat=2 -Wundef
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wsuggest-override -Wduplicated-cond -Wduplicated-branches
                                    -Wlogical-op>
    # GCC 12 takes optimised std::string additions for overlapping copies.
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>
    $<$<BOOL:${KRL_WARNINGS_AS_ERRORS}>:-Werror>)

include(CheckPIESupported)
check_pie_supported()
if(NOT KRL_SANITIZE)
    # What a phone or a file says must not become code: guards on the stack and around calls of the C
    # library, and no table of addresses that can be written to.
    add_compile_options(-fstack-protector-strong -fstack-clash-protection)
    add_compile_options($<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE>
                        $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>)
    add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
    if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
        # The start files of the C library have no landing pads, so a binary can be marked for the
        # shadow stack only.
        add_compile_options(-fcf-protection=full)
        add_link_options(-Wl,-z,shstk)
    endif()
endif()

if(KRL_SANITIZE)
    # For the whole tree, libraries of ours included, so that none runs unwatched.
    add_compile_options(-fsanitize=${KRL_SANITIZE} -fno-omit-frame-pointer
                        -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${KRL_SANITIZE})
endif()

if(KRL_FUZZ)
    # What the fuzzers go by: which branches of the libraries an input reaches.
    add_compile_options(-fsanitize=fuzzer-no-link)
    add_link_options(-fsanitize=fuzzer-no-link)
endif()
