# ravlo_add_version_resource(target file description): gives the target, a program or DLL called `file`, a version
# resource, which the file's properties show.
function(ravlo_add_version_resource target file description)
    get_filename_component(RAVLO_INTERNAL_NAME ${file} NAME_WE)
    set(RAVLO_FILE_NAME ${file})
    set(RAVLO_FILE_DESCRIPTION ${description})
    set(RAVLO_FILE_TYPE VFT_APP)
    if(file MATCHES "\\.dll$")
        set(RAVLO_FILE_TYPE VFT_DLL)
    endif()
    set(resource ${PROJECT_BINARY_DIR}/generated/${RAVLO_INTERNAL_NAME}.rc)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${resource} @ONLY)
    target_sources(${target} PRIVATE ${resource})
endfunction()
