# The Debian packages, which `./run package` cuts with CPack: one for each component.
#
#   libzu-net-dev1     the shared library
#   libzu-net-dev-dev  headers, static libraries, CMake and pkg-config files, documents, examples
#   zucam              the programs: the tool with its unit for systemd, the virtual camera
set(revision 1)
set(maintainer "zu_net_dev maintainers <maintainers@example.com>")
set(deb_version ${PROJECT_VERSION}-${revision})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zu-net-dev)
set(CPACK_PACKAGE_CONTACT ${maintainer})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL "")
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/finish.cmake)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${revision})
set(CPACK_DEBIAN_PACKAGE_SOURCE zu-net-dev)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/source)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

# What every package has in its folder of documents.
set(changelog_sh ${CMAKE_CURRENT_LIST_DIR}/changelog.sh)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${changelog_sh})
execute_process(COMMAND ${changelog_sh} ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${revision} ${maintainer}
    OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)
configure_file(${PROJECT_SOURCE_DIR}/CHANGELOG.md changelog COPYONLY)
execute_process(COMMAND gzip -9nf changelog changelog.Debian
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR} COMMAND_ERROR_IS_FATAL ANY)

# zu_debian_package(COMPONENT NAME SECTION DESCRIPTION): the description's first line stands alone.
macro(zu_debian_package component name section description)
    list(APPEND CPACK_COMPONENTS_ALL ${component})
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}")
    install(FILES ${CMAKE_CURRENT_LIST_DIR}/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
                  ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz
        DESTINATION share/doc/${name} COMPONENT ${component})
endmacro()

zu_debian_package(runtime libzu-net-dev1 libs "client library for network video devices
It logs in to IP cameras, receives their live video and audio, reconnects by
itself, changes their settings and moves them, up to 256 of them at once.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_LIST_DIR}/symbols ${CMAKE_CURRENT_LIST_DIR}/triggers)

zu_debian_package(development libzu-net-dev-dev libdevel
"client library for network video devices (development files)
What programs that log in to IP cameras are built with: headers, static
libraries, files for CMake and pkg-config, documents and examples.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libzu-net-dev1 (= ${deb_version}), libc6-dev")

zu_debian_package(zucam zucam video "tools for network video devices
Programs around libzu-net-dev1: zucam tells whether an IP camera works, records
it from the command line or as a service of systemd, and changes its settings;
zucam-sim is a virtual camera that sends real video and sound, and can be told
to misbehave.")
set(CPACK_DEBIAN_ZUCAM_PACKAGE_DEPENDS "libzu-net-dev1 (>= ${PROJECT_VERSION})")

include(CPack)
