# What is installed besides programs, and the Debian package: cpack --config build/release/CPackConfig.cmake
set(packaging ${PROJECT_SOURCE_DIR}/packaging)
if(SNIPWREN_PROGRAMS AND TARGET snipwren_host_linux)
    foreach(file snipwren.1 snipwren.service org.snipwren.Snipwren.metainfo.xml)
        configure_file(${packaging}/${file}.in ${PROJECT_BINARY_DIR}/packaging/${file} @ONLY)
    endforeach()
    find_program(GZIP_PROGRAM gzip REQUIRED)
    add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/packaging/snipwren.1.gz
        COMMAND ${GZIP_PROGRAM} -9 -n -c snipwren.1 > snipwren.1.gz
        DEPENDS ${PROJECT_BINARY_DIR}/packaging/snipwren.1
        WORKING_DIRECTORY ${PROJECT_BINARY_DIR}/packaging)
    add_custom_target(manual ALL DEPENDS ${PROJECT_BINARY_DIR}/packaging/snipwren.1.gz)
    install(FILES ${PROJECT_BINARY_DIR}/packaging/snipwren.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    install(FILES ${PROJECT_BINARY_DIR}/packaging/snipwren.service DESTINATION lib/systemd/user)
    install(FILES ${PROJECT_BINARY_DIR}/packaging/org.snipwren.Snipwren.metainfo.xml
            DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
    install(FILES ${packaging}/snipwren.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
    # Not into the system's own autostart folder: listening to keys is each user's decision.
    install(FILES ${packaging}/autostart/snipwren.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/snipwren/autostart)
    install(FILES ${packaging}/icons/snipwren.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
    install(FILES ${packaging}/icons/snipwren-symbolic.svg
            DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/symbolic/apps)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME snipwren)
set(CPACK_PACKAGE_CONTACT "The Snipwren developers <packages@snipwren.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Capture notes, timers and reminders from whatever you are typing in")
set(CPACK_PACKAGE_DESCRIPTION "Typing // and a command word in any text field opens a small window at the caret;
what is typed there becomes a note, a timer, a reminder or an event, and the
field is left as it was.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "ca-certificates, tzdata")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "at-spi2-core, xdg-utils, notification-daemon")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS OFF)
include(CPack)
