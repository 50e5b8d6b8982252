# Installation and Debian packaging.
#
# `cmake --install BUILD [--prefix DIR]` lays out the two programs, the desktop entry, the BA2
# MIME type, the AppStream entry, the icons and the manuals the way desktop environments look
# for them; `cpack -G DEB` in the build folder turns the same layout into zarnel_<ver>_<arch>.deb.
# The desktop database, MIME cache, icon cache and man index are refreshed by dpkg's triggers
# from those packages, so the .deb needs no maintainer scripts. After a plain `cmake --install`
# into a prefix such as /usr/local, refresh them by hand:
#   update-mime-database PREFIX/share/mime && update-desktop-database PREFIX/share/applications

include(GNUInstallDirs)

set(ZARNEL_PACKAGING_DIR ${CMAKE_CURRENT_LIST_DIR})
set(ZARNEL_ICON_SIZES 16 24 32 48 64 128 256)

install(TARGETS zarnel zarnel-cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(FILES ${ZARNEL_PACKAGING_DIR}/zarnel.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${ZARNEL_PACKAGING_DIR}/zarnel-mime.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/mime/packages RENAME zarnel.xml)
install(FILES ${ZARNEL_PACKAGING_DIR}/org.zarnel.Zarnel.metainfo.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)

# Loaded by bash-completion the first time zarnel-cli is completed.
install(FILES ${ZARNEL_PACKAGING_DIR}/zarnel-cli.bash-completion
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME zarnel-cli)

# Icons come from scripts/make-app-icon and are committed, so building needs no SVG renderer.
install(FILES ${ZARNEL_PACKAGING_DIR}/icons/zarnel.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
foreach(size IN LISTS ZARNEL_ICON_SIZES)
  install(FILES ${ZARNEL_PACKAGING_DIR}/icons/zarnel-${size}.png
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps
          RENAME zarnel.png)
endforeach()

# Manuals and the changelog are installed gzip-compressed, as Debian expects. They are
# compressed while configuring (-n keeps the output byte-identical between runs); editing one
# re-runs the configure step on the next build.
find_program(ZARNEL_GZIP gzip)
function(zarnel_install_compressed source destination name)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
  if(NOT ZARNEL_GZIP)
    install(FILES ${source} DESTINATION ${destination} RENAME ${name})
    return()
  endif()
  set(compressed ${CMAKE_BINARY_DIR}/packaging/gz/${destination}/${name}.gz)
  get_filename_component(folder ${compressed} DIRECTORY)
  file(MAKE_DIRECTORY ${folder})
  execute_process(COMMAND ${ZARNEL_GZIP} -9 -n -c ${source}
                  OUTPUT_FILE ${compressed} RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "could not compress ${source}")
  endif()
  install(FILES ${compressed} DESTINATION ${destination})
endfunction()

foreach(page zarnel.1 zarnel-cli.1)
  zarnel_install_compressed(${ZARNEL_PACKAGING_DIR}/${page} ${CMAKE_INSTALL_MANDIR}/man1 ${page})
endforeach()
zarnel_install_compressed(${ZARNEL_PACKAGING_DIR}/changelog ${CMAKE_INSTALL_DATAROOTDIR}/doc/zarnel changelog)
install(FILES ${CMAKE_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/zarnel RENAME copyright)

# ---- Debian package ----------------------------------------------------------------------

set(ZARNEL_PACKAGE_MAINTAINER
    "Zarnel maintainers <maintainers@users.noreply.c-seed-ac51df4b.example>"
    CACHE STRING "Maintainer field of the Debian package")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zarnel)
set(CPACK_PACKAGE_VENDOR "Zarnel")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${ZARNEL_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "open, extract and create BA2 game archives")
# Wrapped by hand: CPack indents the lines for the control file but does not wrap them.
string(JOIN "\n" CPACK_PACKAGE_DESCRIPTION
  "Zarnel is a desktop tool for BA2 archives, the containers that Fallout 4,"
  "Fallout 76 and Starfield keep their assets in. It reads archive versions 1,"
  "2 and 3, general and texture archives, shows what they hold and extracts"
  "every file, rebuilding the DDS header of each texture. It also builds new"
  "archives from folders and files, with zlib or LZ4 compression or none, and"
  "can choose format and compression from the kinds of files gathered."
  "."
  "The package contains the Qt 5 window, zarnel, and zarnel-cli, a command-line"
  "front end that prints archive information and file lists, and extracts,"
  "verifies and creates archives.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES TRUE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

# The window asks for the "Arial" font; Liberation Sans is its metric-compatible stand-in and
# is not a library, so dpkg-shlibdeps cannot find it.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "fonts-liberation")
find_program(ZARNEL_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(ZARNEL_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
  # Without dpkg-dev, name the libraries by hand (Debian 12 package names). zlib is reached
  # through Qt Core, whose package brings zlib1g.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
  string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS
         ", libqt5widgets5 (>= 5.15), libqt5gui5 (>= 5.15), libqt5core5a (>= 5.15)"
         ", liblz4-1, libdeflate0, libxxhash0, libstdc++6, libgcc-s1, libc6")
endif()

set(CPACK_SOURCE_GENERATOR TXZ)
set(CPACK_SOURCE_IGNORE_FILES "/\\\\.git" "/build[^/]*/" "/_CPack_Packages/" "\\\\.deb$" "Zarnel\\\\.ini$")

include(CPack)
