// Animal model y = herd + sex + animal + e on a small data set: the mixed-model equations are
// accumulated element by element into a hash matrix, the inverse relationship matrix is added
// by the usual rules (no inbreeding), and the system is solved three ways: Gauss-Seidel on a
// copy of the hash matrix (the solver sorts the matrix it is given, which then takes no more
// additions), preconditioned conjugate gradients on the hash matrix itself, and the sparse
// Cholesky package on the row-compressed form. The three solutions are printed side by side.
//
// Usage: mme_example [data file] [pedigree file] [variance ratio]
//   data: "y herd sex animal" per line (lines starting with # are skipped)
//   pedigree: "animal sire dam" per line, 0 for an unknown parent, parents numbered first
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <mmekit/solvers/krylov.hpp>
#include <mmekit/sparse/convert.hpp>
#include <mmekit/sparse/hashm.hpp>
#include <mmekit/sparse/ija.hpp>
#include <mmekit/sparse/solve.hpp>
#include <mmekit/support/output.hpp>
#include <mmekit/support/stop.hpp>
#include <mmekit/torvex/torvex.hpp>

namespace {

struct Record {
  double y;
  std::int32_t herd, sex, animal;
};

std::vector<std::vector<double>> read_table(const std::string& path, std::size_t columns) {
  std::ifstream in(path);
  if (!in) mmekit::stop("mme_example: cannot open " + path);
  std::vector<std::vector<double>> rows;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::vector<double> row(columns);
    for (double& v : row)
      if (!(fields >> v)) mmekit::stop("mme_example: bad line in " + path + ": " + line);
    rows.push_back(row);
  }
  return rows;
}

