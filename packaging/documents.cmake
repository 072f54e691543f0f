# Run by cpack on the files of the packages before they are packed: compresses the manual page, gives each
# DEB the documents that Debian asks for, and lets everybody read the folders, whatever the umask is.
find_program(GZIP gzip REQUIRED)
function(compress file)
  execute_process(COMMAND ${GZIP} -9nf "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(share ${CPACK_PACKAGING_INSTALL_PREFIX}/share)
set(runtime ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/runtime)
compress(${runtime}${share}/man/man1/optimize_host.1)

if(CPACK_GENERATOR STREQUAL "DEB")
  set(main ${runtime}${share}/doc/optimize-option)
  file(RENAME ${main}/CHANGELOG.md ${main}/changelog)
  compress(${main}/changelog)
  foreach(component RUNTIME DEVELOPMENT)
    set(name ${CPACK_DEBIAN_${component}_PACKAGE_NAME})
    string(TOLOWER ${component} tree)
    set(tree ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${tree}${share})
    file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright ${CMAKE_CURRENT_LIST_DIR}/changelog.Debian
      DESTINATION ${tree}/doc/${name}
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    compress(${tree}/doc/${name}/changelog.Debian)
  endforeach()
endif()

file(CHMOD_RECURSE ${CPACK_TEMPORARY_INSTALL_DIRECTORY} DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE
  OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
