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
# Libraries are looked for in their place beside the file, in no folder of the caller's: CMake would fill the place that it
# keeps for another path with empty entries, which mean the current folder.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

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
    # a std::string that is appended to. Without them it reports neither, and its warnings are errors.
    target_compile_options(project_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-w>
        -fsanitize=${KLUNORTREDI_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(project_options INTERFACE -fsanitize=${KLUNORTREDI_SANITIZE})
else()
    target_compile_options(project_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endif()

# Every header of a target must compile alone. One that a source of the target includes first is compiled alone there (nothing
# is precompiled where this is on); for each other header one source is generated, compiled, never linked.
option(KLUNORTREDI_CHECK_HEADERS "Compile every header alone" ${PROJECT_IS_TOP_LEVEL})
function(check_headers_alone target include_root)
    if(NOT KLUNORTREDI_CHECK_HEADERS)
        return()
    endif()
    get_filename_component(root ${include_root} ABSOLUTE)
    get_target_property(of_target ${target} SOURCES)
    set(included_first)
    foreach(source IN LISTS of_target)
        get_filename_component(source ${source} ABSOLUTE)
        if(NOT EXISTS ${source})
            continue()
        endif()
        file(STRINGS ${source} first REGEX "^#include" LIMIT_COUNT 1)
        string(REGEX REPLACE "^#include \"(.*)\".*" "\\1" first "${first}")
        get_filename_component(folder ${source} DIRECTORY)
        list(APPEND included_first ${folder}/${first} ${root}/${first})
    endforeach()
    set(sources)
    foreach(header IN LISTS ARGN)
        if(${root}/${header} IN_LIST included_first)
            continue()
        endif()
        string(MAKE_C_IDENTIFIER ${header} stem)
        set(source ${CMAKE_CURRENT_BINARY_DIR}/headers_alone/${stem}.cpp)
        file(CONFIGURE OUTPUT ${source} CONTENT "#include \"@header@\" // IWYU pragma: keep\n" @ONLY)
        list(APPEND sources ${source})
    endforeach()
    if(sources)
        add_library(${target}_headers_alone OBJECT ${sources})
        target_include_directories(${target}_headers_alone PRIVATE ${include_root})
        target_link_libraries(${target}_headers_alone PRIVATE project_options ${target})
    endif()
endfunction()

# Common headers are compiled once per target: those of the tests (KLUNORTREDI_PCH=TESTS), and also those of the
# libraries and commands (ALL). NONE and TESTS leave it to each source of the product to name its own includes.
set(KLUNORTREDI_PCH ALL CACHE STRING "Precompiled headers: ALL, TESTS or NONE")
function(precompile_headers target)
    if(KLUNORTREDI_PCH STREQUAL ALL)
        target_precompile_headers(${target} PRIVATE ${ARGN})
    endif()
endfunction()
