# finish.cmake: what the packages lack when CPack has made them; it runs this on all of them.
#
#   Manual pages are compressed.
#   The library renews the system's cache of libraries by its trigger, once for all packages that are
#   being installed. CPack adds scripts that do so again, which are taken out.
#   Multi-Arch cannot be said for one component alone.
function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()

function(compress_manual_pages tree)
    file(GLOB_RECURSE pages ${tree}/usr/share/man/*.[1-9])
    foreach(page ${pages})
        run(gzip -9n ${page})
    endforeach()
endfunction()

function(write_checksums tree)
    file(GLOB_RECURSE files RELATIVE ${tree} ${tree}/*)
    list(FILTER files EXCLUDE REGEX "^DEBIAN/")
    set(sums "")
    foreach(file ${files})
        if(NOT IS_SYMLINK ${tree}/${file})
            file(MD5 ${tree}/${file} sum)
            string(APPEND sums "${sum}  ${file}\n")
        endif()
    endforeach()
    file(WRITE ${tree}/DEBIAN/md5sums "${sums}")
endfunction()

function(say_multi_arch tree package)
    cmake_path(GET package FILENAME name)
    if(name MATCHES "^lib")
        set(kind same)
    else()
        set(kind foreign)
    endif()
    file(READ ${tree}/DEBIAN/control control)
    file(WRITE ${tree}/DEBIAN/control "Multi-Arch: ${kind}\n${control}")
endfunction()

foreach(package ${CPACK_PACKAGE_FILES})
    set(tree ${package}.tree)
    file(REMOVE_RECURSE ${tree})
    run(dpkg-deb --raw-extract ${package} ${tree})
    compress_manual_pages(${tree})
    write_checksums(${tree})
    if(EXISTS ${tree}/DEBIAN/triggers)
        file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
    endif()
    say_multi_arch(${tree} ${package})
    run(dpkg-deb --root-owner-group -Zxz --build ${tree} ${package})
    file(REMOVE_RECURSE ${tree})
endforeach()
