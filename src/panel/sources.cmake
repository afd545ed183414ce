# The quick panel: its window, its view and the scroll box that grows with its content.
list(APPEND RAVELO_SOURCES
    panel/FloatingPanel.cpp panel/FloatingPanel.h
    panel/PanelClipboard.cpp panel/PanelClipboard.h
    panel/PanelShadow.cpp panel/PanelShadow.h
    panel/TextRunView.cpp panel/TextRunView.h
    panel/TextPreview.cpp panel/TextPreview.h
)
# The QML files sit at the module's root (qrc:/Ravelo/), next to its qmldir, so that they
# see the module's singletons rather than an implicit import of their own folder.
set(_panel_qml ChipBackground ContentFittingScrollView FloatingPanelView PanelIcon PanelPalette
               PanelScrollBar PanelText Spinner)
foreach(name ${_panel_qml})
    set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/${name}.qml
                                PROPERTIES QT_RESOURCE_ALIAS ${name}.qml)
    list(APPEND RAVELO_QML panel/${name}.qml)
endforeach()
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/PanelPalette.qml
                            PROPERTIES QT_QML_SINGLETON_TYPE TRUE)
file(GLOB _panel_icons CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR}
     ${CMAKE_CURRENT_LIST_DIR}/icons/*.svg)
list(APPEND RAVELO_RESOURCES ${_panel_icons})
# The panel follows the compositing manager's selection through XFixes.
# and limits where it takes clicks through the shape extension.
pkg_check_modules(RAVELO_XFIXES REQUIRED IMPORTED_TARGET xcb-xfixes xcb-shape)
list(APPEND RAVELO_LIBS PkgConfig::RAVELO_XFIXES)
