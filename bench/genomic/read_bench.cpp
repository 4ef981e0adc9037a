// Reading a genotype file into M.
//
//   bench_genomic_read write <file> <animals> <snps> [seed]
//       writes a genotype file (identifiers of 1 to 9 digits right-justified in 12 columns,
//       random codes 0/1/2 with about 1% missing) and its cross-reference file <file>_XrefID
//   bench_genomic_read plink <file> <prefix>
//       writes the same genotypes as <prefix>.ped / <prefix>.map (alleles A and B, missing 0;
//       22 chromosomes of equal SNP counts)
//   bench_genomic_read read <file> [sum]
//       reads the cross-reference and genotype files as a setup run does and prints the
//       elapsed time (and with "sum" the sum of all codes of M)
//   bench_genomic_read touch <animals> <snps>
//       the floor of any reader that stores M: a fresh M of that size allocated as the reader
//       does and every code written once (memset), timed
//   bench_genomic_read [benchmark options]
//       Google Benchmark: reading a 2,000 x 20,000 file written to the current directory
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "mmekit/genomic/snp_files.hpp"
#include "mmekit/genomic/state.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace {

struct Rng {
  std::uint64_t s;
  std::uint64_t next() {  // splitmix64
    std::uint64_t z = (s += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
};

constexpr int id_columns = 12;

bool write_genotypes(const std::string& file, long animals, long snps, std::uint64_t seed) {
  std::FILE* g = std::fopen(file.c_str(), "wb");
  std::FILE* x = std::fopen((file + "_XrefID").c_str(), "wb");
  if (!g || !x) return false;
  Rng rng{seed};
  std::vector<char> line(static_cast<std::size_t>(id_columns + 1 + snps + 1));
  for (long i = 1; i <= animals; ++i) {
    // Identifiers of varying width: 1 to 9 digits.
    const long digits = 1 + static_cast<long>(rng.next() % 9);
    long id = 1;
    for (long d = 1; d < digits; ++d) id = id * 10 + static_cast<long>(rng.next() % 10);
    std::snprintf(line.data(), id_columns + 2, "%*ld ", id_columns, id);
    char* m = line.data() + id_columns + 1;
    for (long j = 0; j < snps; j += 8) {
      std::uint64_t r = rng.next();
      for (long k = j; k < std::min(snps, j + 8); ++k, r >>= 8) {
        const unsigned b = static_cast<unsigned>(r & 0xFF);  // 0..255: about 1% missing
        m[k] = b < 3 ? '5' : static_cast<char>('0' + b % 3);
      }
    }
    m[snps] = '\n';
    std::fwrite(line.data(), 1, line.size(), g);
    std::fprintf(x, "%ld %ld\n", i, id);
  }
  return std::fclose(g) == 0 && std::fclose(x) == 0;
}

// The genotype file again as PLINK text: family and individual both the line number, no
// parents, sex and phenotype unknown; genotype 0 is "A A", 1 "A B", 2 "B B", missing "0 0".
bool write_plink(const std::string& file, const std::string& prefix) {
  std::ifstream in(file, std::ios::binary);
  std::FILE* ped = std::fopen((prefix + ".ped").c_str(), "wb");
  if (!in || !ped) return false;
  static const char* pair[6] = {"A A", "A B", "B B", "0 0", "0 0", "0 0"};
  std::string line, outl;
  long i = 0, snps = 0;
  while (std::getline(in, line)) {
    ++i;
    const std::string m = line.substr(static_cast<std::size_t>(id_columns + 1));
    snps = static_cast<long>(m.size());
    outl = std::to_string(i) + " " + std::to_string(i) + " 0 0 0 -9";
    for (char g : m) {
      outl += ' ';
      outl += pair[g - '0'];
    }
    outl += '\n';
    std::fwrite(outl.data(), 1, outl.size(), ped);
  }
  std::FILE* map = std::fopen((prefix + ".map").c_str(), "wb");
  for (long j = 1; j <= snps; ++j) std::fprintf(map, "%ld snp%ld 0 %ld\n", 1 + (j - 1) * 22 / snps, j, 1000 * j);
  return std::fclose(ped) == 0 && std::fclose(map) == 0;
}

double read_into_M(const std::string& file) {
  mmekit::genomic.reset();
  mmekit::genomic.opt.SNP_file = file;
  const auto t0 = std::chrono::steady_clock::now();
  mmekit::read_xref_file();
  mmekit::read_SNP_file();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

void BM_read_genotypes(benchmark::State& state) {
  static const bool written = write_genotypes("bench_genotypes.txt", 2000, 20000, 7);
  if (!written) {
    state.SkipWithError("cannot write bench_genotypes.txt");
    return;
  }
  std::ostringstream log;
  mmekit::OutputTo to(log);
  for (auto _ : state) benchmark::DoNotOptimize(read_into_M("bench_genotypes.txt"));
  state.SetBytesProcessed(state.iterations() * 2000L * (20000 + id_columns + 2));
}
BENCHMARK(BM_read_genotypes)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "write" && argc >= 5)
    return write_genotypes(argv[2], std::atol(argv[3]), std::atol(argv[4]), argc > 5 ? std::strtoull(argv[5], nullptr, 10) : 1) ? 0 : 1;
  if (mode == "plink" && argc >= 4) return write_plink(argv[2], argv[3]) ? 0 : 1;
  if (mode == "touch" && argc >= 4) {
    const auto t0 = std::chrono::steady_clock::now();
    mmekit::GenotypeMatrix M;
    M.resize_codes_for_overwrite(std::atol(argv[2]), std::atol(argv[3]));
    if (M.rows() > 0) std::memset(M.codes_row(1), 1, static_cast<std::size_t>(M.rows() * M.cols()));
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    std::printf("touched %lld x %lld in %.3f s\n", static_cast<long long>(M.rows()), static_cast<long long>(M.cols()), seconds);
    return M.rows() > 0 && M.codes_row(M.rows())[M.cols() - 1] == 1 ? 0 : 1;
  }
  if (mode == "read" && argc >= 3) {
    return mmekit::run_program([&] {
      const double seconds = read_into_M(argv[2]);
      const mmekit::GenotypeMatrix& M = mmekit::genomic.M;
      std::printf("read %lld x %lld in %.3f s\n", static_cast<long long>(M.rows()), static_cast<long long>(M.cols()), seconds);
      if (argc > 3 && std::string(argv[3]) == "sum") {
        std::uint64_t sum = 0;
        for (std::int64_t i = 1; i <= M.rows(); ++i) {
          const std::int8_t* r = M.codes_row(i);
          for (std::int64_t j = 0; j < M.cols(); ++j) sum += static_cast<std::uint8_t>(r[j]);
        }
        std::printf("sum of codes %llu\n", static_cast<unsigned long long>(sum));
      }
    });
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
