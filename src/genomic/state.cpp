#include "mmekit/genomic/state.hpp"

#include <sys/mman.h>

#include <cmath>
#include <cstdint>

#include "mmekit/support/stop.hpp"

namespace mmekit {

GenomicState genomic;

GenomicOptions::GenomicOptions() : mats(genomic_matrix_count) {
  struct Row {
    GenomicMatrix m;
    std::int32_t which;
    bool create;
    const char* file;
    const char* description;
  };
  static const Row rows[] = {
      {gm_G, 1, true, "G", "Genomic Matrix"},
      {gm_Gi, 9, true, "Gi", "Inv. Genomic Matrix"},
      {gm_A22, 3, true, "A22", "Rel. Matrix A22"},
      {gm_A22i, 9, true, "A22i", "Inv. Rel. Matrix A22"},
      {gm_GmA22, 0, false, "GmA22", "Genomic - A22 Matrix"},
      {gm_GimA22i, 0, true, "GimA22i", "Inv. Genomic- A22 Matrix"},
  };
  for (const Row& r : rows) {
    MatrixOption& o = mats(r.m);
    o.which = r.which;
    o.create = r.create;
    o.file = r.file;
    o.storage = "densem";
    o.description = r.description;
  }
}

namespace {
// Asks for huge pages on a large block that is about to be filled, and has the kernel supply
// all its pages in one call: one fault per 4 KiB page costs more than the filling itself.
// Both are advice; a kernel without them leaves the block as it is.
void prepare_large_block(void* data, std::size_t bytes) {
  constexpr std::uintptr_t huge = std::uintptr_t{1} << 21;
  if (bytes < 16 * huge) return;
  const std::uintptr_t a = reinterpret_cast<std::uintptr_t>(data);
  const std::uintptr_t from = (a + huge - 1) & ~(huge - 1), to = (a + bytes) & ~(huge - 1);
  if (to <= from) return;
  ::madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE);
#ifdef MADV_POPULATE_WRITE
  ::madvise(reinterpret_cast<void*>(from), to - from, MADV_POPULATE_WRITE);
#endif
}
}  // namespace

void GenotypeMatrix::resize(std::int64_t ngen, std::int64_t nsnp, bool real_form, double fill) {
  clear();
  rows_ = ngen > 0 ? ngen : 0;
  cols_ = nsnp > 0 ? nsnp : 0;
  real_ = real_form;
  const std::size_t count = static_cast<std::size_t>(rows_) * static_cast<std::size_t>(cols_);
  if (real_) {
    reals_.reserve(count);
    prepare_large_block(reals_.data(), count * sizeof(double));
    reals_.assign(count, fill);
  } else {
    if (!(fill >= 0 && fill <= 127 && fill == std::floor(fill))) stop(" GenotypeMatrix: not a genotype code");
    codes_.reserve(count);
    prepare_large_block(codes_.data(), count);
    codes_.assign(count, static_cast<std::int8_t>(fill));
  }
}

void GenotypeMatrix::resize_codes_for_overwrite(std::int64_t ngen, std::int64_t nsnp) {
  clear();
  rows_ = ngen > 0 ? ngen : 0;
  cols_ = nsnp > 0 ? nsnp : 0;
  const std::size_t count = static_cast<std::size_t>(rows_) * static_cast<std::size_t>(cols_);
  codes_.reserve(count);
  prepare_large_block(codes_.data(), count);
  codes_.resize(count);
}

void GenotypeMatrix::clear() {
  codes_ = {};
  reals_ = {};
  rows_ = cols_ = 0;
  real_ = false;
}

void GenotypeMatrix::set(std::int64_t i, std::int64_t j, double value) {
  MMEKIT_CHECK_INDEX(i, 1, rows_);
  MMEKIT_CHECK_INDEX(j, 1, cols_);
  const std::size_t k = static_cast<std::size_t>((i - 1) * cols_ + (j - 1));
  if (real_) {
    reals_[k] = value;
    return;
  }
  if (!(value >= 0 && value <= 127 && value == std::floor(value))) stop(" GenotypeMatrix: not a genotype code");
  codes_[k] = static_cast<std::int8_t>(value);
}

void GenomicState::reset() { *this = GenomicState(); }

}  // namespace mmekit
