// Runs the tests of one program, in a sandbox of their own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

// Replaces the program by itself in such a sandbox; returns when that cannot be done.
void enter_sandbox(char** arguments) {
  char sandbox[] = TEST_SANDBOX;
  char program[] = "/proc/self/exe";
  char path[4096] = {};
  if (readlink(program, path, sizeof path - 1) < 0) return;
  std::vector<char*> command = {sandbox, path};
  for (char** argument = arguments + 1; *argument != nullptr; ++argument)
    command.push_back(*argument);
  command.push_back(nullptr);
  execv(sandbox, command.data());
}

}  // namespace

int main(int argc, char** argv) {
  if (std::getenv("CAMERA_TEST_SANDBOX") == nullptr) {
    enter_sandbox(argv);
    std::fprintf(stderr, "%s: run it by " TEST_SANDBOX "\n", argv[0]);
    return 1;
  }
  testing::InitGoogleTest(&argc, argv);
  const int result = RUN_ALL_TESTS();
  // A filter that lets nothing pass is a mistake of the caller.
  return testing::UnitTest::GetInstance()->test_to_run_count() == 0 ? 1 : result;
}
