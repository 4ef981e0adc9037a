#include "mmekit/genomic/a22.hpp"

#include <algorithm>
#include <vector>

#include "mmekit/genomic/pedigree.hpp"
#include "mmekit/support/clock.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

void check_genotyped(const Array2<std::int32_t>& ped, std::span<const std::int32_t> genId) {
  for (std::size_t i = 0; i < genId.size(); ++i)
    if (genId[i] < 1 || genId[i] > ped.rows())
      stop(free_format(" A22: genotyped animal not in pedigree:", static_cast<std::int64_t>(i) + 1, genId[i]));
}

std::span<const std::int32_t> genotyped() {
  return {genomic.genId.data(), static_cast<std::size_t>(genomic.genId.size())};
}

void zero_f() { genomic.f = Array1<double>(0, genomic.n, 0.0); }

// " at pct% - i animals" every ngen/10 columns, for more than ten genotyped animals.
std::function<void(std::int64_t)> a22_progress(std::int64_t ngen) {
  if (ngen <= 10) return {};
  const std::int64_t step = ngen / 10;
  return [step, ngen](std::int64_t i) {
    if (i % step == 0) print_free(" at", i * 100 / ngen, "% - ", i, " animals");
  };
}

// Marks the genotyped animals and all their ancestors (the walk keeps its own stack).
Array1<std::int8_t> mark_ancestors(const Array2<std::int32_t>& ped, std::span<const std::int32_t> genId,
                                   std::int32_t msg) {
  const std::int64_t n = ped.rows();
  Array1<std::int8_t> marked(n, 0);
  if (msg > 150) print_free("Getting ancestors for GenId(i)");
  std::vector<std::int32_t> stack;
  for (std::size_t i = 0; i < genId.size(); ++i) {
    if (msg > 150) print_free(static_cast<std::int64_t>(i) + 1, genId[i]);
    if (marked(genId[i])) continue;
    stack.push_back(genId[i]);
    while (!stack.empty()) {
      const std::int32_t a = stack.back();
      stack.pop_back();
      if (a == 0 || marked(a)) continue;
      marked(a) = 1;
      stack.push_back(ped(a, 3));
      stack.push_back(ped(a, 2));
    }
  }
  return marked;
}

// The subset under the numbers newId (old -> new, 0 outside it), `count` animals.
void lay_out_subset(const Array2<std::int32_t>& ped, std::span<const std::int32_t> genId,
                    const Array1<std::int32_t>& newId, std::int32_t count, ReducedPedigree& redped,
                    std::int32_t msg) {
  const std::int64_t n = ped.rows();
  redped.n = count;
  redped.ped = Array2<std::int32_t>(count, 4, 0);
  redped.oldId = Array1<std::int32_t>(count, 0);
  redped.genid = Array1<std::int32_t>(static_cast<std::int64_t>(genId.size()), 0);
  redped.f = Array1<double>(0, count, 0.0);
  if (msg > 150) print_free("id, newid");
  for (std::int64_t a = 1; a <= n; ++a) {
    const std::int32_t k = newId(a);
    if (k <= 0) continue;
    redped.oldId(k) = static_cast<std::int32_t>(a);
    redped.ped(k, 1) = k;
    for (int c = 2; c <= 3; ++c) {
      const std::int32_t p = ped(a, c);
      if (p == 0) continue;
      // The parent needs a number given before its progeny's.
      if (newId(p) <= 0 || newId(p) >= k) stop("error parent not renumber");
      redped.ped(k, c) = newId(p);
    }
    if (msg > 150) print_free(a, k);
  }
  if (msg > 150) print_free("genId(i) redped%genid(i)");
  for (std::size_t i = 0; i < genId.size(); ++i) {
    redped.genid(static_cast<std::int64_t>(i) + 1) = newId(genId[i]);
    if (msg > 150) print_free(genId[i], newId(genId[i]));
  }
}

