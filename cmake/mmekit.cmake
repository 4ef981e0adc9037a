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

# Headers are included as "mmekit/<folder>/<file>.hpp", in the tree as after installation: the
# build tree holds include/mmekit, a link to src/, and the generated umbrella header sits in a
# folder of its own beside it.
set(MMEKIT_BUILD_INCLUDE ${PROJECT_BINARY_DIR}/include)
set(MMEKIT_GENERATED_INCLUDE ${PROJECT_BINARY_DIR}/generated)
file(MAKE_DIRECTORY ${MMEKIT_BUILD_INCLUDE})
if(NOT EXISTS ${MMEKIT_BUILD_INCLUDE}/mmekit)
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/src ${MMEKIT_BUILD_INCLUDE}/mmekit SYMBOLIC)
endif()

set_property(GLOBAL PROPERTY MMEKIT_LIBRARIES "")
set_property(GLOBAL PROPERTY MMEKIT_HEADERS "")

# mmekit_library(SOURCES ... [HEADERS ...] [DEPS <folders>...] [LIBS <external libs>...])
# The one static library of a folder of src/: target mmekit_<folder>, alias mmekit::<folder>.
# HEADERS are the public headers, installed to include/mmekit/<folder>/; other headers of the
# folder are private to it. DEPS are the folders it builds on, and they must be exactly the
# folders its files include: configuration stops when the two disagree, or when a folder
# builds on one that is configured after it (above it).
function(mmekit_library)
  cmake_parse_arguments(ARG "" "" "SOURCES;HEADERS;DEPS;LIBS" ${ARGN})
  get_filename_component(name ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  set(target mmekit_${name})
  mmekit_check_layering(${name} "${ARG_DEPS}")
  add_library(${target} STATIC ${ARG_SOURCES})
  add_library(mmekit::${name} ALIAS ${target})
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_compile_options(${target} PRIVATE ${MMEKIT_WARNINGS})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${MMEKIT_BUILD_INCLUDE}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  foreach(dep IN LISTS ARG_DEPS)
    target_link_libraries(${target} PUBLIC mmekit_${dep})
  endforeach()
  if(ARG_LIBS)
    target_link_libraries(${target} PUBLIC ${ARG_LIBS})
  endif()
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name} OUTPUT_NAME mmekit_${name})
  install(TARGETS ${target} EXPORT mmekitTargets
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  foreach(h IN LISTS ARG_HEADERS)
    install(FILES ${h} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mmekit/${name})
    get_filename_component(hn ${h} NAME)
    set_property(GLOBAL APPEND PROPERTY MMEKIT_HEADERS ${name}/${hn})
  endforeach()
  set_property(GLOBAL APPEND PROPERTY MMEKIT_LIBRARIES ${target})
  set_property(GLOBAL APPEND PROPERTY MMEKIT_CONFIGURED ${name})
endfunction()

# The folders that the files of src/<name> include must be the folders it links (DEPS), and
# each of them must already be configured: the include graph is the link graph, and acyclic.
function(mmekit_check_layering name deps)
  file(GLOB files ${PROJECT_SOURCE_DIR}/src/${name}/*.cpp ${PROJECT_SOURCE_DIR}/src/${name}/*.hpp)
  # An edit of an include line reconfigures, so that the check always sees the files as built.
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${files})
  set(included "")
  foreach(f IN LISTS files)
    file(STRINGS ${f} lines REGEX "^#include [\"<]mmekit/[a-z_]+/")
    foreach(l IN LISTS lines)
      string(REGEX REPLACE "^#include [\"<]mmekit/([a-z_]+)/.*" "\\1" folder "${l}")
      if(NOT folder STREQUAL name)
        list(APPEND included ${folder})
      endif()
    endforeach()
  endforeach()
  list(REMOVE_DUPLICATES included)
  list(SORT included)
  set(declared ${deps})
  list(SORT declared)
  if(NOT "${included}" STREQUAL "${declared}")
    message(FATAL_ERROR "src/${name}: includes the folders [${included}] but links [${declared}]")
  endif()
  get_property(configured GLOBAL PROPERTY MMEKIT_CONFIGURED)
  foreach(dep IN LISTS deps)
    if(NOT dep IN_LIST configured)
      message(FATAL_ERROR "src/${name}: builds on src/${dep}, which is not below it")
    endif()
  endforeach()
endfunction()

# The umbrella target, the umbrella header, the CMake package and the pkg-config file.
function(mmekit_finish_package)
  get_property(libs GLOBAL PROPERTY MMEKIT_LIBRARIES)
  get_property(headers GLOBAL PROPERTY MMEKIT_HEADERS)
  add_library(mmekit_all INTERFACE)
  add_library(mmekit::mmekit ALIAS mmekit_all)
  target_link_libraries(mmekit_all INTERFACE ${libs})
  target_include_directories(mmekit_all INTERFACE $<BUILD_INTERFACE:${MMEKIT_GENERATED_INCLUDE}>)
  set_target_properties(mmekit_all PROPERTIES EXPORT_NAME mmekit)
  install(TARGETS mmekit_all EXPORT mmekitTargets)

  set(umbrella "// Every public header of the library.\n#pragma once\n")
  foreach(h IN LISTS headers)
    string(APPEND umbrella "#include <mmekit/${h}>\n")
  endforeach()
  file(GENERATE OUTPUT ${MMEKIT_GENERATED_INCLUDE}/mmekit/mmekit.hpp CONTENT "${umbrella}")
  install(FILES ${MMEKIT_GENERATED_INCLUDE}/mmekit/mmekit.hpp
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mmekit)

  install(EXPORT mmekitTargets NAMESPACE mmekit:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/mmekit)
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/mmekitConfig.cmake.in
    ${PROJECT_BINARY_DIR}/mmekitConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/mmekit)
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/mmekitConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/mmekitConfig.cmake ${PROJECT_BINARY_DIR}/mmekitConfigVersion.cmake
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/mmekit)

  # pkg-config: the libraries from the highest folder down, so that a static link resolves
  # every symbol (the folders are configured from the lowest up).
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
  configure_file(${PROJECT_SOURCE_DIR}/cmake/mmekit.pc.in ${PROJECT_BINARY_DIR}/mmekit.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/mmekit.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
