// genosim: writes a simulated genotype data set (genotypes, cross-reference, map, pedigree and
// the list of planted faults) on a pedigree from the data generator.
//
//   genosim [--animals N] [--genotyped N] [--chromosomes N] [--snps N] [--seed S] [--prefix P]
//           [--missing R] [--monomorphic R] [--conflicts N] [--duplicates N] [--low-call N]
//           [--real W] [--sire-share R]
//
// --snps is the number of SNPs per chromosome. The pedigree and the genotypes both follow from
// --seed; the same options give the same files, byte for byte.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

#include "genosim/genosim.hpp"

namespace {

void usage() {
  std::fprintf(stderr,
               "usage: genosim [--animals N] [--genotyped N] [--chromosomes N] [--snps N] [--seed S]\n"
               "               [--prefix P] [--missing R] [--monomorphic R] [--conflicts N]\n"
               "               [--duplicates N] [--low-call N] [--real W] [--sire-share R]\n");
}

long long to_integer(const std::string& option, const std::string& text) {
  char* end = nullptr;
  const long long v = std::strtoll(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || v < 0 || v > 2'000'000'000LL)
    throw std::invalid_argument("genosim: " + option + " needs a whole number, not \"" + text + "\"");
  return v;
}

double to_real(const std::string& option, const std::string& text) {
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0')
    throw std::invalid_argument("genosim: " + option + " needs a number, not \"" + text + "\"");
  return v;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace mmekit::genosim;
  Config cfg;
  std::int32_t animals = 1500;
  std::string prefix = "gsim";
  try {
    for (int i = 1; i < argc; ++i) {
      const std::string opt = argv[i];
      if (opt == "--help" || opt == "-h") {
        usage();
        return 0;
      }
      if (i + 1 >= argc) {
        usage();
        return 2;
      }
      const std::string v = argv[++i];
      if (opt == "--animals") animals = static_cast<std::int32_t>(to_integer(opt, v));
      else if (opt == "--genotyped") cfg.genotyped = static_cast<std::int32_t>(to_integer(opt, v));
      else if (opt == "--chromosomes") cfg.chromosomes = static_cast<std::int32_t>(to_integer(opt, v));
      else if (opt == "--snps") cfg.snps_per_chromosome = static_cast<std::int32_t>(to_integer(opt, v));
      else if (opt == "--seed") cfg.seed = static_cast<std::uint64_t>(to_integer(opt, v));
      else if (opt == "--prefix") prefix = v;
      else if (opt == "--missing") cfg.missing = to_real(opt, v);
      else if (opt == "--monomorphic") cfg.monomorphic = to_real(opt, v);
      else if (opt == "--conflicts") cfg.parent_conflicts = static_cast<std::int32_t>(to_integer(opt, v));
      else if (opt == "--duplicates") cfg.duplicates = static_cast<std::int32_t>(to_integer(opt, v));
      else if (opt == "--low-call") cfg.low_call_snps = static_cast<std::int32_t>(to_integer(opt, v));
      else if (opt == "--real") cfg.real_width = static_cast<std::int32_t>(to_integer(opt, v));
      else if (opt == "--sire-share") cfg.sire_share = to_real(opt, v);
      else {
        std::fprintf(stderr, "genosim: unknown option %s\n", opt.c_str());
        usage();
        return 2;
      }
    }
    const auto start = std::chrono::steady_clock::now();
    const auto pedigree = pedigree_of_size(cfg.seed, animals);
    const Simulation sim = write_data_set(cfg, pedigree, prefix);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::size_t counts[4] = {};
    for (const Fault& f : sim.faults) ++counts[static_cast<int>(f.kind)];
    std::printf("genosim: %d animals, %zu genotyped, %d SNPs on %d chromosomes -> %s.*\n", animals,
                sim.genotyped.size(), sim.nsnp, cfg.chromosomes, prefix.c_str());
    std::printf("genosim: %lld animals simulated, at most %lld alive at once\n", static_cast<long long>(sim.simulated),
                static_cast<long long>(sim.peak_live));
    std::printf("genosim: faults: %zu parent conflicts, %zu duplicates, %zu low call rate, %zu monomorphic\n",
                counts[0], counts[1], counts[2], counts[3]);
    std::printf("genosim: %.1f s\n", seconds);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
  return 0;
}