// The tabular A through element access: get(i, j) and set(i, j, v) for j <= i, and the
// mirror set(j, i, v) when `mirror` is true.
template <class Get, class Set>
void tabular_A(const Array2<std::int32_t>& ped, Get&& get, Set&& set, bool mirror) {
  const std::int64_t n = ped.rows();
  for (std::int64_t i = 1; i <= n; ++i) {
    const std::int32_t s = ped(i, 2), d = ped(i, 3);
    set(i, i, (s != 0 && d != 0) ? 1.0 + 0.5 * get(s, d) : 1.0);
    for (std::int64_t j = 1; j < i; ++j) {
      double v = 0;
      if (s != 0) v += 0.5 * get(s, j);
      if (d != 0) v += 0.5 * get(d, j);
      set(i, j, v);
      if (mirror) set(j, i, v);
    }
  }
}

}  // namespace

// ---- Method 1 -------------------------------------------------------------------------------

void A22_recursive(const Array2<std::int32_t>& ped, std::span<const std::int32_t> genId, densem& A22) {
  Stopwatch clock;
  check_parents(ped, "A22_recursive");
  check_genotyped(ped, genId);
  Array1<double> f(0, ped.rows(), -1.0);
  f(0) = 0;
  const std::int64_t ngen = static_cast<std::int64_t>(genId.size());
  A22.resize(ngen, 0.0);
  for (std::int64_t j = 1; j <= ngen; ++j)
    for (std::int64_t i = 1; i <= j; ++i) A22(i, j) = A22(j, i) = CFFA(genId[i - 1], genId[j - 1], ped, f);
  print_free("   Calculating A22 recursive Matrix...elapsed time", clock.cpu());
}

void A22_recursive(densem& A22) {
  A22_recursive(genomic.ped, genotyped(), A22);
  zero_f();
}

// ---- Method 2 -------------------------------------------------------------------------------

void NRM_Colleau(const Array2<std::int32_t>& ped, std::span<const std::int32_t> genId, Array1<double>& f,
                 densem& A22, std::int32_t msg, std::int32_t nk) {
  Stopwatch clock;
  check_parents(ped, "NRM_Colleau");
  check_genotyped(ped, genId);
  const std::int64_t n = ped.rows(), ngen = static_cast<std::int64_t>(genId.size());
  Array1<std::int32_t> sire(n), dam(n);
  for (std::int64_t a = 1; a <= n; ++a) {
    sire(a) = ped(a, 2);
    dam(a) = ped(a, 3);
  }
  f = Array1<double>(0, n, 0.0);
  inbreeding_ML(sire, dam, f, msg);
  print_free("** Setting MSG - old msg:", msg, "new msg:", 0);
  print_free(ngen);
  colleau_columns(ped, f, genId, genId, A22, nk, a22_progress(ngen));
  print_free("   Calculating A22 Matrix by Colleau ...elapsed time", clock.cpu());
  print_free("** Setting MSG - old msg:", 0, "new msg:", msg);
}

void NRM_Colleau(densem& A22) {
  NRM_Colleau(genomic.ped, genotyped(), genomic.f, A22, genomic.opt.msg, genomic.a22_columns);
  zero_f();
}

// ---- Methods 3 and 4 ------------------------------------------------------------------------

void get_ancestors(const Array2<std::int32_t>& ped, std::span<const std::int32_t> genId, ReducedPedigree& redped,
                   std::int32_t msg) {
  Stopwatch clock;
  check_parents(ped, "get_ancestors");
  check_genotyped(ped, genId);
  const Array1<std::int8_t> marked = mark_ancestors(ped, genId, msg);
  Array1<std::int32_t> newId(ped.rows(), 0);
  std::int32_t count = 0;
  for (std::int64_t a = 1; a <= ped.rows(); ++a)
    if (marked(a)) newId(a) = ++count;
  lay_out_subset(ped, genId, newId, count, redped, msg);
  print_free("    Extracting subset of: ", count, " pedigrees from: ", ped.rows(), "  ...elapsed time: ", clock.cpu());
}

