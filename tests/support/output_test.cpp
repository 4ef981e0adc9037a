#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

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

}  // namespace mmekit
