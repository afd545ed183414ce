# The service interfaces, the key-name helper and the backends.
file(GLOB _platform_files CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR}
     ${CMAKE_CURRENT_LIST_DIR}/*.cpp ${CMAKE_CURRENT_LIST_DIR}/*.h
     ${CMAKE_CURRENT_LIST_DIR}/gnome/*.cpp ${CMAKE_CURRENT_LIST_DIR}/gnome/*.h
     ${CMAKE_CURRENT_LIST_DIR}/kde/*.cpp ${CMAKE_CURRENT_LIST_DIR}/kde/*.h
     ${CMAKE_CURRENT_LIST_DIR}/null/*.cpp ${CMAKE_CURRENT_LIST_DIR}/null/*.h
     ${CMAKE_CURRENT_LIST_DIR}/portal/*.cpp ${CMAKE_CURRENT_LIST_DIR}/portal/*.h
     ${CMAKE_CURRENT_LIST_DIR}/wayland/*.cpp ${CMAKE_CURRENT_LIST_DIR}/wayland/*.h
     ${CMAKE_CURRENT_LIST_DIR}/x11/*.cpp ${CMAKE_CURRENT_LIST_DIR}/x11/*.h)
list(APPEND RAVELO_SOURCES ${_platform_files})
pkg_check_modules(RAVELO_PLATFORM IMPORTED_TARGET REQUIRED xcb-xfixes wayland-client)
list(APPEND RAVELO_LIBS PkgConfig::XCB PkgConfig::RAVELO_PLATFORM Qt6::DBus)
# The command line names keys in its messages, and hands on the desktop's activation token.
list(APPEND RAVELO_CLI_SOURCES platform/KeyNames.cpp platform/KeyNames.h
     platform/ActivationToken.cpp platform/ActivationToken.h)
