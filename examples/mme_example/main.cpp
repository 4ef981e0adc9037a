// Animal model y = herd + sex + animal + e on a small data set: the mixed-model equations are
// accumulated element by element into a hash matrix, the inverse relationship matrix is added
// by the usual rules (no inbreeding), and the system is solved by Gauss-Seidel.
//
// Usage: mme_example [data file] [pedigree file] [variance ratio]
//   data: "y herd sex animal" per line (lines starting with # are skipped)
//   pedigree: "animal sire dam" per line, 0 for an unknown parent, parents numbered first
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <mmekit/sparse/hashm.hpp>
#include <mmekit/sparse/solve.hpp>
#include <mmekit/support/output.hpp>
#include <mmekit/support/stop.hpp>

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

  // Equations: herds, then sexes, then animals.
  const std::int32_t first_sex = herds + 1, first_animal = herds + sexes + 1;
  const std::int32_t n = herds + sexes + animals;
  mmekit::sparse_hashm lhs;
  mmekit::init_sparse_hashm(lhs, n);
  mmekit::Array1<double> rhs(n, 0.0), sol(n, 0.0);
  for (const Record& r : records) {
    const std::int32_t eq[3] = {r.herd, first_sex + r.sex - 1, first_animal + r.animal - 1};
    for (int a = 0; a < 3; ++a) {
      rhs(eq[a]) += r.y;
      for (int b = a; b < 3; ++b) mmekit::addm_sparse_hashm(1.0, eq[a], eq[b], lhs);
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

  mmekit::sparse_param.solve_conv = 1e-14f;
  mmekit::sparse_param.solve_verbose = 2;
  // The solver prints a line per round; only its closing lines are shown here.
  std::string text;
  {
    mmekit::CaptureOutput rounds;
    mmekit::solve(lhs, rhs, sol);
    text = rounds.text();
  }
  const auto pos = text.find(" solutions computed");
  mmekit::out() << text.substr(pos == std::string::npos ? 0 : pos);
  mmekit::out() << " effect  level      solution\n";
  char line[80];
  for (std::int32_t i = 1; i <= n; ++i) {
    const char* effect = i < first_sex ? "herd" : i < first_animal ? "sex" : "animal";
    const std::int32_t level = i < first_sex ? i : i < first_animal ? i - herds : i - herds - sexes;
    std::snprintf(line, sizeof line, " %-6s %6d %13.6f\n", effect, level, sol(i));
    mmekit::out() << line;
  }
}

}  // namespace

int main(int argc, char** argv) {
  return mmekit::run_program([&] { run(argc, argv); });
}
