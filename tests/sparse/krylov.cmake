mmekit_test(sparse_krylov SOURCES krylov_test.cpp DEPS sparse_krylov)
