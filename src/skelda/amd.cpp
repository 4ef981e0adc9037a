// Approximate minimum degree and its relatives on the quotient graph.
//
// Representation (0-based inside the kernel). Every node owns a list in one integer pool `iw`:
// a live variable's list holds first the elements it belongs to (`elen` of them), then the
// variables it is still joined to directly; an element's list holds its boundary variables.
// `nv` is the weight of a supervariable (negative while it sits in the pivot element being
// built, 0 once merged or eliminated by mass elimination). `degree` holds the approximate
// external degree of a variable and the weighted boundary size of an element.
//
// One step: take a variable of least degree (of least fill score for AMF), form its element
// from its variable neighbours and the boundaries of its elements (which are absorbed), count
// for every element touching the new boundary how much of it lies outside (|Le \ Lme|), bound
// the new degrees with it, absorb elements that lie wholly inside (aggressive absorption),
// eliminate the variables left with nothing but the new element (mass elimination), and merge
// variables whose lists became equal (found by hashing). The pool is compacted when it fills.
#include "mmekit/skelda/amd.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>
#include <type_traits>
#include <vector>

#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

enum class Method { amd, qamd, amf };
enum : std::int8_t { kVar = 0, kElem = 1, kGone = 2, kDense = 3 };

template <class I>
class QuotientOrdering {
  using U = std::make_unsigned_t<I>;

 public:
  // qamd_threshold: QAMD's quasi-dense threshold when given (not negative), else from the graph.
  QuotientOrdering(I n, Method method, std::int64_t qamd_threshold = -1)
      : n_(n), method_(method), qamd_threshold_(qamd_threshold) {}

