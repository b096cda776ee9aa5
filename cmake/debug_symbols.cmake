# ravlo_split_debug_symbols(target file): after the link, moves the debug records of the target's binary, `file`, into
# `file`.debug beside it and leaves a link (name and checksum) in the binary.
function(ravlo_split_debug_symbols target file)
    # objcopy writes a time into the header, which would make each build a different file.
    set(objcopy ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=0 ${CMAKE_OBJCOPY})
    add_custom_command(TARGET ${target} POST_BUILD
        WORKING_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}
        COMMAND ${objcopy} --only-keep-debug ${file} ${file}.debug
        COMMAND ${objcopy} --strip-all ${file}
        COMMAND ${objcopy} --add-gnu-debuglink=${file}.debug ${file}
        BYPRODUCTS ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${file}.debug
        VERBATIM)
endfunction()
