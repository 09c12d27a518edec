# The one place that turns XF_MODULE_ROOT into what needs it: a header for the
# module and the MIB file.
string(REPLACE "." ";" XF_MODULE_ROOT_IDS "${XF_MODULE_ROOT}")
list(LENGTH XF_MODULE_ROOT_IDS root_length)
if(NOT root_length EQUAL 9 OR NOT XF_MODULE_ROOT MATCHES "^1\\.3\\.6\\.1\\.4\\.1(\\.(0|[1-9][0-9]*))+$")
    message(FATAL_ERROR
        "XF_MODULE_ROOT must be 9 sub-identifiers below enterprises "
        "(1.3.6.1.4.1), not \"${XF_MODULE_ROOT}\"")
endif()
list(JOIN XF_MODULE_ROOT_IDS ", " XF_MODULE_ROOT_INITIALIZER)
configure_file(${CMAKE_CURRENT_LIST_DIR}/module_root.h.in
    ${PROJECT_BINARY_DIR}/generated/module_root.h @ONLY)

# The MIB file of the tree is complete for the default arc; the copy in the
# build tree carries the configured one.
list(SUBLIST XF_MODULE_ROOT_IDS 6 3 root_tail)
list(JOIN root_tail " " root_tail)
set(mib_source ${PROJECT_SOURCE_DIR}/mibs/XF-CONFIG-COPY-MIB.txt)
if(EXISTS ${mib_source})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${mib_source})
    file(READ ${mib_source} mib)
    string(REPLACE "::= { enterprises 32473 1 1 }"
        "::= { enterprises ${root_tail} }" mib "${mib}")
    if(NOT mib MATCHES "::= { enterprises ${root_tail} }")
        message(FATAL_ERROR "mibs/XF-CONFIG-COPY-MIB.txt does not name its arc")
    endif()
    file(WRITE ${PROJECT_BINARY_DIR}/mibs/XF-CONFIG-COPY-MIB.txt "${mib}")
endif()
