// The genotype simulator of the benchmarks: inheritance, frequencies, LD, planted faults, files.
#include "genosim/genosim.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "common/files.hpp"

namespace mmekit::genosim {
namespace {

struct Parents {
  std::vector<std::int32_t> sire, dam;
};

Parents parents_of(const benchgen::Dataset& d) {
  Parents p;
  for (const auto& a : d.animals) p.sire.push_back(a.sire), p.dam.push_back(a.dam);
  return p;
}

Config small_config() {
  Config c;
  c.seed = 5;
  c.genotyped = 300;
  c.snps_per_chromosome = 400;
  return c;
}

std::string line_text(const Line& l) {
  std::string s;
  for (std::int8_t v : l.codes) s.push_back(static_cast<char>('0' + v));
  return s;
}

TEST(GenotypeSimulator, InheritanceFrequenciesLinkageAndPlantedFaults) {
  const auto ped = pedigree_of_size(5, 1500);
  const Parents tp = parents_of(ped);
  const Config cfg = small_config();
  std::vector<std::int32_t> animal;
  std::vector<std::string> rows;
  const Simulation sim = simulate(cfg, tp.sire, tp.dam, [&](const Line& l) {
    EXPECT_EQ(l.index, static_cast<std::int32_t>(rows.size()) + 1);
    animal.push_back(l.animal);
    rows.push_back(line_text(l));
  });
  const std::size_t nsnp = 2000, ngen = rows.size();
  ASSERT_EQ(sim.nsnp, 2000);
  ASSERT_EQ(ngen, 300u);
  EXPECT_EQ(animal, sim.genotyped);
  EXPECT_TRUE(std::is_sorted(animal.begin(), animal.end()));

  // Exactly the ancestors of the genotyped animals are made.
  std::set<std::int32_t> ancestors;
  std::vector<std::int32_t> todo(animal);
  while (!todo.empty()) {
    const std::int32_t a = todo.back();
    todo.pop_back();
    if (a == 0 || !ancestors.insert(a).second) continue;
    todo.push_back(tp.sire[static_cast<std::size_t>(a - 1)]);
    todo.push_back(tp.dam[static_cast<std::size_t>(a - 1)]);
  }
  EXPECT_EQ(sim.simulated, static_cast<std::int64_t>(ancestors.size()));
  EXPECT_LT(sim.peak_live, sim.simulated / 2);

  std::map<FaultKind, std::vector<Fault>> faults;
  for (const Fault& f : sim.faults) faults[f.kind].push_back(f);
  ASSERT_EQ(faults[FaultKind::parent_conflict].size(), 3u);
  ASSERT_EQ(faults[FaultKind::duplicate].size(), 1u);
  ASSERT_EQ(faults[FaultKind::low_call_rate].size(), 1u);
  std::map<std::int32_t, std::size_t> row_of;
  for (std::size_t i = 0; i < ngen; ++i) row_of[animal[i]] = i;
  auto row = [&](std::int32_t a) -> const std::string& { return rows.at(row_of.at(a)); };
  auto opposite = [&](std::int32_t a, std::int32_t b) {
    int k = 0;
    for (std::size_t j = 0; j < nsnp; ++j) k += std::abs(row(a)[j] - row(b)[j]) == 2;
    return k;
  };

  // Parent-progeny pairs of the recorded pedigree: no opposite homozygotes, except the planted.
  const std::int32_t dup = faults[FaultKind::duplicate][0].animal;
  std::set<std::pair<std::int32_t, std::int32_t>> planted;
  for (const Fault& f : faults[FaultKind::parent_conflict]) {
    EXPECT_EQ(f.truth, tp.sire[static_cast<std::size_t>(f.animal - 1)]);
    EXPECT_EQ(sim.recorded_sire[static_cast<std::size_t>(f.animal - 1)], f.other);
    EXPECT_NE(f.other, f.truth);
    EXPECT_GT(opposite(f.animal, f.other), 40) << f.animal;
    planted.insert({f.animal, f.other});
  }
  int pairs = 0;
  for (std::int32_t a : animal) {
    const auto k = static_cast<std::size_t>(a - 1);
    for (std::int32_t p : {sim.recorded_sire[k], tp.dam[k]}) {
      if (!row_of.count(p) || planted.count({a, p}) || a == dup || p == dup) continue;
      ++pairs;
      EXPECT_EQ(opposite(a, p), 0) << a << " " << p;
    }
  }
  EXPECT_GT(pairs, 50);

  // The duplicate agrees with its source wherever both are called; the source is another line.
  const std::int32_t src = faults[FaultKind::duplicate][0].other;
  EXPECT_NE(src, dup);
  int called = 0;
  for (std::size_t j = 0; j < nsnp; ++j)
    if (row(dup)[j] != '5' && row(src)[j] != '5') {
      ++called;
      EXPECT_EQ(row(dup)[j], row(src)[j]) << j;
    }
  EXPECT_GT(called, 1900);

  // Call rates, observed frequencies against the ancestral ones, and monomorphic SNPs.
  const std::int32_t low = faults[FaultKind::low_call_rate][0].snp;
  std::set<std::int32_t> mono;
  for (const Fault& f : faults[FaultKind::monomorphic]) mono.insert(f.snp);
  std::vector<double> freq(nsnp);
  double dev = 0;
  int fixed = 0, missing = 0;
  for (std::size_t j = 0; j < nsnp; ++j) {
    int n = 0, sum = 0, count[3] = {0, 0, 0};
    for (const std::string& r : rows)
      if (r[j] != '5') {
        ++n;
        sum += r[j] - '0';
        ++count[r[j] - '0'];
      }
    const double rate = static_cast<double>(n) / static_cast<double>(ngen);
    if (static_cast<std::int32_t>(j) + 1 == low) {
      EXPECT_DOUBLE_EQ(faults[FaultKind::low_call_rate][0].call_rate, rate);
      EXPECT_LT(rate, 0.75);
    } else {
      EXPECT_GT(rate, 0.97) << j;
      missing += static_cast<int>(ngen) - n;
    }
    freq[j] = sum / (2.0 * n);
    dev += std::abs(freq[j] - sim.frequency[j]);
    const bool one_allele = count[1] == 0 && (count[0] == 0 || count[2] == 0);
    EXPECT_EQ(mono.count(static_cast<std::int32_t>(j) + 1) == 1, one_allele) << j;
    if (sim.frequency[j] == 0 || sim.frequency[j] == 1) {
      ++fixed;
      EXPECT_TRUE(one_allele);
    }
  }
  EXPECT_EQ(fixed, 20);
  EXPECT_NEAR(missing, 0.002 * 300 * 1999, 300);  // 1199 expected, sd 35
  EXPECT_LT(dev / nsnp, 0.07);

  // LD: r^2 of neighbouring SNPs against SNPs of different chromosomes.
  auto r2 = [&](std::size_t j, std::size_t k) {
    double n = 0, sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0;
    for (const std::string& r : rows)
      if (r[j] != '5' && r[k] != '5') {
        const double x = r[j] - '0', y = r[k] - '0';
        n += 1, sx += x, sy += y, sxx += x * x, syy += y * y, sxy += x * y;
      }
    const double vx = sxx - sx * sx / n, vy = syy - sy * sy / n, cxy = sxy - sx * sy / n;
    return vx > 0 && vy > 0 ? cxy * cxy / (vx * vy) : -1.0;
  };
  double near = 0, far = 0;
  int n_near = 0, n_far = 0;
  for (std::size_t j = 0; j + 1 < 400; ++j) {
    if (const double v = r2(j, j + 1); v >= 0) near += v, ++n_near;
    if (const double v = r2(j, j + 1200); v >= 0) far += v, ++n_far;
  }
  near /= n_near;
  far /= n_far;
  EXPECT_GT(near, 0.1);
  EXPECT_GT(near, 10 * far) << near << " " << far;
}

// Mendelian sampling: 400 full sibs get either allele of a heterozygous parent half the time,
// at every SNP; the alleles of nearby SNPs go together, those of the two ends of a chromosome
// (about one crossover on its way) are recombined in (1 - exp(-2)) / 2 of the progeny.
TEST(GenotypeSimulator, HeterozygousParentPassesEachAlleleToHalfTheProgeny) {
  std::vector<std::int32_t> sire(402, 1), dam(402, 2);
  sire[0] = sire[1] = dam[0] = dam[1] = 0;
  Config cfg = small_config();
  cfg.genotyped = 402;
  cfg.sire_share = 0;
  cfg.missing = cfg.monomorphic = 0;
  cfg.parent_conflicts = cfg.duplicates = cfg.low_call_snps = 0;
  std::vector<std::string> rows;
  simulate(cfg, sire, dam, [&](const Line& l) { rows.push_back(line_text(l)); });
  ASSERT_EQ(rows.size(), 402u);
  std::vector<std::vector<std::vector<int>>> passed(5);  // per chromosome and SNP: the sire's allele
  for (std::size_t j = 0; j < 2000; ++j) {
    if (rows[0][j] != '1' || rows[1][j] == '1') continue;
    auto& t = passed[j / 400].emplace_back();
    for (std::size_t i = 2; i < 402; ++i) t.push_back((rows[i][j] - '0') - (rows[1][j] - '0') / 2);
    EXPECT_NEAR(std::count(t.begin(), t.end(), 1) / 400.0, 0.5, 0.15) << j;
  }
  auto recombined = [](const std::vector<int>& x, const std::vector<int>& y) {
    int same = 0;
    for (std::size_t i = 0; i < x.size(); ++i) same += x[i] == y[i];
    return std::min(same, 400 - same) / 400.0;
  };
  double near = 0, far = 0;
  int n_near = 0;
  for (const auto& t : passed) {
    ASSERT_GT(t.size(), 20u);
    for (std::size_t k = 0; k + 1 < t.size(); ++k, ++n_near) near += recombined(t[k], t[k + 1]);
    far += recombined(t.front(), t.back()) / 5;
  }
  EXPECT_LT(near / n_near, 0.02);
  EXPECT_NEAR(far, 0.43, 0.1);
}

TEST(GenotypeSimulator, FilesAreReproducibleAndInTheirFormats) {
  const auto ped = pedigree_of_size(9, 400);
  Config cfg = small_config();
  cfg.genotyped = 60;
  cfg.chromosomes = 2;
  cfg.snps_per_chromosome = 70;
  cfg.real_width = 5;
  const Simulation sim = write_data_set(cfg, ped, "gs1");
  write_data_set(cfg, ped, "gs2");
  const char* ext[] = {".snp", ".snp_XrefID", ".real.snp", ".real.snp_XrefID", ".map", ".ped", ".truth"};
  for (const char* e : ext) {
    EXPECT_FALSE(test::read_file(std::string("gs1") + e).empty()) << e;
    EXPECT_EQ(test::read_file(std::string("gs1") + e), test::read_file(std::string("gs2") + e)) << e;
  }
  cfg.seed += 1;
  write_data_set(cfg, ped, "gs3");
  EXPECT_NE(test::read_file("gs1.snp"), test::read_file("gs3.snp"));

  // The genotype lines are those of the simulation; the real form holds the same values.
  cfg.seed -= 1;
  const Parents tp = parents_of(ped);
  std::vector<std::string> made;
  simulate(cfg, tp.sire, tp.dam, [&](const Line& l) { made.push_back(line_text(l)); });
  std::istringstream snp(test::read_file("gs1.snp")), real(test::read_file("gs1.real.snp")),
      xref(test::read_file("gs1.snp_XrefID")), rxref(test::read_file("gs1.real.snp_XrefID"));
  std::string s, r, x, rx;
  std::size_t i = 0;
  for (; std::getline(snp, s); ++i) {
    // ID, blanks to column 20, then 140 markers; the real form has " g.00" per marker.
    ASSERT_LT(i, made.size());
    const std::int32_t a = sim.genotyped[i];
    const std::string id = original_id(a);
    ASSERT_EQ(s.size(), 160u) << s;
    EXPECT_EQ(s.substr(0, 20), id + std::string(10, ' '));
    EXPECT_EQ(s.substr(20), made[i]);
    EXPECT_EQ(made[i].find_first_not_of("0125"), std::string::npos);
    ASSERT_TRUE(std::getline(real, r) && std::getline(xref, x) && std::getline(rxref, rx));
    ASSERT_EQ(r.size(), 720u) << r;
    EXPECT_EQ(r.substr(0, 20), s.substr(0, 20));
    for (std::size_t j = 0; j < 140; ++j) EXPECT_EQ(r.substr(20 + 5 * j, 5), std::string(" ") + made[i][j] + ".00");
    EXPECT_EQ(x, std::to_string(a) + " " + original_id(a));
    EXPECT_EQ(rx, x);
  }
  EXPECT_EQ(i, 60u);
  EXPECT_EQ(made.size(), 60u);

  // Map: index, chromosome, ascending position, name.
  std::istringstream map(test::read_file("gs1.map"));
  int j = 0, prev_chr = 0, prev_pos = 0;
  for (int idx, chr, pos; map >> idx >> chr >> pos >> s;) {
    ++j;
    EXPECT_EQ(idx, j);
    EXPECT_EQ(chr, (j - 1) / 70 + 1);
    EXPECT_EQ(s, "SNP" + std::to_string(j));
    if (chr == prev_chr) {
      EXPECT_GT(pos, prev_pos);
    }
    EXPECT_TRUE(pos >= 1 && pos <= 100'000'000);
    prev_chr = chr, prev_pos = pos;
  }
  EXPECT_EQ(j, 140);

  // Pedigree as recorded: 10 columns, the wrong sires in place, original id last.
  std::istringstream pedf(test::read_file("gs1.ped"));
  int a = 0;
  for (std::string line; std::getline(pedf, line);) {
    ++a;
    std::istringstream w(line);
    const std::vector<std::string> col{std::istream_iterator<std::string>(w), {}};
    ASSERT_EQ(col.size(), 10u) << line;
    EXPECT_EQ(col[0], std::to_string(a));
    EXPECT_EQ(col[1], std::to_string(sim.recorded_sire[static_cast<std::size_t>(a - 1)]));
    EXPECT_EQ(col[9], original_id(a));
  }
  EXPECT_EQ(a, 400);

  // Truth: one line per fault, its kind and numbers.
  std::string truth = "# planted faults: kind, then the animal or SNP numbers\n";
  for (const Fault& f : sim.faults) {
    char t[128];
    if (f.kind == FaultKind::parent_conflict)
      std::snprintf(t, sizeof t, " animal %d recorded_sire %d true_sire %d\n", f.animal, f.other, f.truth);
    else if (f.kind == FaultKind::duplicate)
      std::snprintf(t, sizeof t, " animal %d copy_of %d\n", f.animal, f.other);
    else if (f.kind == FaultKind::low_call_rate)
      std::snprintf(t, sizeof t, " snp %d call_rate %.4f\n", f.snp, f.call_rate);
    else
      std::snprintf(t, sizeof t, " snp %d\n", f.snp);
    truth += fault_name(f.kind) + std::string(t);
  }
  EXPECT_NE(truth.find("parent_conflict animal"), std::string::npos);
  EXPECT_EQ(test::read_file("gs1.truth"), truth);
}

// The example data set of the source tree is what its command line in README.txt makes.
TEST(GenotypeSimulator, RemakesTheExampleDataSet) {
  Config cfg;
  cfg.seed = 2026;
  cfg.genotyped = 300;
  cfg.chromosomes = 5;
  cfg.snps_per_chromosome = 400;
  write_data_set(cfg, pedigree_of_size(2026, 1500), "example");
  for (const char* e : {".snp", ".snp_XrefID", ".map", ".ped", ".truth"}) {
    const std::string kept = test::read_file(std::string(MMEKIT_SOURCE_DIR) + "/examples/genomic/example" + e);
    EXPECT_FALSE(kept.empty()) << e;
    EXPECT_TRUE(kept == test::read_file(std::string("example") + e)) << e;
  }
}

TEST(GenotypeSimulator, RefusesImpossibleInput) {
  auto message = [](const std::function<void()>& f) {
    try {
      f();
    } catch (const std::invalid_argument& e) {
      return std::string(e.what());
    }
    return std::string("(no error)");
  };
  const std::vector<std::int32_t> sire = {0, 3, 0}, dam = {0, 0, 0}, none = {0, 0, 0};
  Config c;
  c.genotyped = 2;
  const Sink skip = [](const Line&) {};
  EXPECT_EQ(message([&] { simulate(c, sire, dam, skip); }),
            "genosim: a parent of animal 2 is not an earlier animal of the pedigree");
  EXPECT_EQ(message([&] { pedigree_of_parents(sire, dam); }),
            "genosim: a parent of animal 2 is not an earlier animal of the pedigree");
  c.genotyped = 4;
  EXPECT_EQ(message([&] { simulate(c, none, none, skip); }),
            "genosim: genotyped animals must be between 1 and the animals of the pedigree");
  c.genotyped = 3;
  c.real_width = 3;
  EXPECT_EQ(message([&] { simulate(c, none, none, skip); }), "genosim: real width must be 0 or 4 to 20");
  c.real_width = 0;
  c.chromosome_mb = 1e-4;
  EXPECT_EQ(message([&] { simulate(c, none, none, skip); }), "genosim: chromosomes too short for their SNPs");
  c.chromosome_mb = 2001;
  EXPECT_EQ(message([&] { simulate(c, none, none, skip); }), "genosim: chromosomes longer than 2000 Mb");
}

}  // namespace
}  // namespace mmekit::genosim
