// The parameter file reader and the model record.

#include <algorithm>
#include <fstream>
#include <iostream>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mmekit/model/model.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/tool/text.hpp"

namespace mmekit {

ModelRecord model;

// ---------------------------------------------------------------------------------------------
// Group (co)variances

void GroupCovariances::reset(std::int32_t neff) { blocks_ = Array1<Array2<double>>(std::max(neff, 0)); }

double GroupCovariances::operator()(std::int64_t e, std::int64_t i, std::int64_t j) const {
  const Array2<double>& b = blocks_(e);
  if (b.empty()) {
    MMEKIT_CHECK_INDEX(i, 1, maxcorr);
    MMEKIT_CHECK_INDEX(j, 1, maxcorr);
    return 0.0;
  }
  return b(i, j);
}

double& GroupCovariances::operator()(std::int64_t e, std::int64_t i, std::int64_t j) {
  Array2<double>& b = blocks_(e);
  if (b.empty()) b.resize(maxcorr, maxcorr, 0.0);
  return b(i, j);
}

densem GroupCovariances::block(std::int64_t e, std::int64_t n) const {
  densem g(n, 0.0);
  const Array2<double>& b = blocks_(e);
  if (!b.empty()) {
    for (std::int64_t j = 1; j <= n; ++j)
      for (std::int64_t i = 1; i <= n; ++i) g(i, j) = b(i, j);
  }
  return g;
}

// ---------------------------------------------------------------------------------------------
// Record and file table

void ModelRecord::reset() { *this = ModelRecord(); }

std::fstream* model_unit(std::int32_t unit) {
  auto it = model.files.find(unit);
  if (it == model.files.end() || !it->second.is_open()) return nullptr;
  return &it->second;
}

namespace {

// Opens `name` on `f` for reading (and writing where allowed); a file that does not exist is
// created empty first. False when the file cannot be opened at all.
bool open_unknown(std::fstream& f, const std::string& name) {
  if (f.is_open()) f.close();
  f.clear();
  if (name.empty()) return false;
  f.open(name, std::ios::in | std::ios::out);
  if (f.is_open()) return true;
  f.clear();
  { std::ofstream create(name, std::ios::app); }
  f.open(name, std::ios::in | std::ios::out);
  if (f.is_open()) return true;
  f.clear();
  f.open(name, std::ios::in);
  return f.is_open();
}

// Opens a file of the model under its unit number, or stops.
std::fstream& open_unit(std::int32_t unit, const std::string& name) {
  std::fstream& f = model.files[unit];
  if (!open_unknown(f, name)) stop(free_format("cannot open file:", name));
  return f;
}

std::string_view trim_right(std::string_view s) {
  const auto end = s.find_last_not_of(' ');
  return end == std::string_view::npos ? std::string_view() : s.substr(0, end + 1);
}

std::string_view trim_left(std::string_view s) {
  const auto start = s.find_first_not_of(' ');
  return start == std::string_view::npos ? std::string_view() : s.substr(start);
}

// The lines of the parameter file are split into at most 40 items of at most 40 characters.
constexpr std::int32_t item_capacity = 40;
constexpr std::int32_t item_length = 40;

// The item tables of the reader. As in the splitter, a line with fewer items than the one
// before leaves the older items in place: a blank line where a keyword belongs is compared by
// what the previous line left in item 1.
struct Items {
  std::vector<std::int32_t> x = std::vector<std::int32_t>(item_capacity, 0);
  FixedTexts xc{item_capacity, item_length};
  std::int32_t m = 0;

