# What an installation holds: the library with its resources beside it, the provider in the folder
# below where it is looked for too, the programs that read tags, make ringtones and play them beside
# it, the tool with its manual pages, its completions and the service that runs it, the window with
# its entry in menus, the virtual phone to try all of it on, and what applications include.

include(CMakePackageConfigHelpers)

set_target_properties(krl_headers PROPERTIES EXPORT_NAME Headers)
set_target_properties(KRLCoreFoundation PROPERTIES EXPORT_NAME CoreFoundation)
install(TARGETS KRLVesk KRLCoreFoundation krl_headers EXPORT KRLVesk
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")

# For those who build against it: find_package(KRLVesk), pkg-config krlvesk. Both may be moved as a
# whole. Another minor version of 0.x may want other sources (docs/packaging.md).
set(package "${CMAKE_INSTALL_LIBDIR}/cmake/KRLVesk")
install(EXPORT KRLVesk NAMESPACE KRLVesk:: FILE KRLVeskConfig.cmake DESTINATION "${package}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/KRLVeskConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/KRLVeskConfigVersion.cmake" DESTINATION "${package}")
set(pkgconfig "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
    BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}/${pkgconfig}" OUTPUT_VARIABLE PREFIX_FROM_PKGCONFIG)
configure_file("${PROJECT_SOURCE_DIR}/packaging/krlvesk.pc.in" "${PROJECT_BINARY_DIR}/krlvesk.pc"
               @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/krlvesk.pc" DESTINATION "${pkgconfig}")

install(DIRECTORY "${KRL_RESOURCES}" DESTINATION "${CMAKE_INSTALL_LIBDIR}")
if(TARGET MobileDevice)
    install(TARGETS MobileDevice LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}/KRLVesk")
endif()
install(TARGETS vesk-tags RUNTIME DESTINATION "${CMAKE_INSTALL_LIBDIR}/KRLVesk")
if(TARGET vesk-prepare)
    install(TARGETS vesk-prepare RUNTIME DESTINATION "${CMAKE_INSTALL_LIBDIR}/KRLVesk")
endif()
if(TARGET vesk-play)
    install(TARGETS vesk-play RUNTIME DESTINATION "${CMAKE_INSTALL_LIBDIR}/KRLVesk")
endif()
install(TARGETS vesk virtualphone RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
if(TARGET vesk-desktop)
    install(TARGETS vesk-desktop RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
    set(data "${PROJECT_SOURCE_DIR}/desktop/data/com.korvane.Vesk")
    install(FILES "${data}.desktop" DESTINATION "${CMAKE_INSTALL_DATADIR}/applications")
    install(FILES "${data}.metainfo.xml" DESTINATION "${CMAKE_INSTALL_DATADIR}/metainfo")
    install(FILES "${data}.svg"
            DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps")
endif()
set(manual "${PROJECT_BINARY_DIR}/manual")
install(DIRECTORY "${manual}/man1" DESTINATION "${CMAKE_INSTALL_MANDIR}")
install(FILES "${manual}/bash/vesk"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
install(FILES "${manual}/zsh/_vesk" DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions")
install(FILES "${manual}/fish/vesk.fish"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")
# Where the tool stands is known when it is installed; of several installations at once each has a
# place of its own to write it down.
install(CODE "
    set(VESK_PROGRAM \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/vesk\")
    string(MD5 place \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
    set(folder \"${PROJECT_BINARY_DIR}/service/\${place}\")
    configure_file(\"${PROJECT_SOURCE_DIR}/packaging/systemd/vesk-watch@.service.in\"
                   \"\${folder}/vesk-watch@.service\" @ONLY)
    file(INSTALL DESTINATION \"\${CMAKE_INSTALL_PREFIX}/lib/systemd/user\" TYPE FILE
         FILES \"\${folder}/vesk-watch@.service\")
    file(REMOVE_RECURSE \"\${folder}\")")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/"
                  "${PROJECT_SOURCE_DIR}/corefoundation/include/"
                  "${PROJECT_SOURCE_DIR}/mobiledevice/include/"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
