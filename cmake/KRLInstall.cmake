# What an installation holds: the library with its resources beside it, the provider in the folder
# below where it is looked for too, the programs that read tags, make ringtones
# and play them beside it, the tool, and what applications include.

install(TARGETS KRLVesk KRLCoreFoundation LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
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
install(TARGETS vesk RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/"
                  "${PROJECT_SOURCE_DIR}/corefoundation/include/"
                  "${PROJECT_SOURCE_DIR}/mobiledevice/include/"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
