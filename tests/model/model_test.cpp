// The parameter file reader, the option queries and the printout of the model.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "common/files.hpp"
#include "common/stop.hpp"
#include "mmekit/model/model.hpp"
#include "mmekit/support/output.hpp"

namespace mmekit {
namespace {

using test::write_file;
using Ints = std::vector<std::int32_t>;
using Texts = std::vector<std::string>;

// Reads the parameter file `name` through the dialogue; returns what was printed after the echo.
std::string read_named(const std::string& name, bool stops = true) {
  std::istringstream dialogue(name + "\n");
  const test::StopSeen seen = test::run_to_stop([&] { read_parameter_file(dialogue); });
  EXPECT_EQ(seen.stopped, stops) << seen.printed;
  const std::string echo = " name of parameter file?\n\n" + name + "\n";
  EXPECT_EQ(seen.printed.substr(0, echo.size()), echo);
  return seen.printed.substr(std::min(seen.printed.size(), echo.size()));
}

// Reads `text` as the parameter file "params.txt", expecting a stop or not.
std::string read_model(const std::string& text, bool stops = false) {
  write_file("params.txt", text);
  return read_named("params.txt", stops);
}
std::string reader_stop(const std::string& text) { return read_model(text, true); }

std::string replace_once(std::string text, const std::string& from, const std::string& to) {
  const auto at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

Texts split_lines(const std::string& text) {
  Texts lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The lines printed by print_parameter_file(title), expecting a stop or not.
Texts printout(const std::string& title, bool stops = false) {
  const test::StopSeen seen = test::run_to_stop([&] { print_parameter_file(title); });
  EXPECT_EQ(seen.stopped, stops);
  return split_lines(seen.printed);
}

// Two traits, five effects: a cross-classified effect, a covariable nested in it, the animal
// and maternal effects as one correlated group with a pedigree file, and a diagonal effect.
const std::string full_model =
    "# two-trait test model\nDATAFILE\ndata.txt\nNUMBER_OF_TRAITS\n2\nNUMBER_OF_EFFECTS\n5\n"
    "OBSERVATION(S)\n6 7\nWEIGHT(S)\n\nEFFECTS:   # positions, levels, type\n"
    "1 1 4 cross\n2 2 4 cov 1 1\n   3 3 12 cross   # animal\n3 0 12 cross      # maternal, first trait only\n"
    "4 4 9 cross\nRANDOM_RESIDUAL\n40 10\n10 30\n"
    "RANDOM_GROUP\n3 4\nRANDOM_TYPE\nadd_animal\nFILE\nped.txt\n"
    "(CO)VARIANCES\n20 5 -3 1\n5 15 2 -1\n-3 2 8 1\n1 -1 1 6\n"
    "RANDOM_GROUP\n5\nRANDOM_TYPE\ndiagonal\nFILE\n\n(CO)VARIANCES\n4,1 1\n3 this rest is skipped\n"
    "OPTION alpha_beta 0.95 0.05\nOPTION solv_method FSPAK\nOPTION tunedG 2\nOPTION tunedG 4\nOPTION\n"
    "   OPTION indented 1 2\nOPTION Case 1\nOPTION many 1 2 3 4 5\nOPTION empty\nOPTION text abc 1.5e2 x7\n"
    "OPTION hash 1 # 2\nOPTIONS misspelt 3\n";

TEST(ParameterFile, ReadsCompleteModel) {
  std::filesystem::remove("ped.txt");
  write_file("params.txt", full_model);
  std::istringstream dialogue("   params.txt   \n");  // the name is shifted left
  CaptureOutput cap;
  read_parameter_file(dialogue);
  EXPECT_EQ(cap.text(), " name of parameter file?\n\nparams.txt\n");
  // The layout of the arrays, first index fastest; the scalars and blocks through the printout.
  EXPECT_EQ(model.pos_eff.vec(), (Ints{1, 2, 3, 3, 4, 1, 2, 3, 0, 4}));
  EXPECT_EQ(model.nlev.vec(), (Ints{4, 4, 12, 12, 9}));
  EXPECT_EQ(model.effect_type.vec(), (Ints{0, 1, 0, 0, 0}));
  EXPECT_EQ(model.nest_pos.vec(), (Ints{0, 1, 0, 0, 0, 0, 1, 0, 0, 0}));
  EXPECT_EQ(model.random_type.vec(), (Ints{1, 1, 3, 1, 2}));
  EXPECT_EQ(model.ncorr.vec(), (Ints{0, 0, 2, 0, 1}));
  // A blank line as the name leaves the item of the line before it: the keyword.
  EXPECT_EQ(model.random_file.vec(), (Texts{"", "", "ped.txt", "", "FILE"}));
  EXPECT_EQ(model.r_inv.rows() * 10 + model.r_inv.cols(), 22);
  // g_var(e, i, j): the block of a group is held by its first effect only.
  EXPECT_EQ(std::make_tuple(model.g_var(3, 4, 1), model.g_var(3, 5, 5), model.g_var(4, 1, 1)), std::make_tuple(1.0, 0.0, 0.0));
  // The pedigree file did not exist: it is created empty and kept open as unit 3 + 50. The
  // diagonal group opens no file.
  EXPECT_TRUE(test::file_exists("ped.txt") && test::read_file("ped.txt").empty());
  EXPECT_TRUE(model_unit(53) && !model_unit(55) && model_unit(parameter_file_unit));
  // What the example's printout lacks: an absent effect, other decades, a diagonal group.
  const Texts lines = printout("TEST MODEL");
  ASSERT_EQ(lines.size(), 42u);
  EXPECT_EQ(lines[15], " 4     cross-classified  3  0" + std::string(53, ' ') + "12");
  EXPECT_EQ(Texts(lines.begin() + 26, lines.begin() + 36),
            (Texts{"  1       3     20.00       5.000      -3.000       1.000    ",
                   "  2       3     5.000       15.00       2.000      -1.000    ",
                   "  1       4    -3.000       2.000       8.000       1.000    ",
                   "  2       4     1.000      -1.000       1.000       6.000    ", "",
                   " Random Effect(s)    5", " Type of Random Effect:      diagonal", " trait   effect    (CO)VARIANCES",
                   "  1       5     4.000       1.000    ", "  2       5     1.000       3.000    "}));
}

TEST(ParameterFile, FailureMessages) {
  const std::string known_types =
      "  Should be diagonal, add_animal, add_sire\n  add_an_upg, add_an_upginb, add_an_usym \n"
      "     user_file, user_file_inv, or par_domin\n";
  std::string items;
  for (int i = 1; i <= 41; ++i) items += std::to_string(i) + " ";
  // {text replaced in full_model, its replacement, message}
  const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
      {"DATAFILE\n", "DATA_FILE\n", " DATAFILE not found\n"},
      {"NUMBER_OF_TRAITS\n", "number_of_traits\n", " NUMBER_OF_TRAITS not found\n"},
      {"NUMBER_OF_EFFECTS\n", "NUMBER_OF_EFFECTS:\n", " NUMBER_OF_EFFECTS not found\n"},
      {"OBSERVATION(S)\n", "OBSERVATIONS\n", "  OBSERVATION(S) not found\n"},
      {"6 7\n", "6\n", " 2  numbers expected after OBSERVATION(S)\n"},
      {"6 7\n", "6 7 8\n", " 2  numbers expected after OBSERVATION(S)\n"},
      {"WEIGHT(S)\n", "WEIGHTS\n", "  WEIGHT(S) not found\n"},
      {"WEIGHT(S)\n\n", "WEIGHT(S)\n8 9\n", " 2  Only one number for WEIGHT\n"},
      {"EFFECTS:", "EFFECTS", "  EFFECTS: not found\n"},
      {"3 0 12 cross ", "3 0 12 ", " too few or too many numbers for effect  4 . Was  3\n"},
      {"4 4 9 cross\n", "4 4 9 fixed\n", " Unknown type of effect:  fixed\n"},
      {"RANDOM_RESIDUAL\n", "RANDOM_RESIDUALS\n", "  RANDOM_RESIDUAL not found\n"},
      {"10 30\n", "10 x30\n", " error reading RANDOM_RESIDUAL variances\n"},
      {"GROUP\n3 4\n", "GROUP\n\n", " line after RANDOM_GROUP has too few or too many numbers\n"},
      {"GROUP\n3 4\n", "GROUP\n0 1\n", " number  0 1  after RANDOM_GROUP out of range\n"},
      {"GROUP\n3 4\n", "GROUP\n5 6\n", " number  5 6  after RANDOM_GROUP out of range\n"},
      {"GROUP\n3 4\n", "GROUP\n2 4\n", "  correlated effects: 2 4  should be consecutive\n"},
      {"RANDOM_TYPE\nadd_animal", "RANDOM-TYPE\nadd_animal", "  RANDOM_TYPE not found\n"},
      {"add_animal\n", "add_an_upgx\n", " unknown RANDOM-TYPE:  add_an_upgx\n" + known_types},
      {"FILE\nped.txt", "FILES\nped.txt", "  FILE for random effect  3  not found\n"},
      {"(CO)VARIANCES\n20", "(CO)VARIANCE\n20", "  (CO)VARIANCES not found\n"},
      {"1 -1 1 6\n", "1 -1 1 six\n", " error reading variances for effect  3\n"},
      {"4,1 1\n3 this rest is skipped\nOPTION", "4 1 1\n", " error reading variances for effect  5\n"},
      {"ped.txt", "no_such_dir/ped.txt", " cannot open file: no_such_dir/ped.txt\n"},
      // A line of more than 40 items is refused by the splitter.
      {"6 7\n", items + "\n", " Error in nums splitting string starting: \n " + items.substr(0, 80) + "\n into m: 40 items\n"},
      // A blank number line keeps the last number decoded (0, from the name "data.txt"); a
      // number line left out makes the keyword after it the number, and the next one fails.
      {"NUMBER_OF_TRAITS\n2\n", "NUMBER_OF_TRAITS\n\n", " 0  numbers expected after OBSERVATION(S)\n"},
      {"NUMBER_OF_TRAITS\n2\n", "NUMBER_OF_TRAITS\n", " NUMBER_OF_EFFECTS not found\n"},
      // A comment where the weight line belongs is skipped: the next line is the weight line.
      {"WEIGHT(S)\n\n", "WEIGHT(S)\n# no weights\n", "  EFFECTS: not found\n"},
  };
  for (const auto& [from, to, message] : cases) EXPECT_EQ(reader_stop(replace_once(full_model, from, to)), message) << to;
  // Empty files, one that does not exist yet (it is created), and one that cannot be made.
  EXPECT_EQ(reader_stop(""), " INPUT FILE EMPTY\n");
  std::filesystem::remove("absent.txt");
  EXPECT_EQ(read_named("absent.txt"), " INPUT FILE EMPTY\n");
  EXPECT_TRUE(test::file_exists("absent.txt"));
  EXPECT_EQ(read_named("no_such_dir/params.txt"), " cannot open file: no_such_dir/params.txt\n");
  // The file ends where a keyword or a number line is due.
  const auto cut_before = [](const char* text) { return full_model.substr(0, full_model.find(text)); };
  EXPECT_EQ(reader_stop("DATAFILE\ndata.txt\n"), " NUMBER_OF_TRAITS not found\n");
  EXPECT_EQ(reader_stop(cut_before("EFFECTS:")), "  EFFECTS: not found\n");
  EXPECT_EQ(reader_stop(cut_before("4 4 9")), " too few or too many numbers for effect  5 . Was  -1\n");
  EXPECT_EQ(reader_stop(cut_before("-3 2 8")), " error reading variances for effect  3\n");
  // The text file check runs on the first line, with the file's name.
  EXPECT_EQ(reader_stop("DATAFILE\tx\n"),
            "\n TAB was found, Use spaces to separeate columns in file: \"params.txt\"\n"
            " Convert to TAB to spaces, e.g. \"expand file > newfile\"\n");
}

// Five traits, one user_file group of `group` effects out of `neff`, block diag(1, ..., 5 x group).
std::string five_trait_model(int neff, int group) {
  std::string s = "DATAFILE\nd\nNUMBER_OF_TRAITS\n5\nNUMBER_OF_EFFECTS\n" + std::to_string(neff) +
                  "\nOBSERVATION(S)\n1 2 3 4 5\nWEIGHT(S)\n\nEFFECTS:\n";
  for (int e = 1; e <= neff; ++e) s += "6 6 6 6 6 10 cross\n";
  s += "RANDOM_RESIDUAL\n1 0 0 0 0 0 1 0 0 0 0 0 1 0 0 0 0 0 1 0 0 0 0 0 1\nRANDOM_GROUP\n";
  for (int e = 1; e <= group; ++e) s += std::to_string(e) + " ";
  s += "\nRANDOM_TYPE\nuser_file\nFILE\nuser.txt\n(CO)VARIANCES\n";
  for (int i = 1; i <= 5 * group; ++i)
    for (int j = 1; j <= 5 * group; ++j) s += std::to_string(i == j ? i : 0) + (j == 5 * group ? "\n" : " ");
  return s;
}

TEST(ParameterFile, EdgeCases) {
  // No random group: the reader ends at the end of the file; every effect is fixed.
  read_model(full_model.substr(0, full_model.find("RANDOM_GROUP")));
  EXPECT_EQ(std::make_tuple(model.random_type.vec(), model.ncorr.vec()), std::make_tuple(Ints(5, 1), Ints(5, 0)));
  // Residual in any layout, rest of line skipped; no nesting on "cross 8 9"; first word of a name.
  std::string s = replace_once(full_model, "40 10\n10 30\n", "40\n\n10, 10\n30 junk 1 2\n");
  s = replace_once(s, "1 1 4 cross\n", "1 1 4 cross 8 9\n");
  s = replace_once(s, "data.txt\n", "my data.txt\n");
  s = replace_once(s, "WEIGHT(S)\n\n", "WEIGHT(S)\n# no weights\n  8  # weight column\n");
  read_model(s);
  EXPECT_EQ(model.r_var.vec(), (std::vector<double>{40, 10, 10, 30}));
  EXPECT_EQ(std::make_tuple(model.nest_pos(1, 1), model.nest_pos(1, 2), model.datafile, model.pos_weight),
            std::make_tuple(0, 0, std::string("my"), 8));
  // A blank name line keeps the keyword as the name.
  read_model(replace_once(full_model, "data.txt\n", "\n"));
  EXPECT_EQ(model.datafile, "DATAFILE");
  // maxcorr: 5 traits x 10 effects is the largest group; 11 effects are refused.
  read_model(five_trait_model(11, 10));
  EXPECT_EQ(model.ncorr(1), 10);
  EXPECT_EQ(std::make_tuple(model.g_var(1, 50, 50), model.g_var(1, 49, 50), model.g_var(1, 1, 1)),
            std::make_tuple(50.0, 0.0, 1.0));
  EXPECT_EQ(reader_stop(five_trait_model(11, 11)), " maxcorr should be increased to at least  55\n");
  // A line after the residual that is not RANDOM_GROUP ends the reader; the option is found.
  read_model(replace_once(full_model, "RANDOM_GROUP\n5\n", "OPTION between 1\nRANDOM_GROUP\n5\n"));
  EXPECT_EQ(model.ncorr(3) * 10 + model.ncorr(5), 20);
  std::int32_t n = 0;
  std::vector<float> x(1);
  get_option("between", n, x);
  EXPECT_EQ(std::make_tuple(n, x[0]), std::make_tuple(1, 1.0f));
  Texts one_text(1);
  get_option("solv_method", n, std::span<std::string>(one_text));  // a text answer only
  EXPECT_EQ(std::make_tuple(n, one_text[0]), std::make_tuple(1, std::string("FSPAK")));
  // A second reading starts from an empty record and closes the files of the first.
  read_model(full_model.substr(0, full_model.find("RANDOM_GROUP")));
  EXPECT_EQ(model_unit(53), nullptr);
}

TEST(ParameterFile, RandomTypesByTheirFirstElevenCharactersAndTheirPrintout) {
  // {keyword, code, printed type, file line}; the codes and texts are those of the layout.
  const std::string pedigree = " Pedigree File:              ped.txt", user = " User File:                  ped.txt";
  const std::tuple<std::string, std::int32_t, std::string, std::string> types[] = {
      {"add_animal", 3, "additive animal", pedigree}, {"add_sire", 6, "additive sire", pedigree},
      {"add_an_upg", 4, "additive animal with unknown parent groups", pedigree},
      {"add_an_upgi", 5, "additive animal with unknown parent groups and inbreeding", pedigree},
      {"add_an_upginb", 5, "additive animal with unknown parent groups and inbreeding", pedigree},
      {"par_domin", 7, "parental dominance", pedigree}, {"user_file", 8, "user defined from file", user},
      {"user_file_inv", 9, "user defined from file and inverted", user},
      {"add_an_usym", 10, "additive animal unsymmetric", pedigree}, {"diagonal", 2, "diagonal", " trait   effect    (CO)VARIANCES"}};
  for (const auto& [word, code, type, file] : types) {
    read_model(replace_once(full_model, "add_animal\n", word + "\n"));
    EXPECT_EQ(model.random_type(3), code) << word;
    const Texts lines = printout("T");
    ASSERT_GT(lines.size(), 25u);
    EXPECT_EQ(lines[23], " Type of Random Effect:      " + type) << word;
    EXPECT_EQ(lines[24], file + (code == 2 ? "" : std::string(243, ' '))) << word;
  }
}

TEST(Options, GetOption) {
  read_model(full_model);
  std::int32_t n = 99;
  std::vector<float> x(3, -1.0f);
  Texts xc(4, "old");
  // Absent keys, a lone OPTION, a misspelt OPTION and a different case: -1, arrays untouched.
  for (const char* key : {"absent", "", "misspelt", "case", "OPTION"}) {
    get_option(key, n, x, xc);
    EXPECT_EQ(n, -1) << key;
  }
  EXPECT_EQ(std::make_tuple(x, xc), std::make_tuple(std::vector<float>(3, -1.0f), Texts(4, "old")));
  get_option("Case", n);
  EXPECT_EQ(n, 1);
  // No values: n = 0 and the arrays get the blanks and zeros of the tables.
  get_option("empty", n, x, xc);
  EXPECT_EQ(std::make_tuple(n, x, xc), std::make_tuple(0, std::vector<float>(3, 0.0f), Texts(4, "")));
  // The first of two lines counts; trailing blanks of the key do not.
  get_option("tunedG  ", n, x);
  EXPECT_EQ(std::make_tuple(n, x), std::make_tuple(1, std::vector<float>{2, 0, 0}));
  // An indented line; the library's 1-based arrays serve as well.
  Array1<float> xa(3, -1.0f);
  get_option("indented", n, xa);
  EXPECT_EQ(std::make_tuple(n, xa.vec()), std::make_tuple(2, std::vector<float>{1, 2, 0}));
  // More values than room, and more room than values.
  Texts wide(7, "old");
  get_option("many", n, x, wide);
  EXPECT_EQ(std::make_tuple(n, x, wide), std::make_tuple(5, std::vector<float>{1, 2, 3}, Texts{"1", "2", "3", "4", "5", "", ""}));
  // Texts are kept; a text that is not a number is 0; "#" is an ordinary item.
  get_option("text", n, x, xc);
  EXPECT_EQ(std::make_tuple(n, x, xc), std::make_tuple(3, std::vector<float>{0, 150, 0}, Texts{"abc", "1.5e2", "x7", ""}));
  get_option("hash", n, xc);
  EXPECT_EQ(std::make_tuple(n, xc), std::make_tuple(3, Texts{"1", "#", "2", ""}));
  // r8 values carry single precision only.
  std::vector<double> d(2);
  get_option_r8("alpha_beta", n, d);
  EXPECT_EQ(std::make_tuple(n, d), std::make_tuple(2, std::vector<double>{0.95f, 0.05f}));
  // A line is read into 400 characters: the 195th value stands in column 400, the rest is lost.
  std::string cut_line = "OPTION cut ";
  for (int i = 0; i < 250; ++i) cut_line += std::to_string(1 + i % 9) + " ";
  read_model(full_model + cut_line + "\n");
  std::vector<float> last(200, -1.0f);
  get_option("cut", n, last);
  EXPECT_EQ(std::make_tuple(n, last[194], last[195]), std::make_tuple(195, static_cast<float>(1 + 194 % 9), 0.0f));
}

TEST(Options, CheckOptions) {
  read_model(full_model);
  const std::vector<std::string> all = {"alpha_beta", "solv_method", "tunedG", "indented  ", "Case",
                                        "many",       "empty",       "text",   "hash"};
  CaptureOutput cap;
  check_options(all);  // lines "OPTION" alone and "OPTIONS ..." are not looked at
  EXPECT_EQ(cap.text(), "");
  auto lower = all;
  lower[4] = "case";
  EXPECT_EQ(test::stop_output([&] { check_options(lower); }),
            "\n ***** OPTION NOT valid for this program !!!! \n       \"Case\"\n"
            "       Check for typing errors (e.g. upper/lower cases) in the key\n");
  EXPECT_EQ(split_lines(test::stop_output([] { check_options({"alpha_beta"}); }))[2], "       \"solv_method\"");
  // Before a parameter file is read every key is absent and every option list is valid.
  model.reset();
  std::int32_t n = 5;
  std::vector<float> x{3.0f};
  get_option("tunedG", n, x);
  EXPECT_EQ(std::make_tuple(n, x[0]), std::make_tuple(-1, 3.0f));
  check_options({"anything"});
  EXPECT_EQ(cap.text(), "");
}

TEST(Printout, ChecksOfTheMatrices) {
  read_model(full_model);
  model.r_var(1, 2) = 10.000000000000002;
  EXPECT_EQ(printout("T", true).back(), " R Matrix not symmetric");
  read_model(replace_once(full_model, "40 10\n10 30\n", "1 2\n2 1\n"));
  EXPECT_EQ(printout("T", true).back(), " R  Matrix not positive definite");
  read_model(full_model);
  model.g_var(3, 4, 1) = 1.5;
  EXPECT_EQ(printout("T", true).back(), " G Matrix not symmetric");
  read_model(replace_once(full_model, "4,1 1\n3", "4 1 1 -3"));
  EXPECT_EQ(printout("T", true).back(), " G  Matrix not positive definite");
  // Only a record changed by hand can hold a type code that no keyword gives.
  read_model(full_model);
  model.random_type(3) = 1;
  const Texts lines = printout("T", true);
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(Texts(lines.end() - 2, lines.end()), (Texts{" correlated random effects     3  4", " unknown RANDOM-TYPE"}));
}

TEST(Example, PrintsTheExampleModel) {
  const std::string dir = std::string(MMEKIT_SOURCE_DIR) + "/examples/";
  for (const char* f : {"model_params.txt", "model_data.txt", "model_pedigree.txt"})
    std::filesystem::copy_file(dir + f, f, std::filesystem::copy_options::overwrite_existing);
  std::istringstream dialogue("model_params.txt\n");
  CaptureOutput cap;
  read_parameter_file(dialogue);
  print_parameter_file("MODEL OF THE EXAMPLE");
  EXPECT_EQ(split_lines(cap.text()), split_lines(test::read_file(dir + "model_printout.txt")));
  EXPECT_EQ(test::read_file("model_pedigree.txt"), test::read_file(dir + "model_pedigree.txt"));
}

}  // namespace
}  // namespace mmekit
