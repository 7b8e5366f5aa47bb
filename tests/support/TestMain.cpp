// The one main() of every test binary: death tests run in a fresh process ("threadsafe"),
// because the library's pools and queues have threads by the time a death test starts.
#include <gtest/gtest.h>

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  return RUN_ALL_TESTS();
}
