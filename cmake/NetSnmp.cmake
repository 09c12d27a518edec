# Net-SNMP's agent libraries, as NetSnmp::agent.
#
# Library callback 9, which the module takes for a shifted start time, is
# something else from 5.10 on.
find_path(NETSNMP_INCLUDE_DIR net-snmp/net-snmp-config.h REQUIRED)
find_library(NETSNMP_LIBRARY netsnmp REQUIRED)
find_library(NETSNMP_AGENT_LIBRARY netsnmpagent REQUIRED)
find_library(NETSNMP_MIBS_LIBRARY netsnmpmibs REQUIRED)

include(CheckCXXSourceRuns)
file(GLOB_RECURSE netsnmp_config_headers
    ${NETSNMP_INCLUDE_DIR}/net-snmp/net-snmp-config*.h)
set(NETSNMP_VERSION "")
foreach(header ${netsnmp_config_headers})
    file(STRINGS ${header} version_line REGEX "define[ \t]+PACKAGE_VERSION[ \t]+\"")
    if(version_line MATCHES "\"([0-9]+\\.[0-9]+[0-9.]*)")
        set(NETSNMP_VERSION ${CMAKE_MATCH_1})
    endif()
endforeach()
if(NETSNMP_VERSION STREQUAL "")
    message(FATAL_ERROR "Net-SNMP's version was not found in its headers")
endif()
if(NETSNMP_VERSION VERSION_GREATER_EQUAL 5.10)
    message(FATAL_ERROR
        "Net-SNMP ${NETSNMP_VERSION}: library callback 9 is not a shifted start "
        "time there; build against 5.9")
endif()
message(STATUS "Net-SNMP ${NETSNMP_VERSION}")

add_library(NetSnmp::agent INTERFACE IMPORTED)
target_include_directories(NetSnmp::agent SYSTEM INTERFACE ${NETSNMP_INCLUDE_DIR})
target_link_libraries(NetSnmp::agent INTERFACE
    ${NETSNMP_MIBS_LIBRARY} ${NETSNMP_AGENT_LIBRARY} ${NETSNMP_LIBRARY})
