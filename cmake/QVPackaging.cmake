# Installing like a desktop program, and the Debian package made from it:
#   cmake --preset default && cmake --build --preset default && (cd build/default && cpack -G DEB)
# Everything the package holds is installed by these rules (and the targets'
# own), so `cmake --install` and the package always agree.
include(GNUInstallDirs)

set(QV_APP_ID "org.quorvel.Quorvel")
set(QV_PACKAGING_DIR "${PROJECT_SOURCE_DIR}/packaging")

# The helper programs live beside the application, which starts them by path.
foreach(helper quorvel-handler quorvel-scheduler)
  if(TARGET ${helper})
    install(TARGETS ${helper} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

install(FILES ${QV_PACKAGING_DIR}/${QV_APP_ID}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${QV_PACKAGING_DIR}/${QV_APP_ID}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${QV_PACKAGING_DIR}/${QV_APP_ID}.policy DESTINATION ${CMAKE_INSTALL_DATADIR}/polkit-1/actions)

# The icon: the one drawing, and bitmaps of it at the usual sizes.
set(QV_ICON_SVG "${PROJECT_SOURCE_DIR}/resources/images/quorvel.svg")
install(FILES ${QV_ICON_SVG} DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps
        RENAME ${QV_APP_ID}.svg)
if(TARGET qv-icon-render)
  set(QV_ICON_SIZES 16 22 24 32 48 64 128 256 512)
  set(QV_ICON_DIR "${PROJECT_BINARY_DIR}/icons")
  set(QV_ICON_PNGS "")
  foreach(size IN LISTS QV_ICON_SIZES)
    list(APPEND QV_ICON_PNGS "${QV_ICON_DIR}/${size}x${size}/apps/${QV_APP_ID}.png")
  endforeach()
  add_custom_command(OUTPUT ${QV_ICON_PNGS}
    COMMAND ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=0
            $<TARGET_FILE:qv-icon-render> ${QV_ICON_SVG} ${QV_ICON_DIR} ${QV_APP_ID} ${QV_ICON_SIZES}
    DEPENDS qv-icon-render ${QV_ICON_SVG}
    COMMENT "Drawing the icon at ${QV_ICON_SIZES} px")
  add_custom_target(quorvel-icons ALL DEPENDS ${QV_ICON_PNGS})
  install(DIRECTORY ${QV_ICON_DIR}/ DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor)
endif()

# Manual pages. Where the command line writes its own from its help texts
# (and installs it), that page is only compressed as Debian wants; otherwise
# one is filled from its --help here. The application's is written by hand.
set(QV_MAN_DIR "${PROJECT_BINARY_DIR}/man")
set(QV_MAN_PAGES ${QV_MAN_DIR}/quorvel.1.gz)
set(QV_MAN_COMMANDS COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/docs/quorvel.1 ${QV_MAN_DIR}/quorvel.1)
set(QV_MAN_GZIP ${QV_MAN_DIR}/quorvel.1)
if(TARGET quorvel-cli-man)
  install(CODE "
    set(page \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man1/quorvel-cli.1\")
    if(EXISTS \"\${page}\")
      execute_process(COMMAND gzip -9nf \"\${page}\" COMMAND_ERROR_IS_FATAL ANY)
    endif()")
else()
  list(APPEND QV_MAN_PAGES ${QV_MAN_DIR}/quorvel-cli.1.gz)
  list(APPEND QV_MAN_COMMANDS
    COMMAND ${CMAKE_COMMAND} -DCLI=$<TARGET_FILE:quorvel-cli> -DTEMPLATE=${PROJECT_SOURCE_DIR}/docs/quorvel-cli.1.in
            -DVERSION=${PROJECT_VERSION} -DOUT=${QV_MAN_DIR}/quorvel-cli.1 -P ${PROJECT_SOURCE_DIR}/cmake/QVManPage.cmake)
  list(APPEND QV_MAN_GZIP ${QV_MAN_DIR}/quorvel-cli.1)
endif()
add_custom_command(OUTPUT ${QV_MAN_PAGES}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${QV_MAN_DIR}
  ${QV_MAN_COMMANDS}
  COMMAND gzip -9nf ${QV_MAN_GZIP}
  DEPENDS quorvel-cli ${PROJECT_SOURCE_DIR}/docs/quorvel-cli.1.in ${PROJECT_SOURCE_DIR}/docs/quorvel.1
          ${PROJECT_SOURCE_DIR}/cmake/QVManPage.cmake
  COMMENT "Writing the manual pages")
add_custom_target(quorvel-man ALL DEPENDS ${QV_MAN_PAGES})
install(FILES ${QV_MAN_PAGES} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

# What Debian asks of every package's documentation folder.
set(QV_DOC_DIR "${PROJECT_BINARY_DIR}/doc")
add_custom_command(OUTPUT ${QV_DOC_DIR}/changelog.gz
  COMMAND ${CMAKE_COMMAND} -E make_directory ${QV_DOC_DIR}
  COMMAND ${CMAKE_COMMAND} -E copy ${QV_PACKAGING_DIR}/changelog ${QV_DOC_DIR}/changelog
  COMMAND gzip -9nf ${QV_DOC_DIR}/changelog
  DEPENDS ${QV_PACKAGING_DIR}/changelog)
add_custom_target(quorvel-doc ALL DEPENDS ${QV_DOC_DIR}/changelog.gz)
install(FILES ${QV_PACKAGING_DIR}/copyright ${QV_DOC_DIR}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/quorvel)

set(CPACK_PACKAGE_NAME "quorvel")
set(CPACK_PACKAGE_VENDOR "Quorvel developers")
set(CPACK_PACKAGE_CONTACT "Quorvel developers <dev@quorvel.org>")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "font doctor for large Mac and PC font collections")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_STRIP_FILES ON)
set(CPACK_GENERATOR "DEB")
set(CPACK_DEBIAN_FILE_NAME "DEB-DEFAULT")
set(CPACK_DEBIAN_PACKAGE_SECTION "graphics")
set(CPACK_DEBIAN_PACKAGE_PRIORITY "optional")
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://quorvel.org/")
set(QV_PACKAGE_HOLDS "the desktop application (quorvel) and the command
line (quorvel-cli)")
if(TARGET quorvel-handler OR TARGET quorvel-scheduler)
  set(QV_PACKAGE_HOLDS "the desktop application (quorvel), the command line
(quorvel-cli) and the auto-scan helpers")
endif()
# The summary above is the first line; CPack indents these lines beneath it.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "Quorvel examines TrueType, OpenType, PostScript Type 1 and Type 3 fonts and
classic Mac suitcases with their resource forks (kept in extended attributes,
AppleDouble files or netatalk folders). It finds damaged, duplicate and
orphaned fonts, repairs what can be repaired, moves the rest into a
quarantine from which they can be restored, gathers healthy fonts into a
library folder tree and writes an HTML report of every diagnosis.

The package holds ${QV_PACKAGE_HOLDS}.")
# Libraries from the binaries themselves; the tools run by path beside them.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The report viewer's engine runs in a process of its own; update checks over
# HTTPS load the TLS library at run time.
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "libqt6webenginecore6-bin, libssl3, fontconfig, pkexec, dbus-user-session | dbus-x11, shared-mime-info")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "xdg-utils")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
