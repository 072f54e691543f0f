# What an installation holds, and the packages that are made of it.
include(GNUInstallDirs)
file(RELATIVE_PATH libraries ${CMAKE_INSTALL_FULL_BINDIR}
  ${CMAKE_INSTALL_FULL_LIBDIR}/optimize_option)
set_target_properties(optimize_host PROPERTIES INSTALL_RPATH $ORIGIN/${libraries})
set_target_properties(rpc_ireal_Optimize_Option PROPERTIES INSTALL_RPATH $ORIGIN)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME runtime)
install(TARGETS optimize_host RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
set(SYSTEMD_TOOLS ${CMAKE_INSTALL_LIBEXECDIR}/optimize_option/systemd)
install(TARGETS chkconfig RUNTIME DESTINATION ${SYSTEMD_TOOLS})
install(TARGETS fwbase rpc_ireal_Optimize_Option
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/optimize_option)
# These name the folder of the configuration, and some the program; both go with the prefix.
set(STATE ${CMAKE_INSTALL_FULL_LOCALSTATEDIR}/lib/optimize_option)
set(page cockpit/optimize_option)
foreach(file packaging/optimize_host.1 packaging/completion.bash
    ${page}/settings.js ${page}/manifest.json)
  get_filename_component(name ${file} NAME)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
  file(READ ${file} text)
  string(REPLACE /var/lib/optimize_option ${STATE} text "${text}")
  string(REPLACE /usr/bin/optimize_host ${CMAKE_INSTALL_FULL_BINDIR}/optimize_host text "${text}")
  file(WRITE ${PROJECT_BINARY_DIR}/${name} "${text}")
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/optimize_host.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_BINARY_DIR}/completion.bash RENAME optimize_host
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
# Cockpit looks for pages in this folder if the prefix is /usr or /usr/local.
install(DIRECTORY ${page} DESTINATION ${CMAKE_INSTALL_DATADIR}/cockpit
  PATTERN settings.js EXCLUDE PATTERN manifest.json EXCLUDE)
install(FILES ${PROJECT_BINARY_DIR}/settings.js ${PROJECT_BINARY_DIR}/manifest.json
  DESTINATION ${CMAKE_INSTALL_DATADIR}/${page})
# Only documents that do not point to files of the source tree.
set(documents ${CMAKE_INSTALL_DATAROOTDIR}/doc/optimize-option)
install(FILES CHANGELOG.md docs/configuration.md docs/json.md docs/systemd.md packaging/copyright DESTINATION ${documents})

# Ansible looks for collections in this folder if the prefix is /usr.
install(DIRECTORY ansible/
  DESTINATION ${CMAKE_INSTALL_DATADIR}/ansible/collections/ansible_collections/optimize_option/services
  PATTERN __pycache__ EXCLUDE)

# For authors of hosts.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/optimize_option)
install(DIRECTORY framework DESTINATION ${headers})
install(FILES rpc/entry.h rpc/result_codes.h DESTINATION ${headers}/rpc)
install(FILES fwbase/reply.h DESTINATION ${headers}/fwbase)
install(FILES transaction/answer.h transaction/calls.h transaction/entry.h transaction/line.h
  transaction/transaction.h DESTINATION ${headers}/transaction)
set_target_properties(transaction PROPERTIES OUTPUT_NAME optimize_option_transaction)
install(TARGETS transaction ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}/optimize_option)
install(FILES docs/interface.md DESTINATION ${documents})
install(DIRECTORY examples/embed DESTINATION ${documents}/examples)
install(FILES examples/child.py DESTINATION ${documents}/examples)
set(pkgconfig ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH HEADERS_FROM_PKGCONFIG ${pkgconfig} ${CMAKE_INSTALL_FULL_INCLUDEDIR}/optimize_option)
file(RELATIVE_PATH PROGRAM_FROM_PKGCONFIG ${pkgconfig} ${CMAKE_INSTALL_FULL_BINDIR}/optimize_host)
file(RELATIVE_PATH SYSTEMD_TOOLS_FROM_PKGCONFIG ${pkgconfig}
  ${CMAKE_INSTALL_FULL_LIBEXECDIR}/optimize_option/systemd)
