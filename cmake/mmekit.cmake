# Helpers shared by every folder of the tree.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(MMEKIT_WARNINGS -Wall -Wextra -Wno-unused-parameter)
if(MMEKIT_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined
                      -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=address,undefined)
  set(MMEKIT_BOUNDS_CHECK ON)
endif()
if(MMEKIT_BOUNDS_CHECK)
  add_compile_definitions(MMEKIT_BOUNDS_CHECK=1)
endif()

set(BLA_VENDOR OpenBLAS)
find_package(BLAS REQUIRED)
find_package(LAPACK REQUIRED)
find_package(Threads REQUIRED)
if(MMEKIT_WITH_METIS)
  find_path(METIS_INCLUDE_DIR metis.h)
  find_library(METIS_LIBRARY metis)
  if(NOT METIS_INCLUDE_DIR OR NOT METIS_LIBRARY)
    message(FATAL_ERROR "METIS not found: install libmetis-dev or configure with -DMMEKIT_WITH_METIS=OFF")
  endif()
endif()

set_property(GLOBAL PROPERTY MMEKIT_LIBRARIES "")
set_property(GLOBAL PROPERTY MMEKIT_HEADERS "")

# mmekit_library(<name> SOURCES ... [DEPS <other mmekit names>...] [LIBS <external libs>...])
# One static library per subsystem folder (or a second, higher one in the same folder).
# Target mmekit_<name>, alias mmekit::<name>. Public headers are the *.hpp files listed in
# HEADERS; they install to include/mmekit/<folder>/ and are included as "<folder>/<file>.hpp".
function(mmekit_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;HEADERS;DEPS;LIBS" ${ARGN})
  set(target mmekit_${name})
  add_library(${target} STATIC ${ARG_SOURCES})
  add_library(mmekit::${name} ALIAS ${target})
  target_compile_options(${target} PRIVATE ${MMEKIT_WARNINGS})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/src>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/mmekit>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  foreach(dep IN LISTS ARG_DEPS)
    target_link_libraries(${target} PUBLIC mmekit_${dep})
  endforeach()
  if(ARG_LIBS)
    target_link_libraries(${target} PUBLIC ${ARG_LIBS})
  endif()
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name} OUTPUT_NAME mmekit_${name})
  get_filename_component(folder ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  install(TARGETS ${target} EXPORT mmekitTargets
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  foreach(h IN LISTS ARG_HEADERS)
    install(FILES ${h} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mmekit/${folder})
    get_filename_component(hn ${h} NAME)
    set_property(GLOBAL APPEND PROPERTY MMEKIT_HEADERS ${folder}/${hn})
  endforeach()
  set_property(GLOBAL APPEND PROPERTY MMEKIT_LIBRARIES ${target})
endfunction()

# The umbrella target, the umbrella header, the CMake package and the pkg-config file.
function(mmekit_finish_package)
  get_property(libs GLOBAL PROPERTY MMEKIT_LIBRARIES)
  get_property(headers GLOBAL PROPERTY MMEKIT_HEADERS)
  add_library(mmekit_all INTERFACE)
  add_library(mmekit::mmekit ALIAS mmekit_all)
  target_link_libraries(mmekit_all INTERFACE ${libs})
  set_target_properties(mmekit_all PROPERTIES EXPORT_NAME mmekit)
  install(TARGETS mmekit_all EXPORT mmekitTargets)

  set(umbrella "// Every public header of the library.\n#pragma once\n")
  foreach(h IN LISTS headers)
    string(APPEND umbrella "#include \"${h}\"\n")
  endforeach()
  file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/include/mmekit/mmekit.hpp CONTENT "${umbrella}")
  install(FILES ${CMAKE_BINARY_DIR}/include/mmekit/mmekit.hpp
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mmekit)

  install(EXPORT mmekitTargets NAMESPACE mmekit:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/mmekit)
  configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/mmekitConfig.cmake.in
    ${CMAKE_BINARY_DIR}/mmekitConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/mmekit)
  write_basic_package_version_file(${CMAKE_BINARY_DIR}/mmekitConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${CMAKE_BINARY_DIR}/mmekitConfig.cmake ${CMAKE_BINARY_DIR}/mmekitConfigVersion.cmake
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/mmekit)

  # pkg-config: the libraries from the highest subsystem down, so that static linking resolves.
  set(pc_libs "")
  list(REVERSE libs)
  foreach(l IN LISTS libs)
    string(APPEND pc_libs " -l${l}")
  endforeach()
  set(MMEKIT_PC_LIBS "${pc_libs}")
  set(MMEKIT_PC_EXTRA "")
  if(MMEKIT_WITH_METIS AND METIS_LIBRARY)
    string(APPEND MMEKIT_PC_EXTRA " -lmetis")
  endif()
  configure_file(${CMAKE_SOURCE_DIR}/cmake/mmekit.pc.in ${CMAKE_BINARY_DIR}/mmekit.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/mmekit.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