  // xadj/adj 1-based full graph; order receives the elimination order (0-based nodes).
  void run(const Array1<I>& xadj, const Array1<I>& adj, std::vector<I>& order) {
    const I n = n_;
    order.clear();
    order.reserve(static_cast<std::size_t>(n));
    if (n <= 0) return;
    const std::int64_t total = static_cast<std::int64_t>(xadj(n + 1)) - 1;
    // Elbow room of a quarter, computed in single precision as the original sizing does.
    std::int64_t iwlen = static_cast<std::int64_t>(1.25f * static_cast<float>(xadj(n + 1)));
    if (iwlen < total + 1) iwlen = total + 1;
    iw_.assign(static_cast<std::size_t>(iwlen), 0);
    pe_.assign(n, 0);
    len_.assign(n, 0);
    elen_.assign(n, 0);
    nv_.assign(n, 1);
    st_.assign(n, kVar);
    degree_.assign(n, 0);
    ext_.assign(n, 0);
    clique_.assign(n, 0);
    score_.assign(n, 0);
    w_.assign(n, 1);  // 0 marks an absorbed element
    save_.assign(n, 0);
    chain_next_.assign(n, -1);
    chain_tail_.resize(n);
    hash_head_.assign(n, -1);
    hash_next_.assign(n, -1);
    mark_.assign(n, 0);
    for (I i = 0; i < n; ++i) chain_tail_[i] = i;
    std::int64_t p = 0;
    I lenmax = 0;
    for (I i = 0; i < n; ++i) {
      pe_[i] = p;
      for (std::int64_t k = xadj(i + 1); k < xadj(i + 2); ++k) {
        I j = adj(k) - 1;
        if (j >= 0 && j < n && j != i) iw_[p++] = j;
      }
      len_[i] = static_cast<I>(p - pe_[i]);
      lenmax = std::max(lenmax, len_[i]);
    }
    pfree_ = p;

    // Quasi-dense rows leave the graph at once and are numbered last.
    std::vector<I> dense_rows;
    if (method_ == Method::qamd) {
      const std::int64_t thr = qamd_threshold_ >= 0 ? qamd_threshold_ : qamd_dense_threshold(n, lenmax, total);
      for (I i = 0; i < n; ++i)
        if (len_[i] > thr) {
          st_[i] = kDense;
          dense_rows.push_back(i);
        }
      if (!dense_rows.empty())
        for (I i = 0; i < n; ++i) {
          if (st_[i] != kVar) continue;
          std::int64_t q = pe_[i];
          for (std::int64_t k = pe_[i]; k < pe_[i] + len_[i]; ++k)
            if (st_[iw_[k]] != kDense) iw_[q++] = iw_[k];
          len_[i] = static_cast<I>(q - pe_[i]);
        }
      for (I d : dense_rows) {
        len_[d] = 0;
        nv_[d] = 0;
      }
    }
    const I nactive = n - static_cast<I>(dense_rows.size());

    // Degree (or score) buckets.
    nbuckets_ = (method_ == Method::amf) ? n + 2 : n;
    head_.assign(static_cast<std::size_t>(nbuckets_), -1);
    next_.assign(n, -1);
    prev_.assign(n, -1);
    bucket_.assign(n, -1);
    mindeg_ = nbuckets_;
    for (I i = 0; i < n; ++i) {
      if (st_[i] != kVar) continue;
      degree_[i] = len_[i];
      if (method_ == Method::amf) {
        std::int64_t d = len_[i];
        score_[i] = std::min<std::int64_t>(d * (d - 1) / 2, 2147483646);
        insert(i, amf_bucket(n, score_[i]));
      } else {
        insert(i, degree_[i]);
      }
    }

    wflg_ = 2;
    I nel = 0;
    while (nel < nactive) {
      // Pivot of least degree.
      while (mindeg_ < nbuckets_ && head_[mindeg_] < 0) ++mindeg_;
      if (mindeg_ >= nbuckets_) break;  // only on a corrupted graph; the closing check reports it
      const I me = head_[mindeg_];
      remove(me);
      I nvpiv = nv_[me];
      nel += nvpiv;
      for (I m = me; m >= 0; m = chain_next_[m]) order.push_back(m);
      nv_[me] = -nvpiv;

      // Form the new element Lme: in place when the pivot has no elements (its variable list
      // only shrinks), else in fresh space at the end of the pool.
      const I elenme = elen_[me];
      std::int64_t degme = 0;
      std::int64_t start, pme;
      if (elenme == 0) {
        start = pme = pe_[me];
        for (std::int64_t q = pe_[me]; q < pe_[me] + len_[me]; ++q) {
          I i = iw_[q];
          if (nv_[i] <= 0) continue;
          degme += nv_[i];
          nv_[i] = -nv_[i];
          iw_[pme++] = i;
          remove(i);
        }
      } else {
        std::int64_t need = len_[me];
        for (I k = 0; k < elenme; ++k) need += len_[iw_[pe_[me] + k]];
        reserve(need);
        start = pme = pfree_;
        for (I k = 0; k <= elenme; ++k) {
          std::int64_t a, b;
          I e = me;
          if (k < elenme) {
            e = iw_[pe_[me] + k];
            a = pe_[e];
            b = a + len_[e];
          } else {
            a = pe_[me] + elenme;
            b = pe_[me] + len_[me];
          }
          for (std::int64_t q = a; q < b; ++q) {
            I i = iw_[q];
            if (nv_[i] <= 0) continue;  // merged, eliminated, postponed, or already in Lme
            degme += nv_[i];
            nv_[i] = -nv_[i];
            iw_[pme++] = i;
            remove(i);
          }
          if (e != me) {
            st_[e] = kGone;  // absorbed into me
            len_[e] = 0;
            w_[e] = 0;
          }
        }
        pfree_ = pme;
      }
      pe_[me] = start;
      len_[me] = static_cast<I>(pme - start);
      elen_[me] = -1;
      st_[me] = kElem;
      // Lme is iw_[start, pme); nothing below moves the pool until the next pivot.
      const std::int64_t lme_begin = start, lme_end = pme;

      // |Le \ Lme| for every element touching Lme, kept in w as wflg + size; an absorbed
      // element keeps w = 0, every other node a positive w. The flag is restarted before the
      // sums could pass the largest integer.
      if (wflg_ > std::numeric_limits<I>::max() - static_cast<std::int64_t>(n) - 2) {
        for (I x = 0; x < n; ++x)
          if (w_[x] != 0) w_[x] = 1;
        wflg_ = 2;
      }
      const I wflg = static_cast<I>(wflg_);
      I wmax = wflg;
      // Raw views for the two scans below, which are the bulk of the work on rows with many
      // entries; no list grows or moves during them.
      I* const iw = iw_.data();
      I* const w = w_.data();
      const I* const nv = nv_.data();
      const I* const degree = degree_.data();
      for (std::int64_t t = lme_begin; t < lme_end; ++t) {
        const I i = iw[t];
        const I nvi = -nv[i];
        const std::int64_t pend = pe_[i] + elen_[i];
        for (std::int64_t q = pe_[i]; q < pend; ++q) {
          const I e = iw[q];
          const I we = w[e];
          if (we >= wflg) {
            w[e] = we - nvi;
          } else if (we != 0) {
            const I v = degree[e] + wflg - nvi;
            w[e] = v;
            wmax = std::max(wmax, v);
          }
        }
      }

      // Degree bounds, pruning, aggressive absorption, mass elimination, hashing.
      std::vector<I>& hashed = hashed_;
      hashed.clear();
      for (std::int64_t t = lme_begin; t < lme_end; ++t) {
        const I i = iw_[t];
        const std::int64_t s = pe_[i];
        const I nel_i = elen_[i];
        std::int64_t q = s;
        std::int64_t deg = 0;
        // Hash of the list: the sum of its entries, wrapping, modulo n (equal lists, equal keys;
        // the division in the width of I is the cheaper one).
        U key = 0;
        std::int64_t clique = 0;  // sum of |Le \ Lme| (|Le \ Lme| - 1) over the other elements
        const std::int64_t eend = s + nel_i, vend = s + len_[i];
        for (std::int64_t k = s; k < eend; ++k) {
          const I e = iw[k];
          const I we = w[e];
          if (we == 0) continue;  // absorbed
          const I dext = we - wflg;
          if (dext > 0) {
            deg += dext;
            clique += static_cast<std::int64_t>(dext) * (dext - 1);
            iw[q++] = e;
            key += static_cast<U>(e);
          } else {
            st_[e] = kGone;  // wholly inside Lme
            len_[e] = 0;
            w[e] = 0;
          }
        }
        const I new_elen = static_cast<I>(q - s) + 1;
        const std::int64_t vstart = q;
        for (std::int64_t k = eend; k < vend; ++k) {
          // A variable list holds variables only (a pivot leaves the lists of its neighbours
          // when they are updated here); nv is negative in Lme and for me, 0 once merged or
          // eliminated, so only the live variables outside Lme pass.
          const I j = iw[k];
          const I nvj = nv[j];
          if (nvj <= 0) continue;
          deg += nvj;
          iw[q++] = j;
          key += static_cast<U>(j);
        }
        if (new_elen == 1 && q == s) {
          // Nothing but me: eliminated together with the pivot.
          const I nvi = -nv_[i];
          degme -= nvi;
          nvpiv += nvi;
          nel += nvi;
          nv_[i] = 0;
          st_[i] = kGone;
          elen_[i] = -1;
          len_[i] = 0;
          for (I m = i; m >= 0; m = chain_next_[m]) order.push_back(m);
          continue;
        }
        // me goes into the element part: the first variable moves to the end.
        if (q > vstart) iw_[q] = iw_[vstart];
        iw_[vstart] = me;
        ++q;
        len_[i] = static_cast<I>(q - s);
        elen_[i] = new_elen;
        ext_[i] = deg;
        clique_[i] = clique;
        degree_[i] = static_cast<I>(std::min<std::int64_t>(degree_[i], deg));
        key = (key + static_cast<U>(me)) % static_cast<U>(n);
        hash_next_[i] = hash_head_[key];
        hash_head_[key] = i;
        save_[i] = key;
        hashed.push_back(i);
      }
      degree_[me] = static_cast<I>(degme);
      wflg_ = static_cast<std::int64_t>(wmax) + 1;

      // Supervariables: equal lists in one hash bucket.
      for (I i0 : hashed) {
        I chain = hash_head_[save_[i0]];
        if (chain < 0) continue;
        hash_head_[save_[i0]] = -1;
        for (I i = chain; i >= 0; i = hash_next_[i]) {
          if (nv_[i] >= 0) continue;  // merged already
          bool marked = false;
          for (I j = hash_next_[i]; j >= 0; j = hash_next_[j]) {
            if (nv_[j] >= 0 || len_[j] != len_[i] || elen_[j] != elen_[i]) continue;
            if (!marked) {
              ++tag_;
              for (std::int64_t k = pe_[i]; k < pe_[i] + len_[i]; ++k) mark_[iw_[k]] = tag_;
              marked = true;
            }
            bool same = true;
            for (std::int64_t k = pe_[j]; k < pe_[j] + len_[j] && same; ++k) same = mark_[iw_[k]] == tag_;
            if (!same) continue;
            nv_[i] += nv_[j];  // both negative
            nv_[j] = 0;
            st_[j] = kGone;
            elen_[j] = -1;
            len_[j] = 0;
            chain_next_[chain_tail_[i]] = j;
            chain_tail_[i] = chain_tail_[j];
          }
        }
      }

      // Final degrees and the buckets; Lme keeps its live members only.
      const std::int64_t nleft = static_cast<std::int64_t>(nactive) - nel;
      std::int64_t q = lme_begin;
      for (std::int64_t t = lme_begin; t < lme_end; ++t) {
        const I i = iw_[t];
        if (nv_[i] >= 0) continue;
        const std::int64_t nvi = -nv_[i];
        iw_[q++] = i;
        std::int64_t deg = std::min<std::int64_t>(degree_[i] + degme - nvi, nleft - nvi);
        deg = std::max<std::int64_t>(deg, 0);
        nv_[i] = static_cast<I>(nvi);
        if (method_ == Method::amf) {
          const std::int64_t di = ext_[i];
          std::int64_t de = (nleft < degme + di) ? nleft - nvi : degme - nvi + di;
          degree_[i] = static_cast<I>(std::max<std::int64_t>(std::min<std::int64_t>(de, n - 1), 0));
          // The fill of eliminating i: its new neighbours outside Lme joined to each other and
          // to Lme, less the pairs that its other elements already join.
          score_[i] = amf_score(n, nleft, degme, nvi, di, clique_[i]);
          insert(i, amf_bucket(n, score_[i]));
        } else {
          degree_[i] = static_cast<I>(std::min<std::int64_t>(deg, n - 1));
          insert(i, degree_[i]);
        }
      }
      len_[me] = static_cast<I>(q - pe_[me]);
      nv_[me] = nvpiv;
    }

    std::int64_t numbered = static_cast<std::int64_t>(order.size());
    for (I d : dense_rows) order.push_back(d);
    if (method_ == Method::qamd) {
      qamd_check_finish(n, numbered + static_cast<std::int64_t>(dense_rows.size()), 0);
    } else if (method_ == Method::amf) {
      amf_check_finish(n, numbered);
    } else if (numbered != n) {
      stop("AMD internal error");
    }
  }

