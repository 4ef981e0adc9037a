// OPTION lines of the parameter file, and the printout of the model.

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mmekit/dense/dense.hpp"
#include "mmekit/model/model.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/tool/text.hpp"

namespace mmekit {

namespace {

// Each query reads the parameter file a line at a time into these buffers: a line of up to
// 400 characters, split into at most 1000 items of 50 characters and their values as numbers.
constexpr std::size_t option_line_length = 400;
constexpr std::int32_t option_items = 1000;
constexpr std::int32_t option_item_length = 50;

struct OptionBuffers {
  std::string line;
  FixedTexts items{option_items, option_item_length};
  std::vector<float> numbers = std::vector<float>(option_items, 0.0f);
  std::int32_t m = 0;
};

OptionBuffers& option_buffers() {
  static OptionBuffers buffers;
  return buffers;
}

std::string_view trim_right(std::string_view s) {
  const auto end = s.find_last_not_of(' ');
  return end == std::string_view::npos ? std::string_view() : s.substr(0, end + 1);
}

// The parameter file positioned at its start, or nullptr when it is not open.
std::fstream* rewound_parameter_file() {
  std::fstream* f = model_unit(parameter_file_unit);
  if (f == nullptr) return nullptr;
  f->clear();
  f->seekg(0);
  return f;
}

// Reads and splits the next line. False at the end of the file or on a read failure.
bool next_option_line(std::istream& in, OptionBuffers& b) {
  if (!std::getline(in, b.line)) return false;
  if (!b.line.empty() && b.line.back() == '\r') b.line.pop_back();
  if (b.line.size() > option_line_length) b.line.resize(option_line_length);
  nums2(b.line, b.m, b.numbers, b.items);
  return true;
}

bool is_option_line(const OptionBuffers& b) { return b.m >= 2 && b.items(1) == "OPTION"; }

// Finds the first line "OPTION key ..." and leaves it in the buffers. Returns the number of
// values after the key, or -1.
std::int32_t find_option(std::string_view key, OptionBuffers& b) {
  std::fstream* f = rewound_parameter_file();
  if (f == nullptr) return -1;
  key = trim_right(key.substr(0, std::min<std::size_t>(key.size(), option_item_length)));
  while (next_option_line(*f, b)) {
    if (is_option_line(b) && b.items(2) == key) return b.m - 2;
  }
  return -1;
}

// Item k of the answer's tables; blanks and zeros past the tables.
std::string_view option_item(const OptionBuffers& b, std::int64_t k) {
  return k <= option_items ? b.items(static_cast<std::int32_t>(k)) : std::string_view();
}
float option_number(const OptionBuffers& b, std::int64_t k) {
  return k <= option_items ? b.numbers[static_cast<std::size_t>(k - 1)] : 0.0f;
}

void get_option_impl(std::string_view key, std::int32_t& n, std::span<float> x, std::span<std::string> xc) {
  OptionBuffers& b = option_buffers();
  n = find_option(key, b);
  if (n < 0) return;
  for (std::size_t i = 0; i < xc.size(); ++i) xc[i] = std::string(option_item(b, static_cast<std::int64_t>(i) + 3));
  for (std::size_t i = 0; i < x.size(); ++i) x[i] = option_number(b, static_cast<std::int64_t>(i) + 3);
}

void get_option_r8_impl(std::string_view key, std::int32_t& n, std::span<double> x, std::span<std::string> xc) {
  std::vector<float> x4(x.size(), 0.0f);
  get_option_impl(key, n, x4, xc);
  if (n < 0) return;
  std::copy(x4.begin(), x4.end(), x.begin());
}

}  // namespace

void get_option(std::string_view key, std::int32_t& n) { get_option_impl(key, n, {}, {}); }
void get_option(std::string_view key, std::int32_t& n, std::span<float> x) { get_option_impl(key, n, x, {}); }
void get_option(std::string_view key, std::int32_t& n, std::span<std::string> xc) {
  get_option_impl(key, n, {}, xc);
}
void get_option(std::string_view key, std::int32_t& n, std::span<float> x, std::span<std::string> xc) {
  get_option_impl(key, n, x, xc);
}

void get_option_r8(std::string_view key, std::int32_t& n, std::span<double> x) {
  get_option_r8_impl(key, n, x, {});
}
void get_option_r8(std::string_view key, std::int32_t& n, std::span<double> x, std::span<std::string> xc) {
  get_option_r8_impl(key, n, x, xc);
}

void check_options(std::initializer_list<std::string_view> valid) {
  std::vector<std::string> v(valid.begin(), valid.end());
  check_options(std::span<const std::string>(v));
}

void check_options(std::span<const std::string> valid) {
  std::fstream* f = rewound_parameter_file();
  if (f == nullptr) return;
  OptionBuffers& b = option_buffers();
  while (next_option_line(*f, b)) {
    if (!is_option_line(b)) continue;
    const std::string_view key = b.items(2);
    const bool known = std::any_of(valid.begin(), valid.end(),
                                   [&](const std::string& v) { return trim_right(v) == key; });
    if (!known) {
      stop("\n ***** OPTION NOT valid for this program !!!! \n       \"" + std::string(key) +
           "\"\n       Check for typing errors (e.g. upper/lower cases) in the key");
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Printout

namespace {

std::string_view effect_type_word(std::int32_t type) {
  switch (type) {
    case effect_cross_classified: return "cross-classified";
    case effect_covariable: return "covariable";
    default: return "???";
  }
}

// The format of one line of the effects table: the columns of the effect of each trait follow
// the type word, the levels stand at column 75 and the nesting columns at column 90.
std::string effect_line_format(std::int32_t ntrait) {
  std::string f = "(i2,2x,a19,";
  if (ntrait > 0) {
    std::string count = fformat("(i2)", ntrait);
    count.pop_back();  // the newline
    if (count.find('*') != std::string::npos) count = std::to_string(ntrait);
    f += count + "i3,";
  }
  return f + "t75,i10,t90,20i3)";
}

// Stops with `not_symmetric` or the positive-definiteness text when `a` is not a valid
// (co)variance matrix.
void check_covariance(const densem& a, std::string_view not_symmetric, std::string_view not_positive) {
  if (!is_symmetric(a)) stop(free_format(not_symmetric));
  bool bad = false;
  check_positive_definite(a, not_positive, bad);
  if (bad) stop("");
}

// The type line and the file line of a random group.
void print_random_type(std::int32_t code, const std::string& file) {
  constexpr std::string_view type_format = "(' Type of Random Effect:',t30,a)";
  constexpr std::string_view type_format2 = "(' Type of Random Effect:',t30,a,a)";
  switch (code) {
    case random_diagonal: out() << fformat(type_format, "diagonal"); break;
    case random_add_animal: out() << fformat(type_format, "additive animal"); break;
    case random_add_an_upg:
      out() << fformat(type_format2, "additive animal", " with unknown parent groups");
      break;
    case random_add_an_upginb:
      out() << fformat(type_format2, "additive animal", " with unknown parent groups and inbreeding");
      break;
    case random_add_sire: out() << fformat(type_format, "additive sire"); break;
    case random_par_domin: out() << fformat(type_format, "parental dominance"); break;
    case random_user_file: out() << fformat(type_format, "user defined from file"); break;
    case random_user_file_inv: out() << fformat(type_format, "user defined from file and inverted"); break;
    case random_add_an_usym: out() << fformat(type_format, "additive animal unsymmetric"); break;
    default: break;
  }

  // The name is written in full, as the 250 characters of its field.
  std::string name = file.substr(0, std::min<std::size_t>(file.size(), 250));
  name.resize(250, ' ');
  switch (code) {
    case random_diagonal: break;
    case random_add_animal: out() << fformat("(' Pedigree File:',t30,a)", name); break;
    case random_add_an_upg:
    case random_add_an_upginb:
    case random_add_sire:
    case random_par_domin:
    case random_add_an_usym: out() << fformat("(' Pedigree File: ',t30,a)", name); break;
    case random_user_file:
    case random_user_file_inv: out() << fformat("(' User File: ',t30,a)", name); break;
    default: stop(free_format("unknown RANDOM-TYPE"));
  }
}

}  // namespace

void print_parameter_file(std::string_view title) {
  const ModelRecord& md = model;
  const std::int32_t nt = std::max(md.ntrait, 0);
  const std::int32_t ne = std::max(md.neff, 0);

  print_free("    ", title);
  out() << '\n';
  out() << fformat("(' Parameter file:',t30,a)", trim_right(md.parfile));
  out() << fformat("(' Data file:',t30,a)", trim_right(md.datafile));
  out() << fformat("(' Number of Traits',t30,i2)", md.ntrait);
  out() << fformat("(' Number of Effects',t30,i2)", md.neff);
  out() << fformat("(' Position of Observations',t30,20i3)", md.pos_y);
  out() << fformat("(' Position of Weight (1)',t30,20i3)", md.pos_weight);
  out() << fformat("(' Value of Missing Trait/Observation',t40,i8)", md.miss);

  out() << "\nEFFECTS\n";
  out() << fformat("(a,t25,a,t45,a)", " #  type", "position (2)", "levels   [positions for nested]");
  const Format effect_format(effect_line_format(nt));
  for (std::int32_t e = 1; e <= ne; ++e) {
    FormatList items(e, effect_type_word(md.effect_type(e)));
    for (std::int32_t t = 1; t <= nt; ++t) items.add(md.pos_eff(e, t));
    items.add(md.nlev(e));
    if (nt > 0 && md.nest_pos(e, 1) != 0) {
      for (std::int32_t t = 1; t <= nt; ++t) items.add(md.nest_pos(e, t));
    }
    out() << effect_format.write(items);
  }

  out() << "\n Residual (co)variance Matrix\n";
  check_covariance(md.r_var, "R Matrix not symmetric", "R  Matrix not positive definite");
  print_matrix(md.r_var, {}, "(20g12.5)");

  for (std::int32_t e = 1; e <= ne; ++e) {
    const std::int32_t nc = md.ncorr(e);
    if (nc <= 0) continue;
    out() << '\n';
    if (nc == 1) {
      out() << fformat("(' Random Effect(s)',t20,20i3)", e);
    } else {
      std::vector<std::int64_t> effects;
      for (std::int32_t k = 0; k < nc; ++k) effects.push_back(std::int64_t{e} + k);
      out() << fformat("(' correlated random effects',t30,20i3)", effects);
    }
    print_random_type(md.random_type(e), md.random_file(e));

    const std::int64_t n = std::int64_t{nt} * nc;
    if (n > maxcorr) stop(free_format("maxcorr should be increased to at least ", n));
    const densem g = md.g_var.block(e, n);
    check_covariance(g, "G Matrix not symmetric", "G  Matrix not positive definite");
    out() << " trait   effect    (CO)VARIANCES\n";
    const Format row_format("(i3,i8,2x,50g12.4)");
    for (std::int32_t k = 0; k < nc; ++k) {
      for (std::int32_t t = 1; t <= nt; ++t) {
        const std::int64_t r = std::int64_t{k} * nt + t;
        FormatList items(t, std::int64_t{e} + k);
        for (std::int64_t j = 1; j <= n; ++j) items.add(g(r, j));
        out() << row_format.write(items);
      }
    }
  }

  out() << "\n REMARKS\n";
  print_free(" (1) Weight position 0 means no weights utilized");
  print_free(" (2) Effect positions of 0 for some effects and traits means that such");
  print_free("     effects are missing for specified traits");
  out() << '\n';
}

}  // namespace mmekit
