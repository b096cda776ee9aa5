# Header-only packages for cross builds. Giving a cross compiler the whole of /usr/include would put the headers of the
# build machine's C library before those of Windows, so a folder in the build tree links to just the packages we use.
set(RAVLO_HEADERS ${PROJECT_BINARY_DIR}/packages)
file(MAKE_DIRECTORY ${RAVLO_HEADERS})
add_library(ravlo_packages INTERFACE)
target_include_directories(ravlo_packages SYSTEM INTERFACE ${RAVLO_HEADERS})
foreach(package CLI stb nlohmann)
    if(NOT IS_DIRECTORY /usr/include/${package})
        message(FATAL_ERROR "/usr/include/${package} is missing: run scripts/setup.sh")
    endif()
    file(CREATE_LINK /usr/include/${package} ${RAVLO_HEADERS}/${package} SYMBOLIC)
endforeach()
