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
  EXPECT_EQ(std::make_tuple(seen.stopped, seen.message, seen.printed), std::make_tuple(true, " line one\n line two", " line one\n line two\n"));
  EXPECT_EQ(test::run_to_stop([] { stop(""); }).printed, "");  // an empty message prints nothing
  CaptureOutput cap;
  EXPECT_EQ(run_program([] { out() << "fine\n"; }), 0);
  EXPECT_EQ(run_program([] { stop("bad"); }), 1);
  EXPECT_EQ(cap.text(), "fine\nbad\n");
}

TEST(Array, BoundsAndLayout) {
  Array1<int> a(0, 3, 7);
  a(0) = 1;
  a(3) = 4;
  EXPECT_EQ(std::make_tuple(a.size(), a.lower(), a.upper(), a.data()[0], a.data()[3]), std::make_tuple(4, 0, 3, 1, 4));
  Array2<double> m(2, 3);
  m(2, 1) = 5.0;  // first index fastest
  m(1, 2) = 6.0;
  EXPECT_EQ(std::make_pair(m.data()[1], m.data()[2]), std::make_pair(5.0, 6.0));
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