 private:
  void insert(I i, std::int64_t b) {
    if (b >= nbuckets_) b = nbuckets_ - 1;
    if (b < 0) b = 0;
    next_[i] = head_[b];
    prev_[i] = -1;
    if (head_[b] >= 0) prev_[head_[b]] = i;
    head_[b] = i;
    bucket_[i] = b;
    if (b < mindeg_) mindeg_ = b;
  }
  void remove(I i) {
    std::int64_t b = bucket_[i];
    if (b < 0) return;
    if (prev_[i] >= 0) next_[prev_[i]] = next_[i];
    else head_[b] = next_[i];
    if (next_[i] >= 0) prev_[next_[i]] = prev_[i];
    bucket_[i] = -1;
  }

  // Room for `words` more at pfree: compaction first, growth only when that is not enough.
  void reserve(std::int64_t words) {
    if (pfree_ + words <= static_cast<std::int64_t>(iw_.size())) return;
    compact();
    if (pfree_ + words > static_cast<std::int64_t>(iw_.size()))
      iw_.resize(static_cast<std::size_t>(pfree_ + words + n_));
  }

  // Garbage collection: each live list is tagged by writing -(owner+1) over its first word,
  // then the pool is swept once from the front.
  void compact() {
    for (I x = 0; x < n_; ++x) {
      if ((st_[x] == kVar || st_[x] == kElem) && len_[x] > 0) {
        save_[x] = iw_[pe_[x]];
        iw_[pe_[x]] = -(x + 1);
      }
    }
    std::int64_t dst = 0;
    for (std::int64_t src = 0; src < pfree_;) {
      I v = iw_[src];
      if (v < 0) {
        I x = -v - 1;
        iw_[src] = static_cast<I>(save_[x]);
        std::int64_t l = len_[x];
        std::copy(iw_.begin() + src, iw_.begin() + src + l, iw_.begin() + dst);
        pe_[x] = dst;
        dst += l;
        src += l;
      } else {
        ++src;
      }
    }
    pfree_ = dst;
  }

