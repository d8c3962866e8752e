// Runs the tests of one program, but only in a world of their own.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
  if (std::getenv("CAMERA_TEST_WORLD") == nullptr) {
    std::fprintf(stderr, "%s: run it by tests/world.sh\n", argv[0]);
    return 1;
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
