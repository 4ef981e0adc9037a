// Template parts of free_format.hpp.
#pragma once

#include <type_traits>

#include "mmekit/support/output.hpp"

namespace mmekit {

template <class... Args>
void print_free(const Args&... args) {
  out() << free_format_list(FormatList(args...)) << '\n';
}

namespace detail {
template <class T>
void add_read_target(std::vector<ReadTarget>& t, T& v) {
  if constexpr (std::is_same_v<T, std::int32_t> || std::is_same_v<T, std::int64_t> ||
                std::is_same_v<T, float> || std::is_same_v<T, double> ||
                std::is_same_v<T, std::string>) {
    t.emplace_back(&v);
  } else {
    for (auto& e : v) t.emplace_back(&e);
  }
}
}  // namespace detail

template <class... Args>
ReadStatus read_free(std::istream& in, Args&... args) {
  std::vector<ReadTarget> targets;
  (detail::add_read_target(targets, args), ...);
  return read_free_list(in, targets);
}

}  // namespace mmekit