void run(int argc, char** argv) {
  const std::string dir = MME_EXAMPLE_DIR;
  const std::string data_file = argc > 1 ? argv[1] : dir + "/data.txt";
  const std::string ped_file = argc > 2 ? argv[2] : dir + "/ped.txt";
  const double ratio = argc > 3 ? std::stod(argv[3]) : 2.0;

  std::vector<Record> records;
  std::int32_t herds = 0, sexes = 0, animals = 0;
  for (const auto& r : read_table(data_file, 4)) {
    records.push_back({r[0], static_cast<std::int32_t>(r[1]), static_cast<std::int32_t>(r[2]),
                       static_cast<std::int32_t>(r[3])});
    herds = std::max(herds, records.back().herd);
    sexes = std::max(sexes, records.back().sex);
    animals = std::max(animals, records.back().animal);
  }
  const auto ped = read_table(ped_file, 3);
  animals = std::max<std::int32_t>(animals, static_cast<std::int32_t>(ped.size()));

  // Equations: herds, then sexes 2 and up, then animals. Sex 1 is the base level, with no
  // equation of its own (its effect is zero): herds and sexes together would otherwise make
  // the equations singular, and each solver would give another of their many solutions.
  const std::int32_t first_sex = herds + 1, first_animal = herds + sexes;
  const std::int32_t n = herds + sexes - 1 + animals;
  mmekit::sparse_hashm lhs;
  mmekit::init_sparse_hashm(lhs, n);
  mmekit::Array1<double> rhs(n, 0.0), sol(n, 0.0);
  for (const Record& r : records) {
    const std::int32_t eq[3] = {r.herd, first_animal + r.animal - 1, r.sex > 1 ? first_sex + r.sex - 2 : 0};
    const int m = eq[2] > 0 ? 3 : 2;
    for (int a = 0; a < m; ++a) {
      rhs(eq[a]) += r.y;
      for (int b = 0; b < m; ++b)
        if (eq[a] <= eq[b]) mmekit::addm_sparse_hashm(1.0, eq[a], eq[b], lhs);
    }
  }
  for (const auto& p : ped) {
    const auto i = first_animal + static_cast<std::int32_t>(p[0]) - 1;
    const auto s = p[1] > 0 ? first_animal + static_cast<std::int32_t>(p[1]) - 1 : 0;
    const auto d = p[2] > 0 ? first_animal + static_cast<std::int32_t>(p[2]) - 1 : 0;
    const double delta = ratio * ((s && d) ? 2.0 : (s || d) ? 4.0 / 3.0 : 1.0);
    mmekit::addm_sparse_hashm(delta, i, i, lhs);
    for (std::int32_t q : {s, d})
      if (q) {
        mmekit::addm_sparse_hashm(-delta / 2, std::min(q, i), std::max(q, i), lhs);
        mmekit::addm_sparse_hashm(delta / 4, q, q, lhs);
      }
    if (s && d) mmekit::addm_sparse_hashm(delta / 4, std::min(s, d), std::max(s, d), lhs);
  }
  mmekit::out() << " equations: " << n << "  stored elements: " << lhs.nel << '\n';

  // The row-compressed form for the direct solver, taken before anything sorts the table.
  mmekit::sparse_ija ija;
  mmekit::CONVERT_HASH_IJA(ija, lhs);

  // The iterative solvers print a line per round; only their closing lines are shown here.
  auto closing_lines = [](const char* label, int lines, const std::function<void()>& run) {
    std::string text;
    {
      mmekit::CaptureOutput capture;
      run();
      text = capture.text();
    }
    std::size_t begin = text.size() - (text.empty() ? 0 : 1);
    for (int k = 0; k < lines && begin != std::string::npos && begin > 0; ++k) begin = text.rfind('\n', begin - 1);
    mmekit::out() << ' ' << label << ":\n" << text.substr(begin == std::string::npos ? 0 : begin + 1);
  };
  mmekit::Array1<double> sol_pcg(n, 0.0), sol_gs(n, 0.0), sol_chol(n, 0.0);

  // PCG with the diagonal preconditioner: conv is the squared residual relative to the squared
  // right-hand side. The hash matrix stays open for additions.
  mmekit::sparse_param.solve_conv = 1e-20f;
  closing_lines("PCG", 1, [&] { mmekit::SOLVE_SPARSE_HASHM_PCG(lhs, rhs, sol_pcg, std::nullopt, 1); });

  // Gauss-Seidel on a copy, since it sorts the matrix it is given. Its conv is the sum of
  // squared changes of a round over the sum of squared solutions: a change-based criterion,
  // small long before the error is, so the limit must be tight.
  mmekit::sparse_param.solve_conv = 1e-14f;
  mmekit::sparse_param.solve_verbose = 2;
  mmekit::sparse_hashm copy;
  mmekit::copy_sparse_hashm(copy, lhs);
  closing_lines("Gauss-Seidel", 2, [&] { mmekit::solve(copy, rhs, sol_gs); });

  // The sparse Cholesky package: orders (writing the ordering to "torvex.ord" in the current
  // directory), factorises and solves; dependent equations would get a zero solution.
  mmekit::TorvexArgs args;
  args.rhs = &rhs;
  args.sol = &sol_chol;
  mmekit::TORVEX("sol", ija, args);
  mmekit::out() << " sparse Cholesky package:\n direct solution by the factor of the ordered equations\n";

  double gs_diff = 0, pcg_diff = 0;
  for (std::int32_t i = 1; i <= n; ++i) {
    gs_diff = std::max(gs_diff, std::abs(sol_gs(i) - sol_chol(i)));
    pcg_diff = std::max(pcg_diff, std::abs(sol_pcg(i) - sol_chol(i)));
  }
  char line[120];
  std::snprintf(line, sizeof line, " largest difference to the direct solution: Gauss-Seidel %.2e, PCG %.2e\n",
                gs_diff, pcg_diff);
  mmekit::out() << line;
  mmekit::out() << " effect  level  Gauss-Seidel           PCG   sparse Chol\n";
  for (std::int32_t i = 1; i <= n; ++i) {
    const char* effect = i < first_sex ? "herd" : i < first_animal ? "sex" : "animal";
    const std::int32_t level = i < first_sex ? i : i < first_animal ? i - herds + 1 : i - first_animal + 1;
    std::snprintf(line, sizeof line, " %-6s %6d %13.6f %13.6f %13.6f\n", effect, level, sol_gs(i), sol_pcg(i),
                  sol_chol(i));
    mmekit::out() << line;
  }
}

}  // namespace

int main(int argc, char** argv) {
  return mmekit::run_program([&] { run(argc, argv); });
}
