// A program built against the installed library with nothing but
//   c++ pkgconfig_consumer.cpp $(pkg-config --cflags --libs mmekit)
// It reaches the sparse Cholesky package through two higher entries, the inversion route 8
// and the block preconditioner of PCG, so that a wrong library order fails to link. It prints
// "ok" when both give the answers worked out below by hand.
#include <mmekit/mmekit.hpp>

#include <cmath>
#include <cstdio>
#include <vector>

int main() {
  return mmekit::run_program([] {
    // A = [[4, 2], [2, 3]]: inverse (1/8) [[3, -2], [-2, 4]].
    mmekit::densem a(2, 0.0);
    a(1, 1) = 4;
    a(1, 2) = a(2, 1) = 2;
    a(2, 2) = 3;
    mmekit::invert_matrix(a, 8, 0);
    const bool inverse_ok = std::abs(a(1, 1) - 0.375) < 1e-12 && std::abs(a(1, 2) + 0.25) < 1e-12 &&
                            std::abs(a(2, 2) - 0.5) < 1e-12;

    // The same matrix solved by PCG with one block of two equations: the preconditioner is
    // the exact inverse, so x = A^-1 b = (1/8) [3*8 - 2*7, -2*8 + 4*7] = (1.25, 1.5).
    mmekit::densem m(2, 0.0);
    m(1, 1) = 4;
    m(1, 2) = m(2, 1) = 2;
    m(2, 2) = 3;
    std::vector<double> b{8, 7}, x(2, 0.0);
    mmekit::SOLVE_DENSEM_PCG(m, b, x, 2, 0);
    const bool pcg_ok = std::abs(x[0] - 1.25) < 1e-9 && std::abs(x[1] - 1.5) < 1e-9;

    std::puts(inverse_ok && pcg_ok ? "ok" : "wrong answer");
    if (!(inverse_ok && pcg_ok)) mmekit::stop("pkgconfig_consumer: wrong answer");
  });
}
