# The two Debian packages, which CPack makes of the components; scripts/package calls it.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tovik)
set(CPACK_PACKAGE_VENDOR "The tovik developers")
set(CPACK_PACKAGE_CONTACT "The tovik developers <tovik@tovik.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL tovik tovik-run)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/finish.cmake)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

# A line of each description that is not the first is indented by CPack.
set(CPACK_DEBIAN_TOVIK_PACKAGE_NAME tovik)
set(CPACK_DEBIAN_TOVIK_PACKAGE_SECTION education)
set(CPACK_DEBIAN_TOVIK_PACKAGE_DEPENDS
  "tovik-run (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}), hicolor-icon-theme, shared-mime-info")
set(CPACK_DEBIAN_TOVIK_PACKAGE_RECOMMENDS "xdg-utils")
set(CPACK_DEBIAN_TOVIK_PACKAGE_SUGGESTS "pulseaudio | pipewire-pulse, ffmpeg, sox")
set(CPACK_COMPONENT_TOVIK_DESCRIPTION "assembler and simulated board for the K24 processor
The K24 is a small 32-bit processor for teaching. This program assembles
sources for it and runs them on a board in windows: switches, lamps,
digits, a screen with keyboard, mouse and touch, sound, an SD card, a
serial port and a camera. It steps through a program, stops at addresses
and after writes, and shows all words of memory.
.
The same is here as one page for browsers, and tovik-page, which puts a
program and an assignment into that page.")

set(CPACK_DEBIAN_TOVIK-RUN_PACKAGE_NAME tovik-run)
set(CPACK_DEBIAN_TOVIK-RUN_PACKAGE_SECTION education)
set(CPACK_DEBIAN_TOVIK-RUN_PACKAGE_SUGGESTS "bash-completion, ffmpeg, sox")
set(CPACK_COMPONENT_TOVIK-RUN_DESCRIPTION "run and grade programs of the K24 processor without a window
The K24 is a small 32-bit processor for teaching. tovik-run assembles a
source for it and runs it on the simulated board: with input at given
times, limits, breakpoints, and reports for automatic grading.
.
tovik-grade, which grades a class with the cases of a task,
tovik-check, which finds faults and traps without running a program,
tovik-lsp and tovik-dap, the language server and the debug adapter for
editors, tovik-relay, the server that connects the serial ports of two
simulators, the manual, the examples and the library of subroutines are
here too.")

include(CPack)
