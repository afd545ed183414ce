# Ravelo's own QML module is linked into the executable, but the Qt Quick modules its QML
# files import are loaded from Qt's QML folder at run time. dpkg-shlibdeps only follows the
# libraries the executable links, so it cannot see them.
#
# ravelo_qml_runtime_packages(<out-var> <qml-file>...) finds every module the files import,
# follows the imports of those modules (their qmldir files and their own QML files), and
# gives the Debian packages that hold the modules installed here. A module missing here is
# one that nothing Ravelo shows ever loads (QtQuick.Shapes, used only by one Basic control
# Ravelo has no use for), since the tests run every view on this machine.
function(ravelo_qml_runtime_packages out)
    set(qml_root "${QT6_INSTALL_PREFIX}/${QT6_INSTALL_QML}")
    set(queue)
    foreach(file ${ARGN})
        file(STRINGS ${file} lines REGEX "^import[ \t]+[A-Za-z]")
        foreach(line ${lines})
            string(REGEX REPLACE "^import[ \t]+([A-Za-z0-9_.]+).*" "\\1" uri "${line}")
            list(APPEND queue ${uri})
        endforeach()
    endforeach()

    set(seen)
    set(qmldirs)
    while(queue)
        list(POP_FRONT queue uri)
        if(uri IN_LIST seen OR uri STREQUAL "Ravelo")
            continue()
        endif()
        list(APPEND seen ${uri})
        if(uri STREQUAL "QtQml")
            # The engine itself adds these to every import of QtQml; QtQml has no qmldir.
            list(APPEND queue QtQml.Models QtQml.WorkerScript)
            continue()
        endif()
        string(REPLACE "." "/" module_dir "${uri}")
        set(qmldir "${qml_root}/${module_dir}/qmldir")
        if(NOT EXISTS ${qmldir})
            # Modules built into the Qt libraries (QtQml.Models) have no qmldir of their own.
            continue()
        endif()
        list(APPEND qmldirs ${qmldir})
        # "optional import" names styles chosen at run time, never needed by Ravelo.
        file(STRINGS ${qmldir} lines REGEX "^(import|depends|default import)[ \t]")
        foreach(line ${lines})
            string(REGEX REPLACE "^(default )?(import|depends)[ \t]+([A-Za-z0-9_.]+).*" "\\3"
                                 uri "${line}")
            list(APPEND queue ${uri})
        endforeach()
        # The module's own QML files (the Fusion controls use QtQuick.Window, for one).
        file(GLOB module_qml ${qml_root}/${module_dir}/*.qml)
        foreach(file ${module_qml})
            file(STRINGS ${file} lines REGEX "^import[ \t]+[A-Za-z]")
            foreach(line ${lines})
                string(REGEX REPLACE "^import[ \t]+([A-Za-z0-9_.]+).*" "\\1" uri "${line}")
                list(APPEND queue ${uri})
            endforeach()
        endforeach()
    endwhile()

    ravelo_packages_owning(packages ${qmldirs})
    set(${out} ${packages} PARENT_SCOPE)
endfunction()

# ravelo_packages_owning(<out-var> <file>...) gives the Debian packages that hold the files.
function(ravelo_packages_owning out)
    set(packages)
    if(ARGN)
        execute_process(COMMAND dpkg-query --search ${ARGN}
                        OUTPUT_VARIABLE owners RESULT_VARIABLE result ERROR_QUIET)
        if(NOT result EQUAL 0)
            message(WARNING "Some of ${ARGN} belong to no Debian package; the .deb will not "
                            "depend on them.")
        endif()
        string(REGEX MATCHALL "[^\n]+" owner_lines "${owners}")
        foreach(line ${owner_lines})
            string(REGEX REPLACE "^([^:,]+).*" "\\1" package "${line}")
            list(APPEND packages ${package})
        endforeach()
        list(REMOVE_DUPLICATES packages)
        list(SORT packages)
    endif()
    set(${out} ${packages} PARENT_SCOPE)
endfunction()
