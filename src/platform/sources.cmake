# The service interfaces, the key-name helper and both backends.
file(GLOB _platform_files CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR}
     ${CMAKE_CURRENT_LIST_DIR}/*.cpp ${CMAKE_CURRENT_LIST_DIR}/*.h
     ${CMAKE_CURRENT_LIST_DIR}/null/*.cpp ${CMAKE_CURRENT_LIST_DIR}/null/*.h
     ${CMAKE_CURRENT_LIST_DIR}/x11/*.cpp ${CMAKE_CURRENT_LIST_DIR}/x11/*.h)
list(APPEND RAVELO_SOURCES ${_platform_files})
list(APPEND RAVELO_LIBS PkgConfig::XCB Qt6::DBus)
# The command line names keys in its messages too.
list(APPEND RAVELO_CLI_SOURCES platform/KeyNames.cpp platform/KeyNames.h)
