# What an installation holds: the library with its resources beside it, the provider in the folder
# below where it is looked for too, the programs that read tags and make ringtones
# beside it, the tool, the window with its entry in menus, and what applications include.

install(TARGETS KRLVesk KRLCoreFoundation LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(DIRECTORY "${KRL_RESOURCES}" DESTINATION "${CMAKE_INSTALL_LIBDIR}")
if(TARGET MobileDevice)
    install(TARGETS MobileDevice LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}/KRLVesk")
endif()
install(TARGETS vesk-tags RUNTIME DESTINATION "${CMAKE_INSTALL_LIBDIR}/KRLVesk")
if(TARGET vesk-prepare)
    install(TARGETS vesk-prepare RUNTIME DESTINATION "${CMAKE_INSTALL_LIBDIR}/KRLVesk")
endif()
install(TARGETS vesk RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
if(TARGET vesk-desktop)
    install(TARGETS vesk-desktop RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
    set(data "${PROJECT_SOURCE_DIR}/desktop/data/com.korvane.Vesk")
    install(FILES "${data}.desktop" DESTINATION "${CMAKE_INSTALL_DATADIR}/applications")
    install(FILES "${data}.metainfo.xml" DESTINATION "${CMAKE_INSTALL_DATADIR}/metainfo")
    install(FILES "${data}.svg"
            DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps")
endif()
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/"
                  "${PROJECT_SOURCE_DIR}/corefoundation/include/"
                  "${PROJECT_SOURCE_DIR}/mobiledevice/include/"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