  I n_;
  Method method_;
  std::int64_t qamd_threshold_ = -1;
  std::vector<I> iw_;
  std::int64_t pfree_ = 0;
  std::vector<std::int64_t> pe_;
  std::vector<I> len_, elen_, nv_;
  std::vector<std::int8_t> st_;
  std::vector<I> degree_, w_;
  std::vector<std::int64_t> ext_, clique_, score_, save_;
  std::vector<I> chain_next_, chain_tail_, hash_head_, hash_next_, hashed_;
  std::vector<std::int64_t> mark_;
  std::int64_t tag_ = 0;
  std::int64_t wflg_ = 2;
  std::int64_t nbuckets_ = 0, mindeg_ = 0;
  std::vector<I> head_, next_, prev_;
  std::vector<std::int64_t> bucket_;
};

template <class I>
void run_method(Method m, I n, const Array1<I>& xadj, const Array1<I>& adj, Array1<I>& perm, Array1<I>& iperm,
                std::int64_t qamd_threshold = -1) {
  if (perm.size() < n) perm.resize(n);
  if (iperm.size() < n) iperm.resize(n);
  if (n <= 0) return;
  std::vector<I> order;
  QuotientOrdering<I>(n, m, qamd_threshold).run(xadj, adj, order);
  for (I k = 0; k < n; ++k) {
    perm(k + 1) = order[static_cast<std::size_t>(k)] + 1;
    iperm(order[static_cast<std::size_t>(k)] + 1) = k + 1;
  }
}

}  // namespace

