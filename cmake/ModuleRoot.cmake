# The one place that turns the roots into what needs them: a header for the code
# and a MIB file for each.
function(xf_check_root root name)
    if(NOT root MATCHES "^1\\.3\\.6\\.1\\.4\\.1(\\.(0|[1-9][0-9]*))(\\.(0|[1-9][0-9]*))(\\.(0|[1-9][0-9]*))$")
        message(FATAL_ERROR
            "${name} must be 9 sub-identifiers below enterprises "
            "(1.3.6.1.4.1), not \"${root}\"")
    endif()
endfunction()

# The MIB file of the tree is complete for the default arc; the copy in the
# build tree carries the configured one.
function(xf_write_mib file default_arc root)
    string(REGEX REPLACE "^1\\.3\\.6\\.1\\.4\\.1\\." "" arc ${root})
    string(REPLACE "." " " arc ${arc})
    set(source ${PROJECT_SOURCE_DIR}/mibs/${file})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
    file(READ ${source} mib)
    string(REPLACE "::= { enterprises ${default_arc} }"
        "::= { enterprises ${arc} }" mib "${mib}")
    if(NOT mib MATCHES "::= { enterprises ${arc} }")
        message(FATAL_ERROR "mibs/${file} does not name its arc")
    endif()
    file(WRITE ${PROJECT_BINARY_DIR}/mibs/${file} "${mib}")
endfunction()

xf_check_root("${XF_MODULE_ROOT}" XF_MODULE_ROOT)
xf_check_root("${XF_HISTORY_ROOT}" XF_HISTORY_ROOT)
if(XF_HISTORY_ROOT STREQUAL XF_MODULE_ROOT)
    message(FATAL_ERROR "XF_HISTORY_ROOT and XF_MODULE_ROOT are the same")
endif()
string(REPLACE "." ", " XF_MODULE_ROOT_INITIALIZER ${XF_MODULE_ROOT})
string(REPLACE "." ", " XF_HISTORY_ROOT_INITIALIZER ${XF_HISTORY_ROOT})
foreach(header module_root.h history_root.h)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/${header}.in
        ${PROJECT_BINARY_DIR}/generated/${header} @ONLY)
endforeach()
xf_write_mib(XF-CONFIG-COPY-MIB.txt "32473 1 1" ${XF_MODULE_ROOT})
xf_write_mib(XF-COPY-HISTORY-MIB.txt "32473 1 2" ${XF_HISTORY_ROOT})
