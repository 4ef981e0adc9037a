// Line splitters, line readers, the text file check and the command-line helpers.
#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/tool/text.hpp"

#include "common/stop_output.hpp"

namespace mmekit {
namespace {

using testing_support::printed::stop_text;

TEST(Nums2, SplitsAtBlanksOnlyAndDecodesTwelveCharacterFields) {
  std::vector<float> x(5, 9.0f);
  FixedTexts xc(5, 8);
  for (int i = 1; i <= 5; ++i) xc.set(i, "junk");
  std::int32_t m = -7;

  nums2("      ", m, x, xc);  // all blank: nothing, everything cleared
  EXPECT_EQ(m, 0);
  EXPECT_EQ(x, std::vector<float>(5, 0.0f));
  EXPECT_EQ(xc.to_vector(), std::vector<std::string>(5, ""));

  nums2(" 1,2 3", m, x, xc);  // the comma ends the number but not the item
  ASSERT_EQ(m, 2);
  EXPECT_EQ(x[0], 1.0f);
  EXPECT_EQ(x[1], 3.0f);
  EXPECT_EQ(xc(1), "1,2");
  EXPECT_EQ(xc(2), "3");
  EXPECT_EQ(xc(3), "");

  nums2("123456789012345 a\tb 'q' -2.5 1.5e2", m, x, xc);
  ASSERT_EQ(m, 5);
  EXPECT_EQ(x[0], 123456789012.0f);  // only 12 characters take part
  EXPECT_EQ(xc(1), "12345678");      // cut to the element width
  EXPECT_EQ(xc(2), "a\tb");          // a tab belongs to the item
  EXPECT_EQ(x[1], 0.0f);
  EXPECT_EQ(xc(3), "'q'");
  EXPECT_EQ(x[3], -2.5f);
  EXPECT_EQ(x[4], 150.0f);

  // Without xc, with xc only, and counting only.
  nums2("4 5 6", m, std::span<float>(x));
  EXPECT_EQ(m, 3);
  EXPECT_EQ(x[2], 6.0f);
  nums2("4 5 6 7", m, xc);
  EXPECT_EQ(m, 4);
  EXPECT_EQ(xc(4), "7");
  nums2("  a b  c ", m);
  EXPECT_EQ(m, 3);
}

TEST(Nums2, PlainDecimalsDecodeLikeTheGeneralFieldReader) {
  std::mt19937 gen(12345);
  std::uniform_int_distribution<int> len(1, 13), digit(0, 9), coin(0, 3);
  std::vector<float> x(1);
  std::int32_t m = 0;
  for (int trial = 0; trial < 20000; ++trial) {
    std::string s;
    if (coin(gen) == 0) s += '-';
    int n = len(gen), point = coin(gen) == 0 ? -1 : std::uniform_int_distribution<int>(0, n)(gen);
    for (int i = 0; i < n; ++i) {
      if (i == point) s += '.';
      s += static_cast<char>('0' + digit(gen));
    }
    nums2(s, m, std::span<float>(x));
    float expect = 0.0f;
    read_fixed(s, expect, 12);
    ASSERT_EQ(m, 1);
    ASSERT_EQ(std::bit_cast<std::uint32_t>(x[0]), std::bit_cast<std::uint32_t>(expect)) << s;
  }
}

TEST(Nums2, TooManyItemsIsReportedWithTheCapacityOfTheTexts) {
  std::string line;
  for (int i = 1; i <= 101; ++i) line += std::to_string(i % 10) + " ";
  std::vector<float> x(1000);
  FixedTexts xc(100, 1);
  std::int32_t m = 0;
  std::string head = line.substr(0, 80);
  EXPECT_EQ(stop_text([&] { nums2(line, m, x, xc); }),
            " Error in nums2 splitting string starting: \n " + head + "\n into m: 100 items\n");

  // The numbers overflow first; the capacity printed is still that of the texts.
  std::vector<float> small(2);
  FixedTexts three(3, 4);
  EXPECT_EQ(stop_text([&] { nums2("1 2 3", m, small, three); }),
            " Error in nums2 splitting string starting: \n 1 2 3" + std::string(75, ' ') +
                "\n into m: 3 items\n");
  // Numbers only: their own capacity.
  EXPECT_EQ(stop_text([&] { nums2("1 2 3", m, std::span<float>(small)); }),
            " Error in nums2 splitting string starting: \n 1 2 3" + std::string(75, ' ') +
                "\n into m: 2 items\n");
}

TEST(Nums, DecodesByHandAndKeepsOldItems) {
  std::vector<std::int32_t> x(5, 99);
  FixedTexts xc(5, 20);
  std::int32_t m = 0;

  nums("a1 - --5 12abc 3.7 ", x, xc, 5, m);
  ASSERT_EQ(m, 5);
  EXPECT_EQ(x, (std::vector<std::int32_t>{0, 0, 0, 12, 3}));
  EXPECT_EQ(xc(3), "--5");
  EXPECT_EQ(xc(5), "3.7");  // without the trailing blank

  nums("cro ", x, xc, 5, m);  // one item: the old second to fourth items stay, the fifth is blanked
  ASSERT_EQ(m, 1);
  EXPECT_EQ(xc.to_vector(), (std::vector<std::string>{"cro", "-", "--5", "12abc", ""}));
  EXPECT_EQ(x, (std::vector<std::int32_t>{0, 0, 0, 12, 3}));

  nums("7 12345678901 -42", x, xc, 5, m);  // the last item does not end at a blank
  ASSERT_EQ(m, 2);
  EXPECT_EQ(x[0], 7);
  EXPECT_EQ(x[1], 0);  // more than 10 characters: left as it was
  EXPECT_EQ(xc(2), "12345678901");
  EXPECT_EQ(xc(3), "--5");

  std::vector<std::int32_t> two(2);
  FixedTexts xc2(2, 4);
  EXPECT_EQ(stop_text([&] { nums("1 2 3 ", two, xc2, 2, m); }),
            " Error in nums splitting string starting: \n 1 2 3 " + std::string(74, ' ') +
                "\n into m: 2 items\n");
  EXPECT_THROW(nums("1 ", two, xc2, 3, m), std::invalid_argument);
}

TEST(FieldToInt, WrapsAroundInThirtyTwoBits) {
  EXPECT_EQ(field_to_int("12abc"), 12);
  EXPECT_EQ(field_to_int("-17"), -17);
  EXPECT_EQ(field_to_int("-"), 0);
  EXPECT_EQ(field_to_int("--5"), 0);
  EXPECT_EQ(field_to_int("+5"), 0);
  EXPECT_EQ(field_to_int(""), 0);
  EXPECT_EQ(field_to_int("2147483647"), 2147483647);
  EXPECT_EQ(field_to_int("2147483648"), INT32_MIN);
  EXPECT_EQ(field_to_int("-2147483648"), INT32_MIN);
  EXPECT_EQ(field_to_int("4294967297"), 1);
  EXPECT_EQ(field_to_int("9999999999"), 1410065407);  // 9999999999 - 2 * 2^32
  EXPECT_EQ(field_to_int("123456789012345678901234567890"), static_cast<std::int32_t>(
      [] { std::uint32_t v = 0; for (char c : std::string("123456789012345678901234567890")) v = v * 10 + (c - '0'); return v; }()));
}

TEST(IntsToString, OneBlankBetweenNumbers) {
  std::vector<std::int32_t> x{1, -2, 30, INT32_MIN};
  EXPECT_EQ(ints_to_string(x), "1 -2 30 -2147483648");
  EXPECT_EQ(ints_to_string({}), "");
  EXPECT_EQ(ints_to_string(std::vector<std::int32_t>{0}), "0");
}

TEST(ReadItems, CommentsBlankLinesAndEndOfFile) {
  std::istringstream in(
      "# a comment\n"
      "    # an indented comment\n"
      "  7 # text\n"
      "ab#c d\n"
      "     \n"
      "  x  -3  \r\n"
      "last");
  std::vector<std::int32_t> x(10);
  FixedTexts xc(10, 20);
  std::int32_t m = 0;
  read_items(in, x, xc, m);
  ASSERT_EQ(m, 1);
  EXPECT_EQ(x[0], 7);
  read_items(in, x, xc, m);
  ASSERT_EQ(m, 1);
  EXPECT_EQ(xc(1), "ab");
  read_items(in, x, xc, m);
  EXPECT_EQ(m, 0);  // a blank line is returned, not skipped
  read_items(in, x, xc, m);
  ASSERT_EQ(m, 2);
  EXPECT_EQ(xc(1), "x");
  EXPECT_EQ(x[1], -3);
  EXPECT_EQ(xc(2), "-3");  // the "\r" of the line end is gone
  read_items(in, x, xc, m);
  ASSERT_EQ(m, 1);
  EXPECT_EQ(xc(1), "last");
  read_items(in, x, xc, m);
  EXPECT_EQ(m, -1);

  std::istringstream raw("# a b\n");
  read_items(raw, x, xc, m, true);
  ASSERT_EQ(m, 3);
  EXPECT_EQ(xc(1), "#");
  std::istringstream plain("  # a\n1 2\n");
  read_items_plain(plain, x, xc, m);
  EXPECT_EQ(m, 2);
  read_items_plain(plain, x, xc, m);
  EXPECT_EQ(m, 2);
  read_items_plain(plain, x, xc, m);
  EXPECT_EQ(m, -1);
}

TEST(ReadItems, LineLengthCutsAndAFullLineLosesItsLastItem) {
  const std::int32_t saved = text_settings.line_length;
  text_settings.line_length = 5;
  std::istringstream in("1234 67\n12345\n 1234\n");
  std::vector<std::int32_t> x(4);
  FixedTexts xc(4, 8);
  std::int32_t m = 0;
  read_items(in, x, xc, m);  // "1234 " after the cut
  EXPECT_EQ(m, 1);
  EXPECT_EQ(x[0], 1234);
  read_items(in, x, xc, m);  // "12345" fills the buffer: no blank ends the item
  EXPECT_EQ(m, 0);
  read_items(in, x, xc, m);  // shifted left, a blank is left at the end
  EXPECT_EQ(m, 1);
  text_settings.line_length = saved;
}

TEST(ReadItemsReal, SplitsByTheRealRules) {
  std::istringstream in("  1.5 abc 2,5\n# 3\n");
  std::vector<float> x(4);
  FixedTexts xc(4, 8);
  std::int32_t m = 0;
  read_items_real(in, m, x, xc);
  ASSERT_EQ(m, 3);
  EXPECT_EQ(x[0], 1.5f);
  EXPECT_EQ(x[1], 0.0f);
  EXPECT_EQ(x[2], 2.0f);
  read_items_real(in, m, x, xc);
  EXPECT_EQ(m, 2);  // no comment handling
  read_items_real(in, m, x, xc);
  EXPECT_EQ(m, -1);
}

TEST(CheckTextFile, ReportsTabsAndOldMacLineEndsOnTheFirstLine) {
  {
    std::istringstream in("1\t2\n3 4\n");
    EXPECT_EQ(stop_text([&] { check_text_file(in, "/some/dir/data.txt"); }),
              "\n TAB was found, Use spaces to separeate columns in file: \"data.txt\"\n"
              " Convert to TAB to spaces, e.g. \"expand file > newfile\"\n");
  }
  {
    std::istringstream in("1 2\r3 4\r");
    EXPECT_EQ(stop_text([&] { check_text_file(in, "old.txt"); }),
              "\n Mac old newline format detected in file: \"old.txt\"\n"
              " Convert it to Unix newline format, e.g. \"flip -u <file>\"\n");
  }
  {
    std::istringstream in("1\t2\r5\n");  // both: the carriage return is reported first
    EXPECT_NE(stop_text([&] { check_text_file(in, "both"); }).find("Mac old newline"), std::string::npos);
  }
  {
    std::istringstream in("1 2\n3\t4\n");  // a tab on line 2 is not seen; the unit is rewound
    CaptureOutput cap;
    check_text_file(in, "ok.txt");
    EXPECT_EQ(cap.text(), "");
    std::string first;
    std::getline(in, first);
    EXPECT_EQ(first, "1 2");
  }
  {
    std::istringstream in("1 2\r\n3 4\r\n");  // CRLF line ends pass
    check_text_file(in, "dos.txt");
    std::vector<std::int32_t> x(4);
    FixedTexts xc(4, 8);
    std::int32_t m = 0;
    read_items(in, x, xc, m);
    EXPECT_EQ(m, 2);
  }
  {
    std::istringstream in("");
    check_text_file(in, "empty.txt");
    std::int32_t m = 0;
    std::vector<float> x(1);
    FixedTexts xc(1, 1);
    read_items_real(in, m, x, xc);
    EXPECT_EQ(m, -1);
  }
}

TEST(CommandLine, OptionsAndTheirValues) {
  const char* argv[] = {"prog", "-a", "1.5", "x", "--b", "-c", "  -e  ", "7"};
  set_command_line(8, argv);
  ASSERT_EQ(command_line().size(), 7u);

  std::int32_t m = 0;
  std::vector<double> x(4, 9.0);
  FixedTexts xc(4, 250);
  get_command_option(" -a ", m, x, xc);
  ASSERT_EQ(m, 2);  // stops at "--b"
  EXPECT_EQ(xc(1), "1.5");
  EXPECT_EQ(xc(2), "x");
  EXPECT_EQ(x, (std::vector<double>{1.5, 0.0, 0.0, 0.0}));

  get_command_option("--b", m, xc);
  ASSERT_EQ(m, 3);  // "-c" does not start with "--"
  EXPECT_EQ(xc(2), "-e");
  get_command_option("-e", m);
  EXPECT_EQ(m, 1);
  get_command_option("-z", m, x, xc);
  EXPECT_EQ(m, -1);
  EXPECT_EQ(xc(1), "");
  FixedTexts one(1, 10);
  get_command_option("--b", m, one);
  EXPECT_EQ(m, 1);  // no more than the texts hold

  std::vector<std::string> valid{"-a", "--b", "-c ", "-e"};
  CaptureOutput cap;
  check_command_options(valid);
  EXPECT_EQ(cap.text(), "");
  valid.pop_back();
  EXPECT_EQ(stop_text([&] { check_command_options(valid); }), " Command argument NOT valid:  -e\n");
  set_command_line(std::vector<std::string>{});
}

TEST(OptionList, PrintsOneLineAndAppendGrowsTheList) {
  CaptureOutput cap;
  std::vector<std::string> list;
  append_string("-a   ", list);
  append_string("--long", list);
  append_string(std::string(300, 'z'), list);
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[2].size(), 250u);
  list.pop_back();
  print_option_list("Options:   ", list);
  EXPECT_EQ(cap.text(), "    Options: -a --long\n");
}

}  // namespace
}  // namespace mmekit
