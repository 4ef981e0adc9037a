# Krylov solvers: a second library of the folder, since their block preconditioner builds on
# the sparse Cholesky package.
mmekit_library(sparse_krylov
  SOURCES krylov.cpp
  HEADERS krylov.hpp
  DEPS sparse torvex)
