# Flags that every target of the project is built with.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

# Line tables are what a backtrace needs; whole debug information would cost a third of the compile time.
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1 -DNDEBUG")

include(CheckPIESupported)
check_pie_supported()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

add_library(project_options INTERFACE)
target_compile_options(project_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor
    -Woverloaded-virtual -Wcast-qual -Wformat=2 -Werror
    -fstack-protector-strong)
target_link_options(project_options INTERFACE -Wl,-z,relro,-z,now -Wl,-z,noexecstack -Wl,--as-needed)

if(KLUNORTREDI_SANITIZE)
    # With sanitizers g++ 12 reports uninitialised members inside std::function and std::regex, and writes beyond the end of
    # a std::string that is appended to. It reports neither without them.
    target_compile_options(project_options INTERFACE
        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized -Wno-array-bounds>
        -fsanitize=${KLUNORTREDI_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(project_options INTERFACE -fsanitize=${KLUNORTREDI_SANITIZE})
else()
    target_compile_options(project_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endif()

# Every header of a target must compile alone: one generated source per header, compiled, never linked.
option(KLUNORTREDI_CHECK_HEADERS "Compile every header alone" ON)
function(check_headers_alone target include_root)
    if(NOT KLUNORTREDI_CHECK_HEADERS)
        return()
    endif()
    set(sources)
    foreach(header IN LISTS ARGN)
        string(MAKE_C_IDENTIFIER ${header} stem)
        set(source ${CMAKE_CURRENT_BINARY_DIR}/headers_alone/${stem}.cpp)
        file(CONFIGURE OUTPUT ${source} CONTENT "#include \"@header@\" // IWYU pragma: keep\n" @ONLY)
        list(APPEND sources ${source})
    endforeach()
    add_library(${target}_headers_alone OBJECT ${sources})
    target_include_directories(${target}_headers_alone PRIVATE ${include_root})
    target_link_libraries(${target}_headers_alone PRIVATE project_options ${target})
endfunction()

# Common headers are compiled once per target: those of the tests (KLUNORTREDI_PCH=TESTS), and also those of the
# libraries and commands (ALL). NONE and TESTS leave it to each source of the product to name its own includes.
set(KLUNORTREDI_PCH ALL CACHE STRING "Precompiled headers: ALL, TESTS or NONE")
function(precompile_headers target)
    if(KLUNORTREDI_PCH STREQUAL ALL)
        target_precompile_headers(${target} PRIVATE ${ARGN})
    endif()
endfunction()
