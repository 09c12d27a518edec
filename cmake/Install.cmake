# Where everything goes that is installed. Component "agent" is what a switch
# needs, "dev" what the maker of another platform needs.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(XF_AGENT_USER "" CACHE STRING
    "User that the agent changes to, if the settings name none")

set(XF_PLATFORM_SOVERSION 1)

# The programs keep their fixed names below a prefix of their own.
set(XF_PROGRAM_PREFIX ${CMAKE_INSTALL_LIBEXECDIR}/${PROJECT_NAME})
set(XF_FULL_PROGRAM_PREFIX ${CMAKE_INSTALL_FULL_LIBEXECDIR}/${PROJECT_NAME})
set(XF_LIBRARY_DIR ${CMAKE_INSTALL_LIBDIR}/${PROJECT_NAME})
set(XF_FULL_LIBRARY_DIR ${CMAKE_INSTALL_FULL_LIBDIR}/${PROJECT_NAME})
# A maker's platform has only to lie here: the module looks for it here first.
set(XF_FULL_MAKER_DIR ${XF_FULL_LIBRARY_DIR}/maker)
set(XF_MODULE_DIR ${CMAKE_INSTALL_LIBDIR}/snmp/dlmod)
set(XF_FULL_MODULE ${CMAKE_INSTALL_FULL_LIBDIR}/snmp/dlmod/libconfigcopymib.so)

# Installs the agent side; called when its targets are there.
function(xf_install_agent)
    set_target_properties(configcopymib PROPERTIES
        INSTALL_RPATH "${XF_FULL_MAKER_DIR};${XF_FULL_LIBRARY_DIR}")
    # Not DT_RPATH: a library path that the agent is started with comes first.
    target_link_options(configcopymib PRIVATE -Wl,--enable-new-dtags)
    install(TARGETS configcopymib
        LIBRARY DESTINATION ${XF_MODULE_DIR} COMPONENT agent)
    install(TARGETS xfplatform
        LIBRARY DESTINATION ${XF_LIBRARY_DIR} COMPONENT agent
        NAMELINK_SKIP)
    install(TARGETS xftrace DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT agent)
    xf_install_programs(host host/transfer)
    install(FILES ${PROJECT_BINARY_DIR}/mibs/XF-CONFIG-COPY-MIB.txt
            ${PROJECT_BINARY_DIR}/mibs/XF-COPY-HISTORY-MIB.txt
        DESTINATION ${CMAKE_INSTALL_DATADIR}/snmp/mibs COMPONENT agent)
    install(FILES ${PROJECT_SOURCE_DIR}/host/xfhost.conf.example
            ${PROJECT_SOURCE_DIR}/docs/snmpd-v3-only.conf
        DESTINATION ${CMAKE_INSTALL_DATADIR}/${PROJECT_NAME} COMPONENT agent)
    xf_install_links()
    xf_install_system_files()
    file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.[58])
    foreach(page ${pages})
        string(REGEX MATCH "[58]$" section ${page})
        install(FILES ${page} COMPONENT agent
            DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
    endforeach()
endfunction()

# Everything that these folders build into the build tree's own /brim/bin.
function(xf_install_programs)
    set(from ${PROJECT_BINARY_DIR}/root/brim/bin)
    set(to ${XF_PROGRAM_PREFIX}/brim/bin)
    foreach(folder ${ARGN})
        get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
        foreach(target ${targets})
            get_target_property(type ${target} TYPE)
            get_target_property(where ${target} RUNTIME_OUTPUT_DIRECTORY)
            if(type STREQUAL "EXECUTABLE" AND where STREQUAL from)
                install(TARGETS ${target}
                    RUNTIME DESTINATION ${to} COMPONENT agent)
            endif()
        endforeach()
    endforeach()
    install(PROGRAMS ${from}/xfenrol DESTINATION ${to} COMPONENT agent)
endfunction()

# What an operator types is on the path.
function(xf_install_links)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/links)
    foreach(name qsh xfenrol xfvrf)
        file(RELATIVE_PATH target ${CMAKE_INSTALL_FULL_SBINDIR}
            ${XF_FULL_PROGRAM_PREFIX}/brim/bin/${name})
        file(CREATE_LINK ${target} ${PROJECT_BINARY_DIR}/links/${name} SYMBOLIC)
        install(FILES ${PROJECT_BINARY_DIR}/links/${name}
            DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT agent)
    endforeach()
endfunction()

# Units of systemd, and the snippet that turns the module on.
function(xf_install_system_files)
    set(units ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
    if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        set(units /lib/systemd/system)
    endif()
    set(tmpfiles ${CMAKE_INSTALL_PREFIX}/lib/tmpfiles.d)
    set(from ${PROJECT_SOURCE_DIR}/host/system)
    set(XF_UNIT_USER ${XF_AGENT_USER})
    if(XF_UNIT_USER STREQUAL "")
        set(XF_UNIT_USER root)
    endif()
    set(to ${PROJECT_BINARY_DIR}/system)
    foreach(name xfprocd.service snmpd.conf tmpfiles.conf)
        configure_file(${from}/${name}.in ${to}/${name} @ONLY)
    endforeach()
    install(FILES ${to}/xfprocd.service
        DESTINATION ${units} COMPONENT agent)
    install(FILES ${from}/snmpd-drop-in.conf
        DESTINATION ${units}/snmpd.service.d RENAME config-copy.conf
        COMPONENT agent)
    install(FILES ${to}/tmpfiles.conf
        DESTINATION ${tmpfiles} RENAME xfplatform.conf COMPONENT agent)
    install(FILES ${to}/snmpd.conf
        DESTINATION ${CMAKE_INSTALL_DATADIR}/${PROJECT_NAME} COMPONENT agent)
endfunction()

# What another platform is built with; the library is its maker's own.
function(xf_install_dev)
    set(headers ${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME})
    set(XF_INCLUDE_DIR ${CMAKE_INSTALL_FULL_INCLUDEDIR}/${PROJECT_NAME})
    set(package ${CMAKE_INSTALL_LIBDIR}/cmake/xfplatform)
    install(DIRECTORY platform DESTINATION ${headers} COMPONENT dev
        FILES_MATCHING PATTERN "*.h")
    install(FILES ${PROJECT_SOURCE_DIR}/host/xfplatform.map
        DESTINATION ${CMAKE_INSTALL_DATADIR}/${PROJECT_NAME} COMPONENT dev)
    # As a source: a maker builds it for the switch, with the switch's compiler.
    install(DIRECTORY tests/platform/suite/ COMPONENT dev
        DESTINATION ${CMAKE_INSTALL_DATADIR}/${PROJECT_NAME}/platform-tests)
    configure_file(cmake/xfplatform.pc.in xfplatform.pc @ONLY)
    set(XF_EXPORTS ${CMAKE_INSTALL_FULL_DATADIR}/${PROJECT_NAME}/xfplatform.map)
    configure_package_config_file(cmake/xfplatform-config.cmake.in
        ${PROJECT_BINARY_DIR}/xfplatform-config.cmake
        INSTALL_DESTINATION ${package}
        PATH_VARS XF_INCLUDE_DIR XF_EXPORTS
        NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
    write_basic_package_version_file(
        ${PROJECT_BINARY_DIR}/xfplatform-config-version.cmake
        COMPATIBILITY AnyNewerVersion)
    install(FILES ${PROJECT_BINARY_DIR}/xfplatform.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
    install(FILES ${PROJECT_BINARY_DIR}/xfplatform-config.cmake
            ${PROJECT_BINARY_DIR}/xfplatform-config-version.cmake
        DESTINATION ${package} COMPONENT dev)
endfunction()