std::int64_t qamd_dense_threshold(std::int64_t n, std::int64_t lenmax, std::int64_t total) {
  if (n <= 0) return 0;
  const std::int64_t mean = total / n;
  std::int64_t thr = (lenmax - mean) / 10 + 10 * mean + 1;
  if (thr >= 0 && (thr > n || thr < 2)) thr = n;
  return thr;
}

void qamd_check_finish(std::int64_t n, std::int64_t numbered, std::int64_t dense_left) {
  if (dense_left > 0) stop(" Internal ERROR quasi dense rows remains");
  if (numbered != n) {
    std::ostringstream s;
    s << "Internal ERROR 2 detected in QAMD\n NEL not equal to N: N, NEL = " << n << ' ' << numbered;
    stop(s.str());
  }
}

void amf_check_finish(std::int64_t n, std::int64_t numbered) {
  if (numbered != n) stop("AMF internal error");
}

// Fill score of variable i after the pivot element (boundary weight dme) is formed: wi its
// weight, di its degree outside the element, si the pairs of those outside neighbours that
// its other elements already join (the sum of |Le \ Lme| (|Le \ Lme| - 1) over them), nleft
// the variables left.
std::int64_t amf_score(std::int64_t n, std::int64_t nleft, std::int64_t dme, std::int64_t wi,
                       std::int64_t di, std::int64_t si) {
  const double Dme = static_cast<double>(dme), Wi = static_cast<double>(wi);
  const double Di = static_cast<double>(di), Si = static_cast<double>(si);
  double s;
  if (nleft < dme + di) {
    const double de = static_cast<double>(nleft) - Wi;
    const double a = de * (de - 1.0) - (Dme - Wi) * (Dme - Wi - 1.0);
    const double b = Di * (Di - 1.0 + 2.0 * Dme) - Si;
    s = std::min(a, b);
  } else {
    s = Di * (Di - 1.0 + 2.0 * Dme) - Si;
  }
  s = std::round(s / (Wi + 1.0));
  constexpr double kTop = 2147483646.0;
  if (s >= kTop) {
    s = std::round(s / static_cast<double>(std::max<std::int64_t>(n, 1)));
    if (s >= kTop) s = kTop;
  }
  if (!(s >= 1.0)) s = 1.0;  // also catches NaN
  return static_cast<std::int64_t>(s);
}

std::int64_t amf_bucket(std::int64_t n, std::int64_t score) {
  if (score <= n) return std::max<std::int64_t>(score, 0);
  std::int64_t b = (score - n) / std::max<std::int64_t>(1, n / 8) + n;
  return std::min(b, n + 1);
}

void skelda_amd(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm) {
  run_method<std::int32_t>(Method::amd, n, xadj, adj, perm, iperm);
}
void skelda_qamd(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                 Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm) {
  run_method<std::int32_t>(Method::qamd, n, xadj, adj, perm, iperm);
}
void skelda_qamd(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                 std::int64_t threshold, Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm) {
  run_method<std::int32_t>(Method::qamd, n, xadj, adj, perm, iperm, std::max<std::int64_t>(threshold, 0));
}
void skelda_amf(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm) {
  run_method<std::int32_t>(Method::amf, n, xadj, adj, perm, iperm);
}
void skelda_amd8(std::int64_t n, const Array1<std::int64_t>& xadj, const Array1<std::int64_t>& adj,
                 Array1<std::int64_t>& perm, Array1<std::int64_t>& iperm) {
  run_method<std::int64_t>(Method::amd, n, xadj, adj, perm, iperm);
}
void skelda_qamd8(std::int64_t n, const Array1<std::int64_t>& xadj, const Array1<std::int64_t>& adj,
                  Array1<std::int64_t>& perm, Array1<std::int64_t>& iperm) {
  run_method<std::int64_t>(Method::qamd, n, xadj, adj, perm, iperm);
}
void skelda_amf8(std::int64_t n, const Array1<std::int64_t>& xadj, const Array1<std::int64_t>& adj,
                 Array1<std::int64_t>& perm, Array1<std::int64_t>& iperm) {
  run_method<std::int64_t>(Method::amf, n, xadj, adj, perm, iperm);
}

}  // namespace mmekit
