# How our own code is compiled and linked. Targets opt in by linking `ravlo_flags`; foreign code (GoogleTest) does not.

# Sanitizers are the exception: they must cover every object of a program, foreign ones too.
if(RAVLO_SANITIZE)
    add_compile_options(-fsanitize=${RAVLO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${RAVLO_SANITIZE})
endif()

# Only the libraries that a target names.
set(CMAKE_C_STANDARD_LIBRARIES "")
set(CMAKE_CXX_STANDARD_LIBRARIES "")

add_library(ravlo_flags INTERFACE)
target_compile_options(ravlo_flags INTERFACE -Wall -Wextra -Wconversion -Wshadow -Werror)
target_include_directories(ravlo_flags INTERFACE
    ${PROJECT_SOURCE_DIR}/src
    ${PROJECT_SOURCE_DIR}/include
    ${PROJECT_BINARY_DIR}/generated)

if(WIN32)
    target_compile_definitions(ravlo_flags INTERFACE
        UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00)
    # The C++ runtime goes into the file, and a link carries no time: one DLL to ship, the same bytes from the same sources.
    target_link_options(ravlo_flags INTERFACE -static -Wl,--no-insert-timestamp)
    if(NOT RAVLO_COVERAGE)
        # Debug records name files relative to the tree, so the place of the checkout leaves no trace in the binary.
        # (Line counters need the real paths.)
        target_compile_options(ravlo_flags INTERFACE
            -ffile-prefix-map=${PROJECT_BINARY_DIR}=build
            -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
    endif()
else()
    find_package(Threads REQUIRED)
    target_link_libraries(ravlo_flags INTERFACE Threads::Threads)
    target_compile_definitions(ravlo_flags INTERFACE _GLIBCXX_ASSERTIONS)
endif()

# For the code under src/ only: what is measured is the module, not its tests.
add_library(ravlo_coverage INTERFACE)
if(RAVLO_COVERAGE)
    target_compile_options(ravlo_coverage INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(ravlo_coverage INTERFACE --coverage)
endif()

# Stops the configuration with the names of the listed files that are not there.
function(ravlo_require_sources listName)
    set(missing "")
    foreach(file IN LISTS ARGN)
        if(NOT EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${file})
            string(APPEND missing "\n  ${file}")
        endif()
    endforeach()
    if(missing)
        message(FATAL_ERROR "${CMAKE_CURRENT_SOURCE_DIR}/CMakeLists.txt lists in ${listName} what does not exist:${missing}")
    endif()
endfunction()

# Stops the configuration when a .cpp file under this folder is in none of the given lists: it would never be compiled.
function(ravlo_require_all_listed)
    file(GLOB_RECURSE present CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} *.cpp)
    list(REMOVE_ITEM present ${ARGN})
    if(present)
        list(JOIN present "\n  " names)
        message(FATAL_ERROR "${CMAKE_CURRENT_SOURCE_DIR}/CMakeLists.txt does not list:\n  ${names}")
    endif()
endfunction()
