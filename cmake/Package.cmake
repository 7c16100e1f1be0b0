# The Debian package: `cpack -G DEB` in a build folder (scripts/package does
# that and runs lintian and the desktop and AppStream validators on it). The
# files below are installed by a plain `cmake --install` too, so the package
# holds nothing that an install from source lacks.
include(GNUInstallDirs)

set(TAPEDESK_HOMEPAGE "https://corvel.example/tapedesk" CACHE STRING
    "Where a release publishes TapeDesk and its docs/ folder (the AppStream screenshots are read from there)")
set(TAPEDESK_MAINTAINER "Corvel Storage <tapedesk@corvel.example>" CACHE STRING
    "The Debian package's maintainer: a name and an address")

# The AppStream id, the menu entry's file name and the window's desktop file
# name are one name, so software centres and desktops match them.
set(TAPEDESK_APP_ID com.corvel.tapedesk)
set(TAPEDESK_METAINFO ${PROJECT_BINARY_DIR}/${TAPEDESK_APP_ID}.metainfo.xml)
configure_file(${PROJECT_SOURCE_DIR}/resources/${TAPEDESK_APP_ID}.metainfo.xml.in ${TAPEDESK_METAINFO} @ONLY)
install(FILES ${TAPEDESK_METAINFO} DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)

# Debian wants manual pages and the changelog compressed with gzip -9n (no
# name or time stamp, so two builds give the same bytes).
set(package_dir ${PROJECT_BINARY_DIR}/package)
set(window_page ${package_dir}/tapedesk.1.gz)
set(debian_changelog ${package_dir}/changelog.Debian.gz)
add_custom_command(OUTPUT ${window_page} ${debian_changelog}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${package_dir}
  COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/resources/man/tapedesk.1 ${package_dir}/tapedesk.1
  COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/resources/debian/changelog
          ${package_dir}/changelog.Debian
  COMMAND gzip -9nf ${package_dir}/tapedesk.1 ${package_dir}/changelog.Debian
  DEPENDS ${PROJECT_SOURCE_DIR}/resources/man/tapedesk.1 ${PROJECT_SOURCE_DIR}/resources/debian/changelog
  COMMENT "Compressing the tapedesk manual page and the Debian changelog"
  VERBATIM)
add_custom_target(tapedesk_package_files ALL DEPENDS ${window_page} ${debian_changelog})
install(FILES ${window_page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc/tapedesk)
install(FILES ${PROJECT_SOURCE_DIR}/resources/debian/copyright ${debian_changelog} DESTINATION ${doc_dir})
install(FILES ${PROJECT_SOURCE_DIR}/resources/debian/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
        RENAME tapedesk)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tapedesk)
set(CPACK_PACKAGE_VENDOR "Corvel Storage")
set(CPACK_PACKAGE_CONTACT ${TAPEDESK_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "run LTO tape drives carrying LTFS volumes")
set(CPACK_PACKAGE_DESCRIPTION
    "TapeDesk is a desktop tool with which one operator runs the LTO tape drives
of a host when their tapes carry LTFS volumes: it lists the drives, mounts and
unmounts a drive's tape, formats a tape, updates a drive's firmware, runs the
drive's standard test and a host validation, and takes a diagnostic dump for
support. tapedesk-cli runs the same operations without a window.
.
It drives itdt, ltfs and mkltfs, which are not in Debian: they come from the
tape drive maker's and the LTFS project's downloads.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${TAPEDESK_HOMEPAGE})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Beyond the libraries: unmounting runs umount and the mounted-volume check
# runs mount, both from Debian's mount package (util-linux, which is
# essential, has neither). Commands go through /bin/zsh when it is there and
# /bin/sh otherwise, and folders open through xdg-open when it is there, so
# zsh and xdg-utils are only recommended.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "mount")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "zsh, xdg-utils")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
