# A program that starts often holds what it needs in its own file. The dynamic loader binds several thousand names of the
# C++ library and of ours each time a program starts that is linked with them as shared libraries, which takes longer than
# checking a signature. What is left to the loader is the C library, OpenSSL and what is opened when it is needed.

# Without sanitizers, whose runtime replaces the C++ library's functions, and where the compiler has no archive of the
# runtime or Boost none of Boost.Filesystem: an exception of the one runtime must not reach the other.
option(KLUNORTREDI_ONE_FILE "Link the C++ runtime into the command and the service, and the libraries into the command" ON)
if(KLUNORTREDI_SANITIZE OR KLUNORTREDI_HOST_PACKAGE)
    set(KLUNORTREDI_ONE_FILE OFF)
endif()
if(KLUNORTREDI_ONE_FILE)
    include(CheckLinkerFlag)
    check_linker_flag(CXX "-static-libstdc++;-static-libgcc" HAS_RUNTIME_ARCHIVE)
    # Beside the shared one, of which the headers are.
    get_target_property(BOOST_FILESYSTEM_SHARED Boost::filesystem IMPORTED_LOCATION_RELEASE)
    cmake_path(GET BOOST_FILESYSTEM_SHARED PARENT_PATH BOOST_FOLDER)
    find_library(BOOST_FILESYSTEM_ARCHIVE libboost_filesystem.a HINTS ${BOOST_FOLDER} NO_DEFAULT_PATH)
    if(NOT HAS_RUNTIME_ARCHIVE OR NOT BOOST_FILESYSTEM_ARCHIVE)
        message(STATUS "The command is linked with shared libraries: an archive of the C++ runtime or of Boost.Filesystem is missing")
        set(KLUNORTREDI_ONE_FILE OFF)
    endif()
endif()

# Links the C++ runtime into `target`, from which no C++ exception and no C++ object goes to another library.
function(hold_runtime target)
    if(KLUNORTREDI_ONE_FILE)
        target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc)
    endif()
endfunction()

# Makes the objects of the libraries given part of `target`, in place of linking it with them. Records go to the
# program's own sink; Boost.Log stays with the framework's shared library, where other programs share it.
function(hold_libraries target)
    foreach(library IN LISTS ARGN)
        target_sources(${target} PRIVATE
            "$<FILTER:$<TARGET_OBJECTS:${library}>,EXCLUDE,/log_boost\\.cpp\\.o$>")
        target_include_directories(${target} PRIVATE $<TARGET_PROPERTY:${library},INTERFACE_INCLUDE_DIRECTORIES>)
    endforeach()
    target_link_libraries(${target} PRIVATE ${BOOST_FILESYSTEM_ARCHIVE})
endfunction()
