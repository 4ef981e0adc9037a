#include "mmekit/genomic/pedigree.hpp"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <vector>

#include "mmekit/support/clock.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/support/units.hpp"
#include "mmekit/tool/text.hpp"

namespace mmekit {

namespace {

std::string trimmed(std::string_view s) {
  const auto b = s.find_first_not_of(' ');
  if (b == std::string_view::npos) return {};
  return std::string(s.substr(b, s.find_last_not_of(' ') - b + 1));
}

// Every `step` items a progress line " <head> pct% - count animals"; nothing when step is 0.
void progress_line(const char* head, std::int64_t count, std::int64_t total) {
  print_free(head, count * 100 / total, "% - ", count, " animals");
}

// The original identifiers, known parents and sex from the 10-column pedigree file.
void read_original_ids(std::istream& in, std::int32_t n) {
  GenomicState& g = genomic;
  print_free(" Reading Original IDs from pedigree file ");
  g.opt.readOrigId = true;
  g.origId = Array1<std::string>(0, n, std::string());
  g.origId(0).push_back('0');
  g.animalKnownParents = Array1<std::int32_t>(n, 0);
  g.animalSex = Array1<std::int32_t>(n, 0);
  FixedTexts xc(100, 100);
  std::string line;
  for (std::int32_t k = 1; k <= n; ++k) {
    if (!std::getline(in, line)) line.clear();
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::int32_t m = 0;
    nums2(line, m, xc);
    if (m < 10) stop(" Wrong pedigree file, should be from LINTARO with original IDs in the 10th column");
    const std::int32_t a = field_to_int(xc(1));
    if (a < 1 || a > n) stop(free_format(" GET_PED: animal number out of range in line", k, ":", a));
    g.origId(a) = std::string(xc(10).substr(0, 25));
    const std::int64_t known = field_to_int(xc(5));
    g.animalKnownParents(a) = static_cast<std::int32_t>(std::min<std::int64_t>(std::llabs(known), INT32_MAX));
    const std::int32_t as_sire = field_to_int(xc(8)), as_dam = field_to_int(xc(9));
    g.animalSex(a) = as_dam < 1 ? (as_sire > 0 ? 1 : 0) : (as_sire < 1 ? 2 : 3);
  }
  if (g.opt.msg > 100)
    for (std::int32_t a = 1; a <= n; ++a)
      print_free(g.ped(a, 1), g.ped(a, 2), g.ped(a, 3), g.ped(a, 4), g.animalKnownParents(a), g.animalSex(a),
                 g.origId(a));
}

}  // namespace

void check_parents(const Array2<std::int32_t>& ped, const char* who) {
  const std::int64_t n = ped.rows();
  for (std::int64_t a = 1; a <= n; ++a)
    for (int c = 2; c <= 3; ++c)
      if (ped(a, c) < 0 || ped(a, c) > n)
        stop(free_format(std::string(who) + ": parent out of range", a, ped(a, 2), ped(a, 3)));
}

// ---- Reading --------------------------------------------------------------------------------

void GET_PED(std::optional<std::string> filename, std::optional<std::int32_t> unit) {
  if (!filename && !unit) stop("GET_PED: either filename or unit has to be present");
  GenomicState& g = genomic;
  const std::int32_t u = unit.value_or(1);
  std::string name;
  if (filename) {
    name = trimmed(*filename);
    units.close(u);
    if (!units.open(u, name, true, "old")) stop(" GET_PED: cannot open pedigree file: \"" + name + "\"");
  } else {
    name = trimmed(units.name(u));
  }
  std::fstream* in = units.text(u);
  if (!in) stop(free_format("GET_PED: no text file open on unit", u));

  // 1. Count the records: one value read from each.
  std::int64_t count = 0;
  for (std::int32_t v = 0; read_free(*in, v) == ReadStatus::ok;) ++count;
  units.rewind(u);
  print_free(" Read ", count, " animals from pedigree file: \"" + name + "\"");
  if (count == 0) stop("GET_PED: no animals in pedigree file");
  if (count > INT32_MAX - 1) stop(free_format(" GET_PED: too many animals in pedigree file", count));
  const std::int32_t n = static_cast<std::int32_t>(count);

  g.n = n;
  g.ped = Array2<std::int32_t>(n, 4, 0);
  g.f = Array1<double>(0, n, 0.0);
  g.ped_chronological = true;

  // 2. Animal, sire and dam of each record; the rest of the line is not looked at here.
  for (std::int32_t k = 1; k <= n; ++k) {
    std::int32_t a = 0, s = 0, d = 0;
    if (read_free(*in, a, s, d) != ReadStatus::ok)
      stop(free_format(" GET_PED: error reading animal, sire and dam of record", k));
    if (a < 1 || a > n) stop(free_format(" GET_PED: animal number out of range in record", k, ":", a));
    if (a == s || a == d) {
      print_free(" Animal Id equal to Sire/Dam Id - relationships removed !!", a);
      s = d = 0;
    }
    // A negative number is no animal: an unknown parent.
    if (s < 0) s = 0;
    if (d < 0) d = 0;
    g.ped(a, 1) = a;
    g.ped(a, 2) = s;
    g.ped(a, 3) = d;
    if ((a <= s && s <= n) || (a <= d && d <= n)) {
      if (g.ped_chronological && g.opt.msg > 0)
        print_free(" Pedigree was in not chronological order (parent first), reodering will be performed!!!");
      g.opt.mats(gm_A22).which = 4;
      g.ped_chronological = false;
    }
  }

  // 3. Unknown parent groups are unknown parents here.
  std::int32_t largest = 0;
  for (std::int32_t v : g.ped.vec()) largest = std::max(largest, v);
  if (largest > n) {
    print_free(" Pedigree with UPG - setting to zero to create A22");
    for (std::int32_t& v : g.ped.vec())
      if (v > n) v = 0;
  }

  const GenomicOptions& o = g.opt;
  if (o.saveDiagGOrig || o.saveDiagA22Orig || o.saveHinvOrig || o.saveGOrig || o.saveA22Orig || o.saveAinvOrig ||
      o.readOrigId || o.saveGimA22iOrig) {
    units.rewind(u);
    read_original_ids(*in, n);
  }
  if (filename) units.close(u);
  else units.rewind(u);
}

// ---- Inbreeding -----------------------------------------------------------------------------

double CFFA(std::int32_t i, std::int32_t j, const Array2<std::int32_t>& ped, Array1<double>& f) {
  if (f.empty()) stop("CFFA: not allocated f");
  const std::int64_t n = ped.rows();
  if (f.lower() != 0 || f.upper() != n) stop(free_format("CFFA: size of f not match pedigree", n, f.size()));
  const std::int32_t* sire = ped.data() + n;  // column 2, 0-based by animal - 1
  const std::int32_t* dam = ped.data() + 2 * n;
  auto check = [&](std::int64_t a) {
    if (a < 0 || a > n) stop(free_format("CFFA: animal out of range", a));
  };
  check(i);
  check(j);
  // Frames of the evaluation. A pair (a, b), a <= b: stage 0 opens it, stage 1 has the first
  // half in `sum`, stage 2 finishes. For a == b the frame computes f(a) from its parents.
  struct Frame {
    std::int32_t a, b;
    int stage;
    double sum;
  };
  std::vector<Frame> stack;
  // A path of pairs longer than 2 n + 2 repeats a pair: the ancestors hold a loop.
  const std::size_t limit = static_cast<std::size_t>(2 * n + 4);
  double ret = 0;  // value of the frame that was popped last
  auto push = [&](std::int32_t x, std::int32_t y) {
    if (x > y) std::swap(x, y);
    if (stack.size() >= limit) stop("CFFA: loop in pedigree, check pedigree!!");
    stack.push_back({x, y, 0, 0.0});
  };
  push(i, j);
  while (!stack.empty()) {
    Frame& t = stack.back();
    const std::int32_t a = t.a, b = t.b;
    if (a == 0) {  // unknown parent
      ret = 0;
      stack.pop_back();
      continue;
    }
    if (a == b) {
      if (f(a) != -1.0) {
        ret = 1 + f(a);
        stack.pop_back();
      } else if (t.stage == 0) {
        t.stage = 1;
        const std::int32_t s = sire[a - 1], d = dam[a - 1];
        check(s);
        check(d);
        push(s, d);
      } else {
        f(a) = 0.5 * ret;
        ret = 1 + f(a);
        stack.pop_back();
      }
      continue;
    }
    // The younger of the two (larger number) is opened.
    const std::int32_t s = sire[b - 1], d = dam[b - 1];
    if (t.stage == 0) {
      check(s);
      check(d);
      t.stage = 1;
      push(a, s);
    } else if (t.stage == 1) {
      t.sum = ret;
      t.stage = 2;
      push(a, d);
    } else {
      ret = 0.5 * (t.sum + ret);
      stack.pop_back();
    }
  }
  return ret;
}

double CFFA(std::int32_t i, std::int32_t j) { return CFFA(i, j, genomic.ped, genomic.f); }

void inbreeding_recursive(const Array2<std::int32_t>& ped, Array1<double>& f, std::int32_t msg) {
  Stopwatch clock;
  const std::int64_t n = ped.rows();
  f = Array1<double>(0, n, -1.0);
  f(0) = 0;
  const std::int64_t step = n / 10;
  for (std::int64_t a = 1; a <= n; ++a) {
    if (f(a) == -1.0) CFFA(static_cast<std::int32_t>(a), static_cast<std::int32_t>(a), ped, f);
    if (msg > 0 && step > 0 && a % step == 0) progress_line(" about", a, n);
  }
  double sum = 0;
  for (std::int64_t a = 1; a <= n; ++a) sum += f(a);
  print_free("   Calculating Inbreeding by recursive function .. elapsed time", clock.cpu());
  print_free("   Mean inbreeding: ", n > 0 ? sum / static_cast<double>(n) : 0.0);
}

void inbreeding_recursive() { inbreeding_recursive(genomic.ped, genomic.f, genomic.opt.msg); }

void inbreeding_ML(Array1<std::int32_t>& sire, Array1<std::int32_t>& dam, Array1<double>& f, std::int32_t msg) {
  Stopwatch clock;
  const std::int64_t n = sire.size();
  if (dam.size() != n || f.size() != n + 1 || (n > 0 && f.lower() != 0))
    stop("vectors for pedigree and inbreeding not match");
  // The walk below keeps its list in descending order of animal number: a parent numbered at
  // or above its progeny would break it (and a loop would never end), so refuse it here.
  for (std::int64_t i = 1; i <= n; ++i)
    if (sire(i) < 0 || dam(i) < 0 || sire(i) >= i || dam(i) >= i)
      stop(free_format("inbreeding_ML: pedigree not in chronological order at animal", i, sire(i), dam(i)));
  std::vector<std::int32_t> link(static_cast<std::size_t>(n + 1), 0);
  std::vector<double> L(static_cast<std::size_t>(n + 1), 0.0), D(static_cast<std::size_t>(n + 1), 0.0);
  f(0) = -1;
  const std::int64_t step = n / 10;
  for (std::int64_t i = 1; i <= n; ++i) {
    std::int32_t s = sire(i), d = dam(i);
    if (s < d) std::swap(s, d);
    sire(i) = s;
    dam(i) = d;
    D[i] = 0.5 - 0.25 * (f(s) + f(d));
    if (d == 0) {
      f(i) = 0;
    } else {
      L[i] = 1;
      double fi = -1;
      std::int32_t j = static_cast<std::int32_t>(i);
      while (j != 0) {
        const double r = L[j];
        std::int32_t k = j;
        for (const std::int32_t p : {sire(j), dam(j)}) {
          if (p <= 0) continue;
          while (link[k] > p) k = link[k];
          L[p] += 0.5 * r;
          if (link[k] != p) {
            link[p] = link[k];
            link[k] = p;
          }
          k = p;
        }
        fi += r * r * D[j];
        L[j] = 0;
        const std::int32_t next = link[j];
        link[j] = 0;
        j = next;
      }
      f(i) = fi;
    }
    if (msg > 0 && step > 0 && i % step == 0) progress_line(" at", i, n);
  }
  f(0) = 0;
  if (msg > 0) print_free("   Calculating Inbreeding by M&L, elapsed time", clock.cpu());
}

void inbreeding_ML(Array1<std::int32_t>& sire, Array1<std::int32_t>& dam) {
  inbreeding_ML(sire, dam, genomic.f, genomic.opt.msg);
}

// ---- Products with A ------------------------------------------------------------------------

namespace {

// Within-family variances of the animals, d(a) = (2 + [s = 0] + [d = 0] - f(s) - f(d)) / 4,
// index 0 unused.
std::vector<double> mendelian_variances(const Array2<std::int32_t>& ped, const Array1<double>& f) {
  const std::int64_t n = ped.rows();
  std::vector<double> d(static_cast<std::size_t>(n + 1), 0.0);
  for (std::int64_t a = 1; a <= n; ++a) {
    const std::int32_t s = ped(a, 2), m = ped(a, 3);
    d[a] = (2.0 + (s == 0) + (m == 0) - f(s) - f(m)) * 0.25;
  }
  return d;
}

void check_f(const Array2<std::int32_t>& ped, const Array1<double>& f) {
  if (f.empty()) stop("NRM_times_w8: not allocated f");
  if (ped.rows() != f.size() - 1 || f.lower() != 0)
    stop(free_format("NRM_times_w8: size of F not match pedigree", ped.rows(), f.size()));
}

}  // namespace

void NRM_times_w8(const Array2<std::int32_t>& ped, const Array1<double>& f, std::span<double> y,
                  std::span<const double> x, std::int32_t nblocks, std::span<const std::int64_t> blocks,
                  std::int64_t nx, std::int32_t nk) {
  check_f(ped, f);
  check_parents(ped, "NRM_times_w8");
  const std::int64_t n = ped.rows();
  if (nk < 1 || nblocks < 0 || static_cast<std::int64_t>(blocks.size()) < nblocks || nx < 0 ||
      static_cast<std::int64_t>(x.size()) < nx || static_cast<std::int64_t>(y.size()) < nx)
    stop(free_format("NRM_times_w8: wrong sizes of x, y or blocks", nx, nblocks, nk));
  for (std::int32_t b = 0; b < nblocks; ++b)
    if (blocks[b] < 0 || blocks[b] > nx / nk - n)
      stop(free_format("NRM_times_w8: block outside x", b + 1, blocks[b], nx));
  const std::vector<double> dv = mendelian_variances(ped, f);
  std::vector<double> q(static_cast<std::size_t>(nx), 0.0);
  // 0-based position of element c (0-based) of animal a in block b.
  auto at = [&](std::int32_t b, std::int64_t a, std::int32_t c) {
    return static_cast<std::size_t>((blocks[b] + a - 1) * nk + c);
  };
  for (std::int32_t b = 0; b < nblocks; ++b)
    for (std::int32_t c = 0; c < nk; ++c) {
      for (std::int64_t a = n; a >= 1; --a) {
        const std::size_t p = at(b, a, c);
        q[p] += x[p];
        const std::int32_t s = ped(a, 2), d = ped(a, 3);
        if (s != 0) q[at(b, s, c)] += 0.5 * q[p];
        if (d != 0) q[at(b, d, c)] += 0.5 * q[p];
      }
      for (std::int64_t a = 1; a <= n; ++a) {
        const std::int32_t s = ped(a, 2), d = ped(a, 3);
        double v = dv[a] * q[at(b, a, c)];
        if (s != 0) v += 0.5 * y[at(b, s, c)];
        if (d != 0) v += 0.5 * y[at(b, d, c)];
        y[at(b, a, c)] = v;
      }
    }
}

void NRM_times_w8(std::span<double> y, std::span<const double> x, std::int32_t nblocks,
                  std::span<const std::int64_t> blocks, std::int64_t nx, std::int32_t nk,
                  std::optional<std::int32_t> msg, const ReducedPedigree* redped) {
  const std::int32_t level = msg.value_or(genomic.opt.msg);
  Stopwatch clock;
  if (redped) NRM_times_w8(redped->ped, redped->f, y, x, nblocks, blocks, nx, nk);
  else NRM_times_w8(genomic.ped, genomic.f, y, x, nblocks, blocks, nx, nk);
  if (level >= 500) print_free("   NRM_times_w8 ...elapsed time", clock.cpu());
}

void colleau_columns(const Array2<std::int32_t>& ped, const Array1<double>& f, std::span<const std::int32_t> cols,
                     std::span<const std::int32_t> rows, Array2<double>& out, std::int32_t nk,
                     const std::function<void(std::int64_t)>& progress) {
  check_f(ped, f);
  check_parents(ped, "NRM_times_w8");
  const std::int64_t n = ped.rows();
  const std::int64_t ncols = static_cast<std::int64_t>(cols.size()), nrows = static_cast<std::int64_t>(rows.size());
  out.resize(nrows, ncols, 0.0);
  if (ncols == 0) return;
  if (nk < 1) nk = 1;
  std::int32_t last = 0;  // the downward sweep runs to the largest animal kept
  for (std::int32_t r : rows) {
    if (r < 1 || r > n) stop(free_format("NRM_times_w8: animal out of range", r));
    last = std::max(last, r);
  }
  for (std::int32_t c : cols)
    if (c < 1 || c > n) stop(free_format("NRM_times_w8: animal out of range", c));
  // In place and in one array, the sweeps need every parent before its progeny.
  for (std::int64_t a = 1; a <= n; ++a)
    if (ped(a, 2) >= a || ped(a, 3) >= a)
      stop(free_format("NRM_times_w8: pedigree not in chronological order at animal", a, ped(a, 2), ped(a, 3)));
  const std::vector<double> dv = mendelian_variances(ped, f);
  // Parents as 0-based row offsets into the work array; row 0 is the unknown parent, a sink
  // during the upward sweep that is cleared before the downward one.
  const std::int32_t* sire = ped.data() + n;
  const std::int32_t* dam = ped.data() + 2 * n;
  // Columns in order of their animals: a pass of young animals needs no upward sweep over the
  // animals after its youngest.
  std::vector<std::int64_t> order(static_cast<std::size_t>(ncols));
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&](std::int64_t a, std::int64_t b) { return cols[a] < cols[b]; });
  const std::size_t w = static_cast<std::size_t>(nk);
  std::vector<double> work((static_cast<std::size_t>(last) + 1) * w);
  std::int64_t done = 0;
  for (std::int64_t first = 0; first < ncols; first += nk) {
    const std::int64_t width = std::min<std::int64_t>(nk, ncols - first);
    std::int32_t top = 0;
    for (std::int64_t c = 0; c < width; ++c) top = std::max(top, cols[order[first + c]]);
    const std::int64_t top_row = std::max<std::int64_t>(top, last);
    if (top_row > last) work.resize((static_cast<std::size_t>(top_row) + 1) * w);
    std::fill(work.begin(), work.end(), 0.0);
    for (std::int64_t c = 0; c < width; ++c) work[static_cast<std::size_t>(cols[order[first + c]]) * w + c] = 1.0;
    double* q = work.data();
    // Upward: q = T' x, in place.
    for (std::int64_t a = top; a >= 1; --a) {
      const double* qa = q + a * w;
      double* qs = q + static_cast<std::size_t>(sire[a - 1]) * w;
      double* qd = q + static_cast<std::size_t>(dam[a - 1]) * w;
      for (std::size_t c = 0; c < w; ++c) {
        const double h = 0.5 * qa[c];
        qs[c] += h;
        qd[c] += h;
      }
    }
    std::fill(q, q + w, 0.0);
    // Downward: y = T D q, in place.
    for (std::int64_t a = 1; a <= last; ++a) {
      double* ya = q + a * w;
      const double* ys = q + static_cast<std::size_t>(sire[a - 1]) * w;
      const double* yd = q + static_cast<std::size_t>(dam[a - 1]) * w;
      const double da = dv[a];
      for (std::size_t c = 0; c < w; ++c) ya[c] = da * ya[c] + 0.5 * (ys[c] + yd[c]);
    }
    for (std::int64_t c = 0; c < width; ++c) {
      double* column = out.data() + order[first + c] * nrows;
      for (std::int64_t k = 0; k < nrows; ++k) column[k] = q[static_cast<std::size_t>(rows[k]) * w + c];
    }
    if (progress)
      for (std::int64_t c = 0; c < width; ++c) progress(++done);
  }
}

}  // namespace mmekit
