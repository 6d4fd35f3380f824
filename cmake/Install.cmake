# What is installed on a router, by component: "modem" (the command, the plug-in, their configuration), "rpcd" (the
# endpoints on the message bus), "web" (the status page) and "doc" (manual pages, completion). `DESTDIR=ROOT cmake
# --install BUILD` puts all of them below ROOT; the prefix is /usr. The programs are installed as they are built; the
# packager strips them.

set(files openwrt/vela-modem/files)

install(TARGETS vela_modem RUNTIME DESTINATION bin COMPONENT modem)
# Whether a library is executable is a matter of distributions; here it has one mode everywhere.
install(TARGETS vela_modem_plugin LIBRARY DESTINATION lib COMPONENT modem
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
foreach(package velaconfig velaforward velamodem)
    install(FILES ${files}/${package}.config DESTINATION /etc/config RENAME ${package} COMPONENT modem
        PERMISSIONS OWNER_READ OWNER_WRITE)
endforeach()
install(PROGRAMS ${files}/vela-modem.defaults DESTINATION /etc/uci-defaults RENAME vela-modem COMPONENT modem)
# The firmware brings these two in its own places; here they are examples of their form.
install(FILES sim/image/usr/share/modem/operator.dat sim/image/www/src/lib/apn-config.js
    DESTINATION share/doc/vela-modem/examples COMPONENT modem)

install(TARGETS vela_api RUNTIME DESTINATION bin COMPONENT rpcd)
install(FILES ${files}/vela_modem.json DESTINATION share/rpcd/acl.d COMPONENT rpcd)
# rpcd names its object after the file.
set(link "\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/libexec/rpcd/vela_modem")
install(CODE "
    get_filename_component(directory \"${link}\" DIRECTORY)
    file(MAKE_DIRECTORY \"\${directory}\")
    file(CREATE_LINK ../../bin/vela_api \"${link}\" SYMBOLIC)
    message(STATUS \"Installing: ${link}\")" COMPONENT rpcd)

install(DIRECTORY www/ DESTINATION /www/vela_modem COMPONENT web)

install(FILES man/vela_modem.8 man/vela_api.8 DESTINATION share/man/man8 COMPONENT doc)
# The shell looks for a program's completion under its name; one file has both.
foreach(program vela_modem vela_api)
    install(FILES completion/vela_modem.bash DESTINATION share/bash-completion/completions RENAME ${program}
        COMPONENT doc)
endforeach()
