# What an installation holds, and the packages that are made of it.
include(GNUInstallDirs)
file(RELATIVE_PATH libraries ${CMAKE_INSTALL_FULL_BINDIR}
  ${CMAKE_INSTALL_FULL_LIBDIR}/optimize_option)
set_target_properties(optimize_host PROPERTIES INSTALL_RPATH $ORIGIN/${libraries})
set_target_properties(rpc_ireal_Optimize_Option PROPERTIES INSTALL_RPATH $ORIGIN)
install(TARGETS optimize_host RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS fwbase rpc_ireal_Optimize_Option
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/optimize_option)

# For authors of hosts.
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/optimize_option)
install(DIRECTORY framework DESTINATION ${headers})
install(FILES rpc/result_codes.h DESTINATION ${headers}/rpc)

install(FILES packaging/optimize_host.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES packaging/completion.bash RENAME optimize_host
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR})

install(CODE "set(SOURCE \"${PROJECT_SOURCE_DIR}/config\")
set(DESTINATION \"${CMAKE_INSTALL_SYSCONFDIR}/optimize_option\")")
install(SCRIPT packaging/install_configuration.cmake)

set(CPACK_PACKAGE_NAME optimize-option)
set(CPACK_PACKAGE_CONTACT "Optimize_Option maintainers <maintainers@optimize-option.invalid>")
set(CPACK_PACKAGE_VENDOR "Optimize_Option maintainers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Lists, switches off and restores services for remote clients")
set(CPACK_PACKAGE_DESCRIPTION "A plug-in module for hosts that serve remote procedure calls, its reference host with a command
line, the headers for authors of hosts, and a sample configuration.")
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_SET_DESTDIR ON) # /etc lies outside of the prefix
set(CPACK_STRIP_FILES ON)

# The configuration is the administrator's: an upgrade leaves a changed one alone.
set(configuration /etc/optimize_option/config/system_operation/conf.xml)
file(WRITE ${PROJECT_BINARY_DIR}/conffiles ${configuration}\n)

find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
mark_as_advanced(DPKG_SHLIBDEPS)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/conffiles)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS libc-gconv-modules-extra)
if(DPKG_SHLIBDEPS) # elsewhere nobody could say what the libraries' packages are
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()

set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_DESCRIPTION ${CPACK_PACKAGE_DESCRIPTION})
set(CPACK_RPM_PACKAGE_REQUIRES "chkconfig, sed")
set(CPACK_PACKAGE_RELOCATABLE OFF)
set(CPACK_RPM_USER_FILELIST "%config(noreplace) ${configuration}")
# The libraries are private: nobody else's need of a libfwbase.so is met by them.
set(CPACK_RPM_SPEC_MORE_DEFINE "%global __provides_exclude_from ^.*/optimize_option/.*$
%global __requires_exclude ^libfwbase[.]so.*$
%global _build_id_links none
Recommends: glibc-gconv-extra")
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
  /usr/${CMAKE_INSTALL_MANDIR} /usr/${CMAKE_INSTALL_MANDIR}/man1
  /usr/share/bash-completion /usr/share/bash-completion/completions)
include(CPack)
