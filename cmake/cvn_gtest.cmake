# cvn_gtest: GoogleTest with main(), built with the project's own flags and sanitizers from Debian's source package.
add_subdirectory(/usr/src/googletest "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
add_library(cvn_gtest INTERFACE)
target_link_libraries(cvn_gtest INTERFACE gmock_main)
