# `cmake --install <build> --component sdk --prefix <folder>`: headers, both libraries, the files by which CMake and
# pkg-config find them, and the examples as sources. The result may be moved as a whole.
include(CMakePackageConfigHelpers)

set(packageFolder lib/cmake/ravloproducer)
configure_file(ravloproducerConfig.cmake.in ravloproducerConfig.cmake @ONLY)
write_basic_package_version_file(ravloproducerConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
configure_file(ravloproducer.pc.in ravloproducer.pc @ONLY)

install(FILES
    ${PROJECT_SOURCE_DIR}/include/ravlo/producer.h
    ${PROJECT_SOURCE_DIR}/include/ravlo/producer.hpp
    DESTINATION include/ravlo COMPONENT sdk)
install(TARGETS ravlo_producer ravlo_producer_dll
    RUNTIME DESTINATION bin COMPONENT sdk
    ARCHIVE DESTINATION lib COMPONENT sdk)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/ravloproducerConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/ravloproducerConfigVersion.cmake
    DESTINATION ${packageFolder} COMPONENT sdk)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ravloproducer.pc DESTINATION lib/pkgconfig COMPONENT sdk)
install(FILES
    ${PROJECT_SOURCE_DIR}/examples/CMakeLists.txt
    ${PROJECT_SOURCE_DIR}/examples/minimal_producer.c
    ${PROJECT_SOURCE_DIR}/examples/generated_frames.cpp
    DESTINATION share/ravloproducer/examples COMPONENT sdk)
