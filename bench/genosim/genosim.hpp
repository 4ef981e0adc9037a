// Simulated SNP genotypes on a pedigree, for the tests and benchmarks of the genomic library.
//
// Usage:
//   auto data = mmekit::genosim::pedigree_of_size(/*seed*/ 7, /*animals*/ 1500);
//   mmekit::genosim::Config cfg;           // sizes, seed and planted faults; all have defaults
//   cfg.genotyped = 300;
//   auto sim = mmekit::genosim::write_data_set(cfg, data, "gsim");   // the files below
//   // or, for genotypes in memory:
//   auto sim = mmekit::genosim::simulate(cfg, sire, dam, [&](const Line& line) { ... });
//
// The same configuration and pedigree give the same files, bit for bit, on every run.
//
// The simulation. Each SNP has an allele frequency p = 0.02 + 0.96 Beta(beta_a, beta_b) (a share
// `monomorphic` fixed at 0 or 1). An ancestral population of `ancestral_haplotypes` haplotypes
// carries these frequencies with linkage disequilibrium: a haplotype thresholds a Gaussian walk
// along the chromosome (allele 1 where the walk is below the p-quantile) whose correlation
// between two SNPs is exp(-distance / `ld_mb`). Each founder haplotype (a parent unknown in the
// pedigree) is a mosaic of ancestral segments of mean length `segment_mb`, so LD stays high
// between neighbouring SNPs and fades with distance.
//
// A progeny inherits from each parent one recombined haplotype: per chromosome a Poisson number
// of crossovers (`crossovers_per_100mb`), at uniform positions, switching between the parent's
// two haplotypes, starting from either at random. Only the animals the genotyped ones descend
// from are made, in pedigree order (parents first), and the haplotypes of an animal are released
// once its last progeny in that subset (and, for the source of a duplicated sample, its copy)
// has been made. Haplotypes are bit words, one word per 64 SNPs, each chromosome starting a new
// word.
//
// The genotyped animals: the `sire_share` of them are the sires with most recorded progeny, the
// rest are drawn among the youngest animals (the last `young_pool` times as many as needed).
// Genotype lines come in ascending animal number.
//
// Planted faults (each a line of the truth file):
//   parent_conflict: a genotyped animal whose recorded sire is another genotyped sire than
//                    its true one (the pedigree file shows the recorded sire);
//   duplicate:       a genotyped animal whose line holds the genotypes of another genotyped
//                    animal (the missing genotypes of the two lines are drawn apart);
//   low_call_rate:   a SNP missing in about 1 - `low_call_rate` of the animals;
//   monomorphic:     every SNP with one allele only among the non-missing genotypes written
//                    (the planted fixed ones and those fixed by drift).
// Each other genotype is missing with probability `missing`.
//
// Files of write_data_set, for the prefix P:
//   P.snp           ID field (the original id, blank padded), blanks, one digit per SNP (0, 1, 2;
//                   5 missing)
//   P.snp_XrefID    animal number and original id, one line per genotype line
//   P.real.snp      (with real_width > 0) the same genotypes as reals of `real_width` characters
//                   and 2 decimals each, no separator; P.real.snp_XrefID beside it
//   P.map           SNP index, chromosome, position (bp), name
//   P.ped           the pedigree as recorded, 10 columns, original id last
//   P.truth         the planted faults
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "generator/generator.hpp"

namespace mmekit::genosim {

struct Config {
  std::uint64_t seed = 1;
  std::int32_t genotyped = 300;
  double sire_share = 0.1;  // share of the genotyped animals that are popular sires
  double young_pool = 3.0;  // young genotyped drawn among this many times as many youngest
  std::int32_t chromosomes = 5;
  std::int32_t snps_per_chromosome = 400;
  double chromosome_mb = 100.0;       // length of each chromosome, Mb
  double beta_a = 0.8, beta_b = 0.8;  // allele frequencies 0.02 + 0.96 Beta(a, b) of the ancestors
  double monomorphic = 0.01;          // share of SNPs fixed in the ancestral population
  std::int32_t ancestral_haplotypes = 200;
  double ld_mb = 5.0;       // LD of the ancestral haplotypes fades over this many Mb
  double segment_mb = 2.0;  // mean length of an ancestral segment in a founder
  double crossovers_per_100mb = 1.0;
  double missing = 0.002;  // missing-genotype rate
  std::int32_t parent_conflicts = 3;
  std::int32_t duplicates = 1;
  std::int32_t low_call_snps = 1;
  double low_call_rate = 0.6;   // call rate of a low-call SNP
  std::int32_t real_width = 0;  // > 0: also the real form, markers of this width
};

enum class FaultKind { parent_conflict, duplicate, low_call_rate, monomorphic };

struct Fault {
  FaultKind kind{};
  std::int32_t animal = 0;  // parent_conflict, duplicate: the animal of the faulty line
  std::int32_t other = 0;   // parent_conflict: the recorded sire; duplicate: the copied animal
  std::int32_t truth = 0;   // parent_conflict: the true sire (0 unknown)
  std::int32_t snp = 0;     // low_call_rate, monomorphic
  double call_rate = 0;     // low_call_rate: the share of the animals with a call
};

// One genotype line as handed to a sink.
struct Line {
  std::int32_t index = 0;              // 1-based line number
  std::int32_t animal = 0;             // pedigree number
  std::span<const std::int8_t> codes;  // one per SNP: 0, 1, 2, or 5 for missing
};
using Sink = std::function<void(const Line&)>;

struct Simulation {
  std::int32_t nsnp = 0;
  std::vector<std::int32_t> genotyped;      // animal of each line
  std::vector<std::int32_t> recorded_sire;  // [k]: sire of animal k + 1 in the written pedigree
  std::vector<std::int32_t> chromosome;     // [j]: chromosome of SNP j + 1
  std::vector<std::int32_t> position;       // [j]: position in bp, ascending within a chromosome
  std::vector<double> frequency;            // [j]: allele frequency of the ancestral population
  std::vector<Fault> faults;
  std::int64_t simulated = 0;  // animals made
  std::int64_t peak_live = 0;  // most animals holding haplotypes at one time
};

// The original id of animal a, as the pedigree generator writes it.
std::string original_id(std::int32_t animal);

// A pedigree of exactly `animals` animals from the data generator (the first animals of a
// larger simulation, with progeny counts recounted).
benchgen::Dataset pedigree_of_size(std::uint64_t seed, std::int32_t animals);

// A data set holding only the pedigree given by parents (sire[k], dam[k] of animal k + 1, 0
// unknown, parents before progeny), for write_data_set.
benchgen::Dataset pedigree_of_parents(std::span<const std::int32_t> sire, std::span<const std::int32_t> dam);

// Simulates the genotypes of the true pedigree sire/dam and hands each line to `sink`, in
// order. Throws std::invalid_argument for an impossible configuration or a pedigree with a
// parent after its progeny.
Simulation simulate(const Config& config, std::span<const std::int32_t> sire, std::span<const std::int32_t> dam,
                    const Sink& sink);

// Simulates on the data set's pedigree and writes the files above.
Simulation write_data_set(const Config& config, const benchgen::Dataset& pedigree, const std::string& prefix);

const char* fault_name(FaultKind kind);

}  // namespace mmekit::genosim