std::int32_t RenumParenFirst(Array1<std::int32_t>& newId, const Array2<std::int32_t>& ped,
                             const Array1<std::int8_t>& marked) {
  const std::int64_t n = ped.rows();
  if (newId.size() != n || marked.size() != n) stop("RenumParenFirst, size does not match");
  check_parents(ped, "RenumParenFirst");
  newId.fill(0);
  // state: 0 not reached, 1 on the walk, 2 numbered, 3 failed (a loop above it)
  std::vector<std::int8_t> state(static_cast<std::size_t>(n + 1), 0);
  struct Step {
    std::int32_t a;
    int parent;  // next parent to look at: 0 sire, 1 dam, 2 done
  };
  std::vector<Step> walk;
  std::int32_t count = 0;
  auto fail_walk = [&] {
    for (const Step& s : walk) {
      state[s.a] = 3;
      newId(s.a) = -1;
    }
    walk.clear();
  };
  for (std::int64_t a0 = 1; a0 <= n; ++a0) {
    if (!marked(a0) || state[a0] != 0) continue;
    walk.push_back({static_cast<std::int32_t>(a0), 0});
    state[a0] = 1;
    while (!walk.empty()) {
      Step& t = walk.back();
      if (t.parent == 2) {
        state[t.a] = 2;
        newId(t.a) = ++count;
        walk.pop_back();
        continue;
      }
      const std::int32_t p = ped(t.a, t.parent == 0 ? 2 : 3);
      ++t.parent;
      if (p == 0 || state[p] == 2) continue;
      if (state[p] == 1 || state[p] == 3) {  // a loop, or an ancestor that sits on one
        fail_walk();
        break;
      }
      state[p] = 1;
      walk.push_back({p, 0});
    }
  }
  return count;
}

void get_ancestors_parents_first(const Array2<std::int32_t>& ped, std::span<const std::int32_t> genId,
                                 ReducedPedigree& redped, std::int32_t msg) {
  Stopwatch clock;
  check_parents(ped, "get_ancestors_parents_first");
  check_genotyped(ped, genId);
  const Array1<std::int8_t> marked = mark_ancestors(ped, genId, msg);
  if (msg > 0) print_free("   Renumber parents first !!");
  Array1<std::int32_t> newId(ped.rows(), 0);
  const std::int32_t count = RenumParenFirst(newId, ped, marked);
  for (std::int64_t a = 1; a <= ped.rows(); ++a)
    if (marked(a) && newId(a) <= 0) {
      print_free(a, ped(a, 1), ped(a, 2), ped(a, 3), ped(a, 4));
      stop("Animal not renumber, possible loop,Check pedigree!!");
    }
  lay_out_subset(ped, genId, newId, count, redped, msg);
  print_free("    Extracting subset of: ", count, " pedigrees from: ", ped.rows(), "  elapsed time: ", clock.cpu());
}

void A22_subset(const Array2<std::int32_t>& ped, std::span<const std::int32_t> genId, std::int32_t method,
                densem& A22, std::int32_t msg, std::int32_t nk) {
  Stopwatch total;
  ReducedPedigree redped;
  if (method == 3) get_ancestors(ped, genId, redped, msg);
  else get_ancestors_parents_first(ped, genId, redped, msg);

  Stopwatch clock;
  Array1<std::int32_t> sire(redped.n), dam(redped.n);
  for (std::int64_t a = 1; a <= redped.n; ++a) {
    sire(a) = redped.ped(a, 2);
    dam(a) = redped.ped(a, 3);
  }
  inbreeding_ML(sire, dam, redped.f, msg);
  print_free("   Calculating Inbreeding by M&L function.. elapsed time", clock.cpu());
  if (msg > 150)
    for (std::int64_t a = 1; a <= redped.n; ++a)
      print_free(redped.oldId(a), a, redped.ped(a, 2), redped.ped(a, 3));

  const std::span<const std::int32_t> cols(redped.genid.data(), static_cast<std::size_t>(redped.genid.size()));
  colleau_columns(redped.ped, redped.f, cols, cols, A22, nk, a22_progress(redped.genid.size()));
  print_free("   Calculating A22 Matrix by Colleau ...elapsed time: ", total.cpu());
}

void A22_subset(densem& A22) {
  A22_subset(genomic.ped, genotyped(), genomic.opt.mats(gm_A22).which, A22, genomic.opt.msg, genomic.a22_columns);
  zero_f();
}

void get_ancestors(ReducedPedigree& redped) { get_ancestors(genomic.ped, genotyped(), redped, genomic.opt.msg); }

