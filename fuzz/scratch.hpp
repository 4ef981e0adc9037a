// What the file-reading fuzz targets share: a scratch directory of their own as the current
// directory (the readers work there), the input written to a file in it, and the test matrices.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "mmekit/sparse/ija.hpp"

namespace fuzz {

// Makes a fresh temporary directory the current one; called once from LLVMFuzzerInitialize.
// At exit the scratch files go, and the directory with them unless libFuzzer left a crash,
// leak, timeout or out-of-memory input there (give -artifact_prefix= to put those elsewhere).
inline void enter_scratch_directory() {
  static char name[] = "/tmp/mmekit-fuzz-XXXXXX";
  if (!mkdtemp(name) || chdir(name) != 0) {
    std::perror("scratch directory");
    std::abort();
  }
  std::atexit([] {
    std::error_code ec;
    for (const auto& e : std::filesystem::directory_iterator(name, ec)) {
      const std::string file = e.path().filename().string();
      bool artifact = false;
      for (const char* p : {"crash-", "leak-", "timeout-", "oom-", "slow-unit-"}) artifact = artifact || file.rfind(p, 0) == 0;
      if (!artifact) std::filesystem::remove(e.path(), ec);
    }
    std::filesystem::remove(name, ec);  // fails, and keeps it, when artifacts are left
  });
}

inline void write_file(const char* name, const std::uint8_t* data, std::size_t size) {
  std::FILE* f = std::fopen(name, "wb");
  if (!f || (size > 0 && std::fwrite(data, 1, size, f) != size) || std::fclose(f) != 0) {
    std::perror(name);
    std::abort();
  }
}

// The tridiagonal matrix of order n in upper form (diagonal 4, neighbours -1): the matrix the
// seeds of the factor and order files are made from.
inline mmekit::sparse_ija tridiagonal(std::int32_t n) {
  mmekit::sparse_ija m;
  m.n = n;
  m.nel = n > 0 ? 2 * n - 1 : 0;
  m.ia.assign(n + 1, 0);
  m.ja.assign(m.nel, 0);
  m.a.assign(m.nel, 0.0);
  std::int32_t k = 1;
  for (std::int32_t i = 1; i <= n; ++i) {
    m.ia(i) = k;
    m.ja(k) = i;
    m.a(k++) = 4.0;
    if (i < n) {
      m.ja(k) = i + 1;
      m.a(k++) = -1.0;
    }
  }
  m.ia(n + 1) = k;
  return m;
}

}  // namespace fuzz
