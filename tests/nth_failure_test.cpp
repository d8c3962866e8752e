// Fails every single system call of every operation once: it costs
// that operation, and nothing after it.
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/operations.h"

namespace ipcam::test {
namespace {

struct Call {
  const char* name;
  int error;
  const char* message = "";  // of every failure
  bool of_link = true;       // and so hidden by a request's handler
};

constexpr Call kCalls[] = {
    {"lock", EINVAL, "semop failed!\n"},
    {"unlock", EINVAL, "semop failed!\n"},
    {"kill", ESRCH, "dspset: [ERROR] send user signal1 to pid "},
    {"sigtimedwait", EINVAL},
    {"sigprocmask", EINVAL},
    {"signal", EINVAL, "failed to set signal handle!\n"},
    {"ftok", ENOENT, "ftok failed!\n"},
    {"semget", ENOENT, "semget failed!\n"},
    {"shmget", ENOENT, "shmget failed!\n"},
    {"shmat", ENOMEM, "shamat failed!\n"},
    {"shmdt", EINVAL},
    {"open", EMFILE, "", false},
    {"read", EIO, "", false},
    {"write", ENOSPC, "", false},
    {"fsync", EIO, "", false},
    {"lseek", EIO, "", false},
    {"ioctl", EIO, "", false},
    {"fopen", EMFILE, "", false},
    {"fread", EIO, "", false},
    {"pthread_create", EAGAIN, "", false},
    {"ThdIf_new", 0, "", false},
    {"ThdIf_send", 0, "", false},
    {"ThdIf_delete", 0, "", false},
    {"WitEnd_new", 0, "", false},
    {"WitEnd_get", 0, "", false},
    {"WitEnd_delete", 0, "", false},
    {"new", ENOMEM, "", false},
};

class NthFailure : public FaultTest {
 protected:
  using FaultTest::FaultTest;

  void expect_result(const Operation& operation, const Call& call, int result, int without_failure,
                     const Output& output) {
    const bool told = output.err.find("[ERROR]") != std::string::npos;
    if (operation.result == Operation::kTellsFailures) {
      EXPECT_EQ(result, told ? -1 : without_failure) << output.err;
    } else if (operation.result == Operation::kEither || !call.of_link) {
      EXPECT_TRUE(result == without_failure || result == -1 || result == 0 || result == kNotServed)
          << result;
    } else {
      EXPECT_EQ(result, without_failure);
    }
  }

  // Fails the 1st, 2nd, 3rd ... call of each kind, until the operation makes no more of them.
  void fail_each_call(const Operation& operation, const std::function<void()>& expect_next_works) {
    operation.run();
    const int without_failure = operation.run();
    expect_next_works();
    const Leftovers before = Leftovers::now();
    for (const Call& call : kCalls) {
      bool failed = true;
      for (int nth = 0; failed && !HasFailure(); ++nth) {
        SCOPED_TRACE(operation.name + ": " + call.name + " number " + std::to_string(nth));
        int result = 0;
        const Output output = capture([&] {
          fail_next(call.name, call.error, nth);
          try {
            result = operation.run();
          } catch (const std::bad_alloc&) {  // out of a constructor that the caller calls
            result = -1;
          }
          failed = failures_left() == 0;
          clear_failures();
        });
        EXPECT_TRUE(!failed || output.err.find(call.message) != std::string::npos) << output.err;
        expect_result(operation, call, result, without_failure, output);
        camera.settle();
        // The comm application alone puts a record back whose doorbell could not be rung.
        if (failed && std::string(call.name) == "kill") camera.restart();
        const Output next = capture(expect_next_works);
        if (HasFailure())
          std::printf("%s%s%s%s", output.out.c_str(), output.err.c_str(), next.out.c_str(),
                      next.err.c_str());
        EXPECT_TRUE(camera.record_is_clean());
        EXPECT_TRUE(eventually([&] { return !Leftovers::now().exceed(before); }))
            << before << " / " << Leftovers::now();
        runs += failed;
      }
    }
    clock->clear_waits();
  }

  int runs = 0;
};

// Each entry point as the first that a process uses, its 1st, 2nd, 3rd ... allocation failing;
// before this process uses any. Only the start may throw.
TEST(NthFailureOfTheFirstUse, CostsThatUseOnly) {
  camera::s_cam_cgi_cmd setting{};
  camera::s_ccdlsi_dbg raw{};
  const std::function<void()> uses[] = {
      [&] { camera::cam_cgi_command(&setting); },
      [&] { camera::cam_ccd_debug(&raw); },
      [] { camera::delete_camera_IF(camera::create_camera_IF(nullptr, nullptr)); },
      [] { camera::InitCamera(); },
      [] {
        static comm::s_port_inf port;
        try {
          camera::new_camera_ctrl(&port);
        } catch (const std::bad_alloc&) {
        }
        camera::delete_camera_IF(nullptr);
      },
  };
  for (const auto& use : uses) {
    int status = 0;
    for (int nth = 0; status == 0; ++nth) {
      capture([&] {
        const pid_t child = fork();
        if (child == 0) {
          fail_next("new", ENOMEM, nth);
          [&]() noexcept { use(); }();
          _exit(failures_left());
        }
        waitpid(child, &status, 0);
      });
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << &use - uses << ": " << status;
  }
}

class NthFailureOfAStart : public NthFailure {
 protected:
  NthFailureOfAStart() : NthFailure(7) {}
};

TEST_F(NthFailure, CostsOneOperationOnly) {
  ASSERT_EQ(start_control_thread(), 0);
  const std::vector<Operation> operations = all_operations(whole_proof());
  const Operation read = direct_operations().front();
  for (const Operation& operation : operations) {
    fail_each_call(operation, [&] {
      expect_working_link();
      request(33, 8);  // ends a measurement
      EXPECT_EQ(read.run(), 3);
    });
  }
  std::printf("%d failures in %zu operations\n", runs, operations.size());
}

TEST_F(NthFailureOfAStart, CostsThatStartOnly) {
  const auto start_and_stop = [&] {
    const int result = start_control_thread();
    stop_control_thread();
    stop_control_thread();  // ends one whose stop message could not be sent
    return result;
  };
  fail_each_call({"start and stop", start_and_stop, Operation::kEither}, [&] {
    ASSERT_EQ(start_control_thread(), 0);
    expect_working_link();
    stop_control_thread();
  });
  std::printf("%d failures in a start and stop\n", runs);
}

}  // namespace
}  // namespace ipcam::test
