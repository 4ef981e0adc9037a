// Line splitters, line readers, the text file check and the command-line helpers.
#include <gtest/gtest.h>

#include <sstream>

#include "common/stop.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/tool/text.hpp"

namespace mmekit {
namespace {

using test::stop_output;
using Texts = std::vector<std::string>;

TEST(Nums2, SplitsAtBlanksOnlyAndDecodesTwelveCharacterFields) {
  std::vector<float> x(5, 9.0f);
  FixedTexts xc(5, 8);
  for (int i = 1; i <= 5; ++i) xc.set(i, "junk");
  std::int32_t m = -7;
  const auto split = [&](const char* line) {
    nums2(line, m, x, xc);
    return std::make_tuple(m, x, xc.to_vector());
  };
  // All blank: nothing, everything cleared; the comma ends the number but not the item.
  EXPECT_EQ(split("      "), std::make_tuple(0, std::vector<float>(5, 0.0f), Texts(5, "")));
  EXPECT_EQ(split(" 1,2 3"), std::make_tuple(2, std::vector<float>{1, 3, 0, 0, 0}, Texts{"1,2", "3", "", "", ""}));
  // 12 characters make a number; texts are cut to the element width; a tab belongs to the item.
  EXPECT_EQ(split("123456789012345 a\tb 'q' -2.5 1.5e2"),
            std::make_tuple(5, std::vector<float>{123456789012.0f, 0, 0, -2.5f, 150}, Texts{"12345678", "a\tb", "'q'", "-2.5", "1.5e2"}));
  // Without xc, with xc only, and counting only.
  nums2("4 5 6", m, std::span<float>(x));
  EXPECT_EQ(std::make_tuple(m, x[2]), std::make_tuple(3, 6.0f));
  nums2("4 5 6 7", m, xc);
  EXPECT_EQ(std::make_tuple(m, std::string(xc(4))), std::make_tuple(4, "7"));
  nums2("  a b  c ", m);
  EXPECT_EQ(m, 3);
}

TEST(Nums2, TooManyItemsIsReportedWithTheCapacityOfTheTexts) {
  std::string line;
  for (int i = 1; i <= 101; ++i) line += std::to_string(i % 10) + " ";
  std::vector<float> x(1000), small(2);
  FixedTexts xc(100, 1), three(3, 4);
  std::int32_t m = 0;
  const std::string head = " Error in nums2 splitting string starting: \n ";
  EXPECT_EQ(stop_output([&] { nums2(line, m, x, xc); }), head + line.substr(0, 80) + "\n into m: 100 items\n");
  // The numbers overflow first, but the texts' capacity is printed; numbers only: their own.
  const std::string padded = "1 2 3" + std::string(75, ' ');
  EXPECT_EQ(stop_output([&] { nums2("1 2 3", m, small, three); }), head + padded + "\n into m: 3 items\n");
  EXPECT_EQ(stop_output([&] { nums2("1 2 3", m, std::span<float>(small)); }), head + padded + "\n into m: 2 items\n");
}

TEST(Nums, DecodesByHandAndKeepsOldItems) {
  std::vector<std::int32_t> x(5, 99);
  FixedTexts xc(5, 20);
  std::int32_t m = 0;
  const auto split = [&](const char* line) {
    nums(line, x, xc, 5, m);
    return std::make_tuple(m, x, xc.to_vector());
  };
  const std::vector<std::int32_t> first{0, 0, 0, 12, 3};
  EXPECT_EQ(split("a1 - --5 12abc 3.7 "), std::make_tuple(5, first, Texts{"a1", "-", "--5", "12abc", "3.7"}));  // no trailing blank
  // One item: the old second to fourth items stay, the fifth is blanked.
  EXPECT_EQ(split("cro "), std::make_tuple(1, first, Texts{"cro", "-", "--5", "12abc", ""}));
  // The last item does not end at a blank; ten characters decode, eleven leave the number.
  EXPECT_EQ(split("7 1234567890 12345678901 -42"),
            std::make_tuple(3, std::vector<std::int32_t>{7, 1234567890, 0, 12, 3}, Texts{"7", "1234567890", "12345678901", "12abc", ""}));

  std::vector<std::int32_t> two(2);
  FixedTexts xc2(2, 4);
  EXPECT_EQ(stop_output([&] { nums("1 2 3 ", two, xc2, 2, m); }),
            " Error in nums splitting string starting: \n 1 2 3 " + std::string(74, ' ') + "\n into m: 2 items\n");
  EXPECT_THROW(nums("1 ", two, xc2, 3, m), std::invalid_argument);
}

TEST(FieldToInt, WrapsAroundInThirtyTwoBits) {
  const std::pair<const char*, std::int32_t> cases[] = {
      {"12abc", 12}, {"-17", -17}, {"-", 0}, {"--5", 0}, {"+5", 0}, {"", 0}, {"2147483647", 2147483647},
      {"2147483648", INT32_MIN}, {"-2147483648", INT32_MIN}, {"4294967297", 1},
      {"9999999999", 1410065407},  // 9999999999 - 2 * 2^32
      {"123456789012345678901234567890", 1312754386}};
  for (const auto& [text, value] : cases) EXPECT_EQ(field_to_int(text), value) << text;
  EXPECT_EQ(ints_to_string(std::vector<std::int32_t>{1, -2, 30, INT32_MIN}), "1 -2 30 -2147483648");
  EXPECT_EQ(ints_to_string({}), "");
}

TEST(ReadItems, CommentsBlankLinesLineLengthAndEndOfFile) {
  std::istringstream in("# a comment\n    # an indented comment\n  7 # text\nab#c d\n     \n  x  -3  \r\nlast");
  std::vector<std::int32_t> x(10);
  FixedTexts xc(10, 20);
  std::int32_t m = 0;
  const auto next = [&](std::istream& unit) {
    read_items(unit, x, xc, m);
    return std::make_tuple(m, x[0], std::string(xc(1)));
  };
  EXPECT_EQ(next(in), std::make_tuple(1, 7, std::string("7")));
  EXPECT_EQ(next(in), std::make_tuple(1, 0, std::string("ab")));
  EXPECT_EQ(std::get<0>(next(in)), 0);  // a blank line is returned, not skipped
  EXPECT_EQ(next(in), std::make_tuple(2, 0, std::string("x")));
  EXPECT_EQ(std::make_tuple(x[1], std::string(xc(2))), std::make_tuple(-3, std::string("-3")));  // no "\r"
  EXPECT_EQ(next(in), std::make_tuple(1, 0, std::string("last")));
  EXPECT_EQ(std::get<0>(next(in)), -1);
  std::istringstream raw("# a b\n"), plain("  # a\n1 2\n");
  read_items(raw, x, xc, m, true);
  EXPECT_EQ(std::make_tuple(m, std::string(xc(1))), std::make_tuple(3, std::string("#")));
  std::vector<std::int32_t> counts;
  for (int i = 0; i < 3; ++i) counts.push_back((read_items_plain(plain, x, xc, m), m));
  EXPECT_EQ(counts, (std::vector<std::int32_t>{2, 2, -1}));

  const std::int32_t saved = text_settings.line_length;
  text_settings.line_length = 5;
  // "1234 " after the cut; "12345" has no blank to end the item; " 1234" is shifted left.
  std::istringstream cut("1234 67\n12345\n 1234\n");
  counts.clear();
  for (int i = 0; i < 3; ++i) counts.push_back((read_items(cut, x, xc, m), m));
  EXPECT_EQ(counts, (std::vector<std::int32_t>{1, 0, 1}));
  EXPECT_EQ(x[0], 1234);
  text_settings.line_length = saved;

  std::istringstream reals("  1.5 abc 2,5\n# 3\n");
  std::vector<float> r(4);
  read_items_real(reals, m, r, xc);
  EXPECT_EQ(std::make_tuple(m, r), std::make_tuple(3, std::vector<float>{1.5f, 0.0f, 2.0f, 0.0f}));
  counts.clear();
  for (int i = 0; i < 2; ++i) counts.push_back((read_items_real(reals, m, r, xc), m));
  EXPECT_EQ(counts, (std::vector<std::int32_t>{2, -1}));  // no comment handling
}

TEST(CheckTextFile, ReportsTabsAndOldMacLineEndsOnTheFirstLine) {
  const auto check = [](const char* text, const char* name) {
    std::istringstream in(text);
    return stop_output([&] { check_text_file(in, name); });
  };
  EXPECT_NE(check("1\t2\n3 4\n", "/some/dir/data.txt").find("in file: \"data.txt\""), std::string::npos);
  EXPECT_EQ(check("1 2\r3 4\r", "old.txt"),
            "\n Mac old newline format detected in file: \"old.txt\"\n"
            " Convert it to Unix newline format, e.g. \"flip -u <file>\"\n");
  EXPECT_NE(check("1\t2\r5\n", "both").find("Mac old newline"), std::string::npos);  // reported first
  // A tab on line 2 is not seen, CRLF line ends pass, and the unit is rewound.
  CaptureOutput cap;
  std::istringstream tab2("1 2\n3\t4\n"), dos("1 2\r\n3 4\r\n"), empty("");
  check_text_file(tab2, "ok.txt");
  check_text_file(dos, "dos.txt");
  check_text_file(empty, "empty.txt");
  EXPECT_EQ(cap.text(), "");
  std::string first;
  EXPECT_EQ(std::getline(tab2, first) ? first : "", "1 2");
}

TEST(CommandLine, OptionsAndTheirValues) {
  const char* argv[] = {"prog", "-a", "1.5", "x", "--b", "-c", "  -e  ", "7"};
  set_command_line(8, argv);
  ASSERT_EQ(command_line().size(), 7u);
  std::int32_t m = 0;
  std::vector<double> x(4, 9.0);
  FixedTexts xc(4, 250), one(1, 10);
  get_command_option(" -a ", m, x, xc);  // stops at "--b"
  EXPECT_EQ(std::make_tuple(m, std::string(xc(1)) + std::string(xc(2)), x), std::make_tuple(2, "1.5x", std::vector<double>{1.5, 0, 0, 0}));
  get_command_option("--b", m, xc);  // "-c" does not start with "--"
  EXPECT_EQ(std::make_tuple(m, std::string(xc(2))), std::make_tuple(3, "-e"));
  get_command_option("-e", m);
  EXPECT_EQ(m, 1);
  get_command_option("-z", m, x, xc);
  EXPECT_EQ(std::make_tuple(m, std::string(xc(1))), std::make_tuple(-1, ""));
  get_command_option("--b", m, one);
  EXPECT_EQ(m, 1);  // no more than the texts hold

  std::vector<std::string> valid{"-a", "--b", "-c ", "-e"};
  CaptureOutput cap;
  check_command_options(valid);
  EXPECT_EQ(cap.text(), "");
  valid.pop_back();
  EXPECT_EQ(stop_output([&] { check_command_options(valid); }), " Command argument NOT valid:  -e\n");
  set_command_line(std::vector<std::string>{});

  std::vector<std::string> list;
  for (const std::string& s : {std::string("-a   "), std::string("--long"), std::string(300, 'z')}) append_string(s, list);
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[2].size(), 250u);
  list.pop_back();
  print_option_list("Options:   ", list);
  EXPECT_EQ(cap.text(), "    Options: -a --long\n");
}

}  // namespace
}  // namespace mmekit
