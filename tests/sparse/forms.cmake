# Tests of the block, trace and quadratic forms.
target_sources(test_sparse PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/forms_test.cpp)