  void next(std::istream& in) { read_items(in, x, xc, m); }
  std::int32_t num(std::int64_t i) const { return x[static_cast<std::size_t>(i - 1)]; }
  std::string_view item(std::int64_t i) const { return xc(static_cast<std::int32_t>(i)); }
  std::vector<std::int32_t> numbers() const {
    return std::vector<std::int32_t>(x.begin(), x.begin() + std::clamp(m, 0, item_capacity));
  }
};

// Reads the next line and stops with `message` unless its first item is `keyword`.
void expect_keyword(Items& it, std::istream& in, std::string_view keyword, std::string_view message) {
  it.next(in);
  if (it.item(1) != keyword) stop(free_format(message));
}

// The random types by their keywords; only the first 11 characters of an item are compared.
struct RandomKeyword {
  std::string_view word;
  std::int32_t code;
};
constexpr RandomKeyword random_keywords[] = {
    {"diagonal", random_diagonal},     {"add_animal", random_add_animal},
    {"add_an_upg", random_add_an_upg}, {"add_an_upgi", random_add_an_upginb},
    {"add_sire", random_add_sire},     {"par_domin", random_par_domin},
    {"user_file", random_user_file},   {"user_file_i", random_user_file_inv},
    {"add_an_usym", random_add_an_usym},
};

// The code of the keyword in the first 11 characters of `item` (blank padded), 0 if none.
std::int32_t random_type_code(std::string_view item) {
  std::string head(item.substr(0, std::min<std::size_t>(item.size(), 11)));
  head.resize(11, ' ');
  for (const RandomKeyword& k : random_keywords) {
    std::string word(k.word);
    word.resize(11, ' ');
    if (word == head) return k.code;
  }
  return 0;
}

}  // namespace

void read_parameter_file() { read_parameter_file(std::cin); }

void read_parameter_file(std::istream& dialogue) {
  model.reset();

  out() << " name of parameter file?";
  out().flush();
  std::string answer;
  if (!std::getline(dialogue, answer)) answer.clear();
  if (!answer.empty() && answer.back() == '\r') answer.pop_back();
  // The answer fills a field of 250 characters, which is then shifted left.
  std::string_view name = answer;
  name = trim_right(trim_left(name.substr(0, std::min<std::size_t>(name.size(), 250))));
  model.parfile = std::string(name);
  out() << "\n\n" << model.parfile << '\n';

  std::fstream& par = open_unit(parameter_file_unit, model.parfile);
  check_text_file(par, model.parfile);

  Items it;
  it.next(par);
  if (it.m == -1) stop(free_format("INPUT FILE EMPTY"));
  if (it.item(1) != "DATAFILE") stop(free_format("DATAFILE not found"));
  it.next(par);
  model.datafile = std::string(it.item(1));

  expect_keyword(it, par, "NUMBER_OF_TRAITS", "NUMBER_OF_TRAITS not found");
  it.next(par);
  model.ntrait = it.num(1);
  expect_keyword(it, par, "NUMBER_OF_EFFECTS", "NUMBER_OF_EFFECTS not found");
  it.next(par);
  model.neff = it.num(1);

  // The tables by trait are made as soon as the number of traits is proved by the observation
  // line (a line holds at most 40 items), those by effect as the effect lines come in: a wrong
  // count in the file can then never make a huge allocation.
  expect_keyword(it, par, "OBSERVATION(S)", " OBSERVATION(S) not found");
  it.next(par);
  if (it.m != model.ntrait) stop(free_format(model.ntrait, " numbers expected after OBSERVATION(S)"));
  const std::int32_t nt = std::max(model.ntrait, 0);  // negative only if the file ended here
  model.pos_y = Array1<std::int32_t>(nt, 0);
  for (std::int32_t t = 1; t <= nt; ++t) model.pos_y(t) = it.num(t);

  expect_keyword(it, par, "WEIGHT(S)", " WEIGHT(S) not found");
  it.next(par);
  if (it.m > 1) stop(free_format(it.m, " Only one number for WEIGHT"));
  if (it.m == 1) model.pos_weight = it.num(1);

  expect_keyword(it, par, "EFFECTS:", " EFFECTS: not found");
  std::vector<std::int32_t> pos, nlev, type, nest;
  for (std::int32_t e = 1; e <= model.neff; ++e) {
    it.next(par);
    const std::int64_t m = it.m;
    if (m != nt + 2 && m != 2 * std::int64_t{nt} + 2)
      stop(free_format("too few or too many numbers for effect ", e, ". Was ", it.m));
    for (std::int32_t t = 1; t <= nt; ++t) pos.push_back(it.num(t));
    nlev.push_back(it.num(nt + 1));
    const std::string_view word = it.item(nt + 2);
    const std::string_view head = word.substr(0, std::min<std::size_t>(word.size(), 3));
    std::int32_t kind;
    if (head == "cro") {
      kind = effect_cross_classified;
    } else if (head == "cov") {
      kind = effect_covariable;
    } else {
      stop(free_format("Unknown type of effect: ", word));
    }
    type.push_back(kind);
    const bool nested = kind == effect_covariable && m == 2 * std::int64_t{nt} + 2;
    for (std::int32_t t = 1; t <= nt; ++t) nest.push_back(nested ? it.num(nt + 2 + t) : 0);
  }

  const std::int32_t ne = std::max(model.neff, 0);
  model.pos_eff = Array2<std::int32_t>(ne, nt, 0);
  model.nest_pos = Array2<std::int32_t>(ne, nt, 0);
  model.nlev = Array1<std::int32_t>(ne, 0);
  model.effect_type = Array1<std::int32_t>(ne, 0);
  for (std::int32_t e = 1; e <= ne; ++e) {
    const std::size_t k = static_cast<std::size_t>(e - 1);
    for (std::int32_t t = 1; t <= nt; ++t) {
      model.pos_eff(e, t) = pos[k * nt + (t - 1)];
      model.nest_pos(e, t) = nest[k * nt + (t - 1)];
    }
    model.nlev(e) = nlev[k];
    model.effect_type(e) = type[k];
  }
  model.random_type = Array1<std::int32_t>(ne, random_fixed);
  model.ncorr = Array1<std::int32_t>(ne, 0);
  model.random_file = Array1<std::string>(ne, std::string());
  model.g_var.reset(ne);
  model.r_var = densem(nt, 0.0);
  model.r_inv = densem(nt, 0.0);

  expect_keyword(it, par, "RANDOM_RESIDUAL", " RANDOM_RESIDUAL not found");
  {
    std::vector<double> v(static_cast<std::size_t>(nt) * nt);
    if (read_free(par, v) != ReadStatus::ok) stop(free_format("error reading RANDOM_RESIDUAL variances"));
    std::copy(v.begin(), v.end(), model.r_var.data());
  }

  // Random groups, until a line that does not start one (or the end of the file). What
  // follows is left to the option queries.
  for (;;) {
    it.next(par);
    if (it.m < 0 || it.item(1) != "RANDOM_GROUP") break;

    it.next(par);
    if (it.m < 1 || it.m > model.neff) stop(free_format("line after RANDOM_GROUP has too few or too many numbers"));
    const std::vector<std::int32_t> effects = it.numbers();
    if (effects.front() < 1 || effects.back() > model.neff)
      stop(free_format("number ", effects, " after RANDOM_GROUP out of range"));
    for (std::size_t i = 1; i < effects.size(); ++i) {
      if (std::int64_t{effects[i]} != std::int64_t{effects.front()} + static_cast<std::int64_t>(i))
        stop(free_format(" correlated effects:", effects, " should be consecutive"));
    }
    const std::int32_t first = effects.front();
    model.ncorr(first) = it.m;

    expect_keyword(it, par, "RANDOM_TYPE", " RANDOM_TYPE not found");
    it.next(par);
    const std::int32_t code = random_type_code(it.xc.padded(1));
    if (code == 0) {
      stop(free_format("unknown RANDOM-TYPE: ", it.item(1)) + "\n" +
           free_format(" Should be diagonal, add_animal, add_sire") + "\n" +
           free_format(" add_an_upg, add_an_upginb, add_an_usym ") + "\n" +
           free_format("    user_file, user_file_inv, or par_domin"));
    }
    model.random_type(first) = code;

    it.next(par);
    if (it.item(1) != "FILE") stop(free_format(" FILE for random effect ", first, " not found"));
    it.next(par);
    model.random_file(first) = std::string(it.item(1));
    if (code != random_diagonal) open_unit(first + random_file_unit_offset, model.random_file(first));

    expect_keyword(it, par, "(CO)VARIANCES", " (CO)VARIANCES not found");
    const std::int64_t n = std::int64_t{nt} * model.ncorr(first);
    if (n > maxcorr) stop(free_format("maxcorr should be increased to at least ", n));
    std::vector<double> v(static_cast<std::size_t>(n * n));
    if (read_free(par, v) != ReadStatus::ok) stop(free_format("error reading variances for effect ", first));
    for (std::int64_t j = 1; j <= n; ++j)
      for (std::int64_t i = 1; i <= n; ++i) model.g_var(first, i, j) = v[static_cast<std::size_t>((j - 1) * n + (i - 1))];
  }
}

}  // namespace mmekit
