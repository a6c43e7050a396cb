# Prepares the installed files before CPack packs them. Debian's policy requires that programs contain no
# symbols and compiler versions, and that manual pages and changelogs are compressed. gzip stores no name
# and no time, so equal documents stay equal.
file(GLOB_RECURSE files "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*")
foreach(file ${files})
    if(file MATCHES "/Contents/MacOS/[^/]+$|\\.so$")
        execute_process(COMMAND strip --strip-unneeded --remove-section=.comment "${file}"
            COMMAND_ERROR_IS_FATAL ANY)
    elseif(file MATCHES "/share/man/.*\\.[1-9]$|/changelog$")
        execute_process(COMMAND gzip -9 --no-name "${file}" COMMAND_ERROR_IS_FATAL ANY)
    endif()
endforeach()
