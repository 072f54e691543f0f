# Makes the configuration of an installation, unless there is one. The prefix may differ from that of the
# build, so this is decided while installing.
set(CMAKE_INSTALL_LIBDIR lib) # not used here; GNUInstallDirs could not guess it in a script
include(GNUInstallDirs)
set(STATE "$ENV{DESTDIR}${CMAKE_INSTALL_FULL_LOCALSTATEDIR}/lib/optimize_option")
set(SAMPLE "$ENV{DESTDIR}${CMAKE_INSTALL_FULL_DATADIR}/optimize_option")
set(configuration "${STATE}/config/system_operation/conf.xml")
if(EXISTS "${configuration}")
  message(STATUS "Kept: ${configuration}")
else()
  message(STATUS "Making: ${configuration}")
  configure_file("${SOURCE}" "${SCRIPT}" @ONLY)
  execute_process(COMMAND sh "${SCRIPT}" install COMMAND_ERROR_IS_FATAL ANY)
endif()
