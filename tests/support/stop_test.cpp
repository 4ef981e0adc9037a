#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

#include "common/stop.hpp"
#include "mmekit/support/array.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

using namespace mmekit;

TEST(Stop, PrintsTheMessageThrowsAndEndsTheProgramWithOne) {
  const auto seen = test::run_to_stop([] { stop(" line one\n line two"); });
  EXPECT_TRUE(seen.stopped);
  EXPECT_EQ(seen.message, " line one\n line two");
  EXPECT_EQ(seen.printed, " line one\n line two\n");
  EXPECT_EQ(test::run_to_stop([] { stop(""); }).printed, "");  // an empty message prints nothing
  CaptureOutput cap;
  EXPECT_EQ(run_program([] { out() << "fine\n"; }), 0);
  EXPECT_EQ(run_program([] { stop("bad"); }), 1);
  EXPECT_EQ(cap.text(), "fine\nbad\n");
}

TEST(Array, BoundsAndLayout) {
  Array1<int> a(0, 3, 7);
  EXPECT_EQ(a.size(), 4);
  EXPECT_EQ(a.lower(), 0);
  EXPECT_EQ(a.upper(), 3);
  a(0) = 1;
  a(3) = 4;
  EXPECT_EQ(a.data()[0], 1);
  EXPECT_EQ(a.data()[3], 4);
  Array2<double> m(2, 3);
  m(2, 1) = 5.0;  // first index fastest
  m(1, 2) = 6.0;
  EXPECT_EQ(m.data()[1], 5.0);
  EXPECT_EQ(m.data()[2], 6.0);
#ifdef MMEKIT_BOUNDS_CHECK
  EXPECT_DEATH(a(4), "index 4 outside 0..3");
  EXPECT_DEATH(m(3, 1), "index 3 outside 1..2");
#endif
}

TEST(Output, RedirectionForAScopeNestsAndSurvivesAStop) {
  std::ostringstream a, b;
  {
    OutputTo to_a(a);
    out() << "1\n";
    {
      OutputTo to_b(b);
      out() << "2\n";
    }
    out() << "3\n";
    try {
      OutputTo to_b(b);
      stop("gone");
    } catch (const Stop&) {
    }
    out() << "4\n";
    {
      CaptureOutput cap;
      out() << "5\n";
      EXPECT_EQ(cap.text(), "5\n");
    }
  }
  EXPECT_EQ(a.str(), "1\n3\n4\n");
  EXPECT_EQ(b.str(), "2\ngone\n");
  EXPECT_EQ(&out(), &std::cout);
}
