# Where things go on a machine that stays. The daemon and all that belongs to it are the component
# "daemon"; what people use at their desks is the component "tools", and the page for a browser, which
# needs more, "view".
include(GNUInstallDirs)
set(LUMET_SYSTEMD_DIR lib/systemd/system CACHE STRING "Directory of units")
set(LUMET_ZSH_COMPLETION_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING
    "Directory of completions for zsh")

function(lumet_install_manual component)
  foreach(page ${ARGN})
    string(REGEX REPLACE ".*\\." "" section ${page})
    install(FILES ${PROJECT_SOURCE_DIR}/docs/man/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
            COMPONENT ${component})
  endforeach()
endfunction()

# A program for the desk, with its manual docs/man/NAME.1 and its completions. Those that have none
# of their own share what reads their --help.
function(lumet_install_tool name component)
  install(TARGETS ${name} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${component})
  lumet_install_manual(${component} ${name}.1)
  set(source ${PROJECT_SOURCE_DIR}/tools/completion)
  set(completion lumet-tool)
  if(EXISTS ${source}/${name}.bash)
    set(completion ${name})
  endif()
  install(FILES ${source}/${completion}.bash RENAME ${name} COMPONENT ${component}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${source}/_${completion} RENAME _${name} COMPONENT ${component}
          DESTINATION ${LUMET_ZSH_COMPLETION_DIR})
endfunction()

function(lumet_install_daemon)
  install(TARGETS lumet DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
  lumet_install_manual(daemon lumet.8 tavo.conf.5)
  foreach(file lumet.service real-time.conf)
    configure_file(packaging/systemd/${file}.in ${file} @ONLY)
  endforeach()
  set(source ${PROJECT_SOURCE_DIR}/packaging/systemd)
  install(FILES ${PROJECT_BINARY_DIR}/lumet.service DESTINATION ${LUMET_SYSTEMD_DIR}
          COMPONENT daemon)
  install(FILES ${source}/dsporrel.conf DESTINATION ${LUMET_SYSTEMD_DIR}/dev-dsporrel.device.d
          RENAME lumet.conf COMPONENT daemon)
  install(FILES ${source}/sysusers.conf DESTINATION lib/sysusers.d
          RENAME lumet.conf COMPONENT daemon)
  install(FILES ${source}/tmpfiles.conf DESTINATION lib/tmpfiles.d
          RENAME lumet.conf COMPONENT daemon)
  install(FILES ${source}/udev.rules DESTINATION lib/udev/rules.d
          RENAME 60-lumet.rules COMPONENT daemon)
  install(FILES ${PROJECT_BINARY_DIR}/real-time.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
          COMPONENT daemon)
  file(GLOB pages docs/*.md)
  install(FILES README.md CHANGELOG.md SECURITY.md ${pages} DESTINATION ${CMAKE_INSTALL_DOCDIR}
          COMPONENT daemon)
  install(DIRECTORY docs/schema DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT daemon)
endfunction()
