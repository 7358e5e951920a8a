find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)

# Encrypted sessions and pairing. Without it the provider refuses both with a status that says so.
pkg_check_modules(NSS IMPORTED_TARGET nss)
if(NOT NSS_FOUND)
    message(WARNING "nss not found: no encrypted sessions, so most phones cannot be reached, and no pairing")
endif()

# The process that reads tags: what reads them, and what keeps it from everything else.
pkg_check_modules(TAGLIB REQUIRED IMPORTED_TARGET taglib)
pkg_check_modules(SECCOMP REQUIRED IMPORTED_TARGET libseccomp)
pkg_check_modules(NETTLE REQUIRED IMPORTED_TARGET nettle)
pkg_check_modules(UTF8PROC REQUIRED IMPORTED_TARGET libutf8proc)

# The process that makes ringtones of songs. Without it vesk says that it is missing.
pkg_check_modules(FFMPEG IMPORTED_TARGET
    libavformat libavcodec libavfilter libswresample libavutil)
if(NOT FFMPEG_FOUND)
    message(STATUS "FFmpeg's libraries not found: no vesk-prepare, which makes ringtones of songs")
endif()

# The process that plays files. Without it vesk says that it is missing.
pkg_check_modules(GSTREAMER IMPORTED_TARGET gstreamer-1.0)
if(NOT GSTREAMER_FOUND)
    message(STATUS "GStreamer not found: no vesk-play, which plays ringtones")
endif()

# The window. All else is built without it.
pkg_check_modules(GTK IMPORTED_TARGET gtk4>=4.8 libadwaita-1>=1.2 gio-unix-2.0)
if(NOT GTK_FOUND)
    message(STATUS "GTK 4 and libadwaita not found: no vesk-desktop, the window")
endif()

# The Python module, for the Python of the system, whose headers are installed: another one in PATH is
# not meant. -DPython_EXECUTABLE chooses. All else is built without it.
if(NOT Python_EXECUTABLE)
    find_program(Python_EXECUTABLE python3 PATHS /usr/bin NO_DEFAULT_PATH)
endif()
find_package(Python COMPONENTS Interpreter Development.Module)
if(Python_Development.Module_FOUND)
    find_package(pybind11 CONFIG)
endif()
if(NOT pybind11_FOUND)
    message(STATUS "pybind11 or Python's headers not found: no Python module")
endif()

find_package(CLI11 REQUIRED)
find_package(fmt REQUIRED)
find_package(nlohmann_json REQUIRED)

if(BUILD_TESTING)
    find_package(GTest REQUIRED)
    # For the example of a foreign main loop.
    pkg_check_modules(GLIB REQUIRED IMPORTED_TARGET glib-2.0)
    # The peer: its libraries and tools prove the virtual phone.
    pkg_check_modules(USBMUXD REQUIRED IMPORTED_TARGET libusbmuxd-2.0)
    pkg_check_modules(IMOBILEDEVICE REQUIRED IMPORTED_TARGET libimobiledevice-1.0)
endif()
