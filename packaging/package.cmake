# What the two Debian packages hold and say: cmake --workflow --preset package
#
# orvana-team-monitor  the client, the activity watcher and their place in the desktop
# orvana-localservice  the task service for trying out, a development tool

set(desktop_id org.example.orvana)
set(client_package orvana-team-monitor)
set(localservice_package orvana-localservice)

# packaged_gzip(COMPONENT FOLDER FILE): installs FILE with the values of this build filled
# in, compressed as Debian wants it, without a time stamp.
set(gzipped_files)
function(packaged_gzip component folder file)
    get_filename_component(name ${file} NAME)
    string(REGEX REPLACE "\\.in$" "" name ${name})
    set(text ${CMAKE_CURRENT_BINARY_DIR}/packaging/${component}/${name})
    configure_file(${file} ${text} @ONLY)
    set(result ${text}.gz)
    add_custom_command(OUTPUT ${result}
        COMMAND gzip -9nc ${text} > ${result}
        DEPENDS ${text}
        VERBATIM)
    install(FILES ${result} DESTINATION ${folder} COMPONENT ${component})
    set(gzipped_files ${gzipped_files} ${result} PARENT_SCOPE)
endfunction()

set(here ${CMAKE_CURRENT_LIST_DIR})
set(artwork ${PROJECT_SOURCE_DIR}/src/resources)

foreach(page orvana orvana-control orvana-minutes orvana-watcher)
    packaged_gzip(client ${CMAKE_INSTALL_MANDIR}/man1 ${here}/man/${page}.1)
endforeach()
packaged_gzip(localservice ${CMAKE_INSTALL_MANDIR}/man1 ${here}/man/orvana-localservice.1)
foreach(component client localservice)
    set(doc ${CMAKE_INSTALL_DATAROOTDIR}/doc/${${component}_package})
    set(package ${${component}_package})
    packaged_gzip(${component} ${doc} ${here}/changelog.in)
    install(FILES ${here}/copyright DESTINATION ${doc} COMPONENT ${component})
endforeach()
add_custom_target(packaged_texts ALL DEPENDS ${gzipped_files})

configure_file(${here}/${desktop_id}.desktop ${CMAKE_CURRENT_BINARY_DIR}/packaging/${desktop_id}.desktop @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/packaging/${desktop_id}.desktop
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/applications COMPONENT client)
configure_file(${here}/${desktop_id}.metainfo.xml ${CMAKE_CURRENT_BINARY_DIR}/packaging/${desktop_id}.metainfo.xml @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/packaging/${desktop_id}.metainfo.xml
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/metainfo COMPONENT client)
foreach(size 16 22 24 32 48 64 128 256)
    install(FILES ${artwork}/hicolor/${size}/orvana.png
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/icons/hicolor/${size}x${size}/apps COMPONENT client)
endforeach()
install(FILES ${artwork}/svg/orvana.svg
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/icons/hicolor/scalable/apps COMPONENT client)

# Desktops that reach graphical-session.target start the watcher by the link, all
# others by the autostart entry. That restarts the unit, which costs no connection: one
# that still runs may wait for the compositor of a session that is over. Where no
# service manager runs for the user, the entry starts the watcher itself unless its unit
# is masked; a second watcher would find the port taken and end.
set(wanted ${CMAKE_CURRENT_BINARY_DIR}/packaging/graphical-session.target.wants)
file(MAKE_DIRECTORY ${wanted})
file(CREATE_LINK ../orvana-watcher.service ${wanted}/orvana-watcher.service SYMBOLIC)
install(DIRECTORY ${wanted} DESTINATION lib/systemd/user COMPONENT client)
install(FILES ${here}/orvana-watcher.desktop
    DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/xdg/autostart COMPONENT client)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "Orvana Team Monitor developers")
set(CPACK_PACKAGE_CONTACT "Orvana Team Monitor developers <maintainers@orvana.example>")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://orvana.example/")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
# Otherwise it would come before each package's own first line.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_COMPONENTS_ALL client localservice)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

set(CPACK_DEBIAN_CLIENT_PACKAGE_NAME ${client_package})
set(CPACK_DEBIAN_CLIENT_PACKAGE_SECTION misc)
# Texts of Qt's own dialogs, the browser for task pages, and the user's service
# manager, which runs the watcher.
set(CPACK_DEBIAN_CLIENT_PACKAGE_RECOMMENDS
    "ca-certificates, libpam-systemd, qttranslations5-l10n, xdg-utils")
set(CPACK_DEBIAN_CLIENT_PACKAGE_SUGGESTS "${localservice_package}, xdg-desktop-portal, xwayland")
set(CPACK_DEBIAN_CLIENT_PACKAGE_CONTROL_EXTRA ${here}/conffiles)
set(CPACK_DEBIAN_CLIENT_DESCRIPTION
"time tracker for a team task service
Orvana Team Monitor shows the tasks of one's teams in a small window and keeps
the working time of the day: it counts minutes while the timer runs, reports
them with the activity at keyboard and mouse and a picture of the desktop, and
keeps what could not be sent until the service can be reached again.

The package also holds the activity watcher, which tells the client that
somebody works at this desktop. The user interface is in Russian.")

set(CPACK_DEBIAN_LOCALSERVICE_PACKAGE_NAME ${localservice_package})
set(CPACK_DEBIAN_LOCALSERVICE_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_LOCALSERVICE_PACKAGE_SUGGESTS ${client_package})
set(CPACK_DEBIAN_LOCALSERVICE_DESCRIPTION
"team task service on this machine for trying Orvana Team Monitor
Answers the client of Orvana Team Monitor over HTTPS on 127.0.0.1 with teams,
tasks and users from a file, shows what it received on a web page, and can
play an outage. Meant for development and demonstrations, not for a team's
work.")

include(CPack)
