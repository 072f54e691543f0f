# What an installation holds.
include(GNUInstallDirs)
file(RELATIVE_PATH libraries ${CMAKE_INSTALL_FULL_BINDIR}
  ${CMAKE_INSTALL_FULL_LIBDIR}/optimize_option)
set_target_properties(optimize_host PROPERTIES INSTALL_RPATH $ORIGIN/${libraries})
set_target_properties(rpc_ireal_Optimize_Option PROPERTIES INSTALL_RPATH $ORIGIN)
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
install(FILES CHANGELOG.md LICENSE docs/configuration.md docs/json.md docs/systemd.md
  DESTINATION ${documents})

# Ansible looks for collections in this folder if the prefix is /usr.
install(DIRECTORY ansible/
  DESTINATION ${CMAKE_INSTALL_DATADIR}/ansible/collections/ansible_collections/optimize_option/services
  PATTERN __pycache__ EXCLUDE)

# For authors of hosts.
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

target_compile_definitions(host_objects PUBLIC INSTALLED_DIRECTORY="${STATE}"
  UNITS_FOLDER="${CMAKE_INSTALL_FULL_LIBEXECDIR}/optimize_option/systemd")
install(DIRECTORY config DESTINATION ${CMAKE_INSTALL_DATADIR}/optimize_option)
# The program looks for its configuration in the folder of the prefix that it was built for, and changes
# it. It is made from the sample if there is none, for everybody to read whatever the umask is.
install(CODE "
  set(configuration \"\$ENV{DESTDIR}${STATE}/config/system_operation/conf.xml\")
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL \"${CMAKE_INSTALL_PREFIX}\")
    message(STATUS \"Not made for another prefix than ${CMAKE_INSTALL_PREFIX}: \${configuration}\")
  elseif(EXISTS \"\${configuration}\" OR IS_SYMLINK \"\${configuration}\")
    message(STATUS \"Kept: \${configuration}\")
  else()
    file(INSTALL DESTINATION \"${STATE}\" TYPE DIRECTORY FILES \"${PROJECT_SOURCE_DIR}/config\")
    file(CHMOD \"\$ENV{DESTDIR}${STATE}\" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
      GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  endif()")
