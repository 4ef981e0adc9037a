// Writes the seed corpora of the file-reading fuzz targets, each file made by the library:
//   fuzz_seeds <directory>
// makes <directory>/torvex_factor, torvex_order, db_setup and db_data.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "mmekit/records/db_hash.hpp"
#include "mmekit/support/framed.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/torvex/kernel.hpp"
#include "scratch.hpp"
#include "tables.hpp"

namespace fs = std::filesystem;

namespace {

std::string slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void put(const fs::path& p, const std::string& bytes) { std::ofstream(p, std::ios::binary) << bytes; }

// The kernel's stages 10, 20, 40 (as far as `stages` says) on the tridiagonal matrix of order
// n; the work array saved to a factor file (option 74) and raw (option 72), and the order file
// of stage 10.
void factor_files(const fs::path& dir, std::int32_t n, int stages) {
  using namespace mmekit;
  sparse_ija m = fuzz::tridiagonal(n);
  TorvexWork work(20000);
  TorvexStatistics stats;
  std::vector<std::int32_t> perm(static_cast<std::size_t>(n) + 1);
  auto run = [&](std::int32_t option, TorvexKernelArgs k) {
    k.is = work.cells();
    k.size = work.size();
    k.stats = &stats;
    std::int32_t flag = 0;
    torvex_kernel(option, m.n, m.ia.data(), m.ja.data(), m.a.data(), perm.data(), nullptr, flag, k);
    if (flag != 0) std::fprintf(stderr, "option %d: flag %d\n", option, flag);
  };
  const std::string tag = std::to_string(n) + "_" + std::to_string(stages);
  {
    FramedWriter ord((dir / "scratch.ord").string());
    run(10, {.order_out = &ord});
  }
  if (stages >= 2) run(20, {});
  if (stages >= 3) run(40, {});
  {
    FramedWriter w((dir / "torvex_factor" / ("factor_" + tag)).string());
    run(74, {.save_unit = &w});
  }
  // The same work array raw, as option 72 copies it: the form the target hands to option 73.
  std::vector<std::int32_t> copy(static_cast<std::size_t>(work.size()));
  run(72, {.is2 = copy.data(), .size2 = work.size()});
  const std::int64_t cells = torvex_factor_cells(copy.data());
  const std::int64_t used = cells > 0 ? cells : 32 + 2 * (std::int64_t{n} + 1);  // ordering only
  put(dir / "torvex_factor" / ("image_" + tag),
      std::string(reinterpret_cast<const char*>(copy.data()), static_cast<std::size_t>(used) * 4));
  // The order file, behind the byte that chooses its order in the order target.
  put(dir / "torvex_order" / ("order_" + tag), std::string(1, static_cast<char>(n - 1)) + slurp(dir / "scratch.ord"));
  fs::remove(dir / "scratch.ord");
}

}  // namespace

int main(int argc, char** argv) {
  using namespace mmekit;
  if (argc != 2) {
    std::fprintf(stderr, "usage: fuzz_seeds <directory>\n");
    return 2;
  }
  const fs::path dir = fs::absolute(argv[1]);
  for (const char* sub : {"torvex_factor", "torvex_order", "db_setup", "db_data"}) fs::create_directories(dir / sub);
  CaptureOutput quiet;
  for (std::int32_t n : {1, 6, 30})
    for (int stages : {1, 3}) factor_files(dir, n, stages);
  {
    FramedWriter zero((dir / "scratch.ord").string());
    zero.write(std::int32_t{0}, std::int32_t{0});
  }
  put(dir / "torvex_order" / "order_natural", std::string(1, '\x05') + slurp(dir / "scratch.ord"));
  fs::remove(dir / "scratch.ord");

  // Tables: the sample with 0, 3 and 9 records, and a one-field table with an integer key.
  for (std::int32_t records : {0, 3, 9}) {
    db_hash db;
    fuzz::sample_table(db, records);
    const std::string tag = std::to_string(records);
    write_setup(db, (dir / "db_setup" / ("sample_" + tag)).string());
    write_data(db, (dir / "scratch.data").string());
    put(dir / "db_data" / ("text_" + tag), std::string("\x00\x00", 2) + slurp(dir / "scratch.data"));
    write_data(db, (dir / "scratch.data").string(), std::string_view("binary"));
    put(dir / "db_data" / ("binary_" + tag), std::string("\x01\x00", 2) + slurp(dir / "scratch.data"));
    put(dir / "db_data" / ("sized_" + tag), std::string("\x02\x11", 2) + slurp(dir / "scratch.data"));
  }
  db_hash ints;
  add_fields(ints, "key", "integer");
  set_index(ints, "key");
  init_db_hash(ints, 7);
  insert_el(ints, "key", 12);
  write_setup(ints, (dir / "db_setup" / "integer_key").string());
  fs::remove(dir / "scratch.data");
  return 0;
}