void get_ancestors_parents_first(ReducedPedigree& redped) {
  get_ancestors_parents_first(genomic.ped, genotyped(), redped, genomic.opt.msg);
}

// ---- Tabular A ------------------------------------------------------------------------------

void NRM_densem(const Array2<std::int32_t>& ped, densem& A, std::int32_t msg) {
  Stopwatch clock;
  check_parents(ped, "NRM_densem");
  print_free("   Calculating A Matrix...", ped.rows());
  A.resize(ped.rows(), 0.0);
  tabular_A(
      ped, [&](std::int64_t i, std::int64_t j) { return A(i, j); },
      [&](std::int64_t i, std::int64_t j, double v) { A(i, j) = v; }, true);
  if (msg > 150) print_matrix(A, "Matrix A");
  print_free("   Calculating A Matrix... elapsed time", clock.cpu());
}

void NRM_dense_symm(const Array2<std::int32_t>& ped, dense_symm& A, std::int32_t msg) {
  Stopwatch clock;
  check_parents(ped, "NRM_dense_symm");
  print_free("   Calculating A Matrix...", ped.rows());
  A.resize(ped.rows(), 0.0);
  tabular_A(
      ped, [&](std::int64_t i, std::int64_t j) { return A(i, j); },
      [&](std::int64_t i, std::int64_t j, double v) { A(i, j) = v; }, false);
  if (msg > 150) print_matrix(A, "Matrix A");
  print_free("   Calculating A Matrix... elapsed time", clock.cpu());
}

void NRM_sparse_hashm(const Array2<std::int32_t>& ped, sparse_hashm& A, std::int32_t msg) {
  if (A.storage != 'f') stop("NRM_SPARSE_HASHM: not yet implemented upper storage");
  Stopwatch clock;
  check_parents(ped, "NRM_sparse_hashm");
  const std::int64_t n = ped.rows();
  print_free("   Calculating A Matrix...", n);
  // Sets never grow a table: room for every element at half load.
  const std::int64_t room = n > (std::int64_t{1} << 30) ? (std::int64_t{1} << 62) : std::max<std::int64_t>(2 * n * n, 16);
  init_sparse_hashm(A, static_cast<std::int32_t>(n), room, 'f');
  tabular_A(
      ped,
      [&](std::int64_t i, std::int64_t j) {
        return getm_sparse_hashm(static_cast<std::int32_t>(i), static_cast<std::int32_t>(j), A);
      },
      [&](std::int64_t i, std::int64_t j, double v) {
        if (v != 0.0) setm_sparse_hashm(v, static_cast<std::int32_t>(i), static_cast<std::int32_t>(j), A);
      },
      true);
  if (msg > 150) {
    print_free("Matrix A");
    printm_sparse_hashm(A);
  }
  print_free("   Calculating A Matrix... elapsed time", clock.cpu());
}

void NRM_colleau_densem(const Array2<std::int32_t>& ped, Array1<double>& f, densem& A, std::int32_t nk) {
  check_parents(ped, "NRM_colleau_densem");
  const std::int64_t n = ped.rows();
  Array1<std::int32_t> sire(n), dam(n);
  for (std::int64_t a = 1; a <= n; ++a) {
    sire(a) = ped(a, 2);
    dam(a) = ped(a, 3);
  }
  f = Array1<double>(0, n, 0.0);
  inbreeding_ML(sire, dam, f, 0);
  std::vector<std::int32_t> all(static_cast<std::size_t>(n));
  for (std::int64_t a = 1; a <= n; ++a) all[static_cast<std::size_t>(a - 1)] = static_cast<std::int32_t>(a);
  colleau_columns(ped, f, all, all, A, nk);
}

void NRM_densem(densem& A) { NRM_densem(genomic.ped, A, genomic.opt.msg); }
void NRM_dense_symm(dense_symm& A) { NRM_dense_symm(genomic.ped, A, genomic.opt.msg); }
void NRM_sparse_hashm(sparse_hashm& A) { NRM_sparse_hashm(genomic.ped, A, genomic.opt.msg); }
void NRM_colleau_densem(densem& A) {
  NRM_colleau_densem(genomic.ped, genomic.f, A, genomic.a22_columns);
  zero_f();
}

}  // namespace mmekit