configure_file(packaging/optimize-option.pc.in optimize-option.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/optimize-option.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
unset(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME)

# The configuration is state that the program rewrites. It is made from the sample when it is missing:
# by cmake --install, and in packages, which do not contain it, by their scripts.
set(SAMPLE ${CMAKE_INSTALL_FULL_DATADIR}/optimize_option)
target_compile_definitions(host_objects PUBLIC INSTALLED_DIRECTORY="${STATE}"
  UNITS_FOLDER="${CMAKE_INSTALL_FULL_LIBEXECDIR}/optimize_option/systemd")
install(DIRECTORY config DESTINATION ${CMAKE_INSTALL_DATADIR}/optimize_option COMPONENT runtime)
install(CODE "set(SOURCE \"${PROJECT_SOURCE_DIR}/packaging/configuration.sh.in\")
set(SCRIPT \"${PROJECT_BINARY_DIR}/install_configuration.sh\")
set(CMAKE_INSTALL_LOCALSTATEDIR \"${CMAKE_INSTALL_LOCALSTATEDIR}\")
set(CMAKE_INSTALL_DATADIR \"${CMAKE_INSTALL_DATADIR}\")" COMPONENT configuration)
install(SCRIPT packaging/install_configuration.cmake COMPONENT configuration)

set(scripts ${PROJECT_BINARY_DIR}/scripts)
configure_file(packaging/configuration.sh.in ${scripts}/postinst @ONLY)
configure_file(packaging/postrm.in ${scripts}/postrm @ONLY)

set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_PACKAGE_NAME optimize-option)
set(CPACK_PACKAGE_CONTACT "Optimize_Option maintainers <maintainers@optimize-option.invalid>")
set(CPACK_PACKAGE_VENDOR "Optimize_Option maintainers")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/documents.cmake)
set(runtime_summary "List, switch off and restore services for remote clients")
set(runtime_description "A plug-in module for hosts that serve remote procedure calls,
its reference host with a command line, and a sample configuration.")
set(development_summary "Headers and a library for hosts of the Optimize_Option module")
set(development_description "The interfaces between a host and its modules, the result codes,
a library that keeps the run levels of services that are switched off, and
the description of the interface Optimize_Option.")

find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
mark_as_advanced(DPKG_SHLIBDEPS)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME optimize-option)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${runtime_summary}\n${runtime_description}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS libc-gconv-modules-extra)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${scripts}/postinst ${scripts}/postrm)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(DPKG_SHLIBDEPS) # elsewhere nobody could say what the libraries' packages are
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
endif()
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME optimize-option-dev)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${development_summary}\n${development_description}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "optimize-option (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_RPM_COMPONENT_INSTALL ON)
set(CPACK_RPM_MAIN_COMPONENT runtime)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE "No licence has been chosen by the owner")
set(CPACK_RPM_PACKAGE_RELEASE 1)
set(CPACK_PACKAGE_RELOCATABLE OFF)
set(CPACK_RPM_CHANGELOG_FILE ${PROJECT_SOURCE_DIR}/packaging/changelog.rpm)
set(CPACK_RPM_RUNTIME_PACKAGE_SUMMARY "${runtime_summary}")
set(CPACK_RPM_RUNTIME_PACKAGE_DESCRIPTION "${runtime_description}")
set(CPACK_RPM_RUNTIME_PACKAGE_GROUP System/Base)
set(CPACK_RPM_RUNTIME_PACKAGE_REQUIRES "chkconfig, sed")
set(CPACK_RPM_RUNTIME_POST_INSTALL_SCRIPT_FILE ${scripts}/postinst)
set(CPACK_RPM_DEVELOPMENT_PACKAGE_NAME optimize-option-devel)
set(CPACK_RPM_DEVELOPMENT_PACKAGE_SUMMARY "${development_summary}")
set(CPACK_RPM_DEVELOPMENT_PACKAGE_DESCRIPTION "${development_description}")
set(CPACK_RPM_DEVELOPMENT_PACKAGE_GROUP Development/Libraries)
set(CPACK_RPM_DEVELOPMENT_PACKAGE_REQUIRES
  "optimize-option%{?_isa} = ${PROJECT_VERSION}-${CPACK_RPM_PACKAGE_RELEASE}")
# The libraries are private: nobody else's need of a libfwbase.so is met by them.
set(CPACK_RPM_SPEC_MORE_DEFINE "%global __provides_exclude_from ^.*/optimize_option/.*$
%global __requires_exclude ^libfwbase[.]so.*$
%global _build_id_links none
Packager: ${CPACK_PACKAGE_CONTACT}
Recommends: glibc-gconv-extra")
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
  /usr/${CMAKE_INSTALL_MANDIR} /usr/${CMAKE_INSTALL_MANDIR}/man1
  /usr/share/cockpit /usr/share/bash-completion /usr/share/bash-completion/completions
  /usr/${CMAKE_INSTALL_LIBEXECDIR}
  /usr/${CMAKE_INSTALL_LIBDIR}/pkgconfig)
include(CPack)
