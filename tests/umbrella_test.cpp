// The umbrella header must compile on its own: every public header together, no clashes.
#include <mmekit/mmekit.hpp>

#include <gtest/gtest.h>

TEST(Umbrella, AllPublicHeadersCompileTogether) {
  mmekit::Array1<int> a(3, 0);
  EXPECT_EQ(a.size(), 3);
}
