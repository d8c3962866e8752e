// Runs the tests of one program, in a world of their own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

// Replaces the program by itself in such a world; returns when that cannot be done.
void enter_world(char** arguments) {
  char world[] = TEST_WORLD;
  char program[] = "/proc/self/exe";
  char path[4096] = {};
  if (readlink(program, path, sizeof path - 1) < 0) return;
  std::vector<char*> command = {world, path};
  for (char** argument = arguments + 1; *argument != nullptr; ++argument)
    command.push_back(*argument);
  command.push_back(nullptr);
  execv(world, command.data());
}

}  // namespace

int main(int argc, char** argv) {
  if (std::getenv("CAMERA_TEST_WORLD") == nullptr) {
    enter_world(argv);
    std::fprintf(stderr, "%s: run it by " TEST_WORLD "\n", argv[0]);
    return 1;
  }
  testing::InitGoogleTest(&argc, argv);
  const int result = RUN_ALL_TESTS();
  // A filter that lets nothing pass is a mistake of the caller.
  return testing::UnitTest::GetInstance()->test_to_run_count() == 0 ? 1 : result;
}
