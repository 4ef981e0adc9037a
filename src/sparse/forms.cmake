# Block, trace and quadratic forms: part of the sparse library.
target_sources(mmekit_sparse PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/forms.cpp)
install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/forms.hpp DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mmekit/sparse)
set_property(GLOBAL APPEND PROPERTY MMEKIT_HEADERS sparse/forms.hpp)
