// Every operation of the library with typical arguments, and what must be the
// same after it: for the fault tests.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "ipcam/camera/dsp_command.h"
#include "tests/support/camera_fixture.h"

namespace ipcam::test {

// Request codes with the values that their handlers tell apart.
struct Request {
  std::vector<int> codes;
  std::vector<int> accepted;
  std::vector<int> refused = {};
  std::vector<int> depending = {};  // on earlier requests

  std::vector<int> values() const;
  bool may_answer(int value, int result) const;
};

// clang-format off
inline const std::vector<Request> kRequests = {
    {{31}, {2, 3}, {0}},
    {{33}, {5, 6, 7, 8, 9, 21, 64, 65}, {4}},
    {{34}, {0, 9, 16, 18}, {-1, 19}},
    {{35, 72}, {0, 6, 7}},
    {{36, 38, 50, 51, 52, 53, 62, 65, 66, 69, 70, 76, 78, 79}, {0}},
    {{37}, {0, 1, 2, 4}},
    {{39, 40, 67}, {0, 3, 6}, {-1, 7}},
    {{41, 42}, {0, 255}, {-1, 256}},
    {{61}, {0, 1}, {2}},
    {{64}, {}, {}, {0}},
    {{68}, {0, 68, 1}, {2}},
    {{71}, {0, 2, 6, 14}},
    {{73}, {0, 34, 9, 30, 4}},
    {{74}, {0, 1, 74, 75}, {2}},
    {{75}, {0, 1}, {2}, {29}},
    {{77}, {}, {2}, {0, 1, 4, 34}},
    {{80}, {0, 61, 62}},
    {{81}, {0, 65535}, {-1, 65536}},
    {{82}, {2, 30}, {3}},
    {{83}, {0, 4095}, {-1, 4096}},
};
// clang-format on

// Whether to try everything, or a sample that takes seconds: CAMERA_PROOF=whole.
bool whole_proof();
// A number from the environment.
int figure(const char* variable, int otherwise);
// CAMERA_SEED, or another one in each process.
std::uint32_t proof_seed();

struct Operation {
  enum Result {
    kTellsFailures,  // -1 exactly when a message says that something has failed
    kHidesFailures,  // what it is without a failure of the link
    kEither,         // 0 or -1
  };
  std::string name;
  std::function<int()> run;
  Result result;
};

// What must not grow.
struct Leftovers {
  std::ptrdiff_t descriptors, threads, attachments;

  static Leftovers now();
  bool exceed(const Leftovers& before) const;
};
std::ostream& operator<<(std::ostream& stream, const Leftovers& leftovers);

class FaultTest : public CameraTest {
 protected:
  // Writes settings and adjustment files with which the handlers have much to do.
  explicit FaultTest(char evr_data4 = 0);

  // Requests to the control thread, with every value or a typical one.
  std::vector<Operation> request_operations(bool every_value);
  // Operations of a DspCommand and of the one-push worker, on this thread.
  std::vector<Operation> direct_operations();
  // Both.
  std::vector<Operation> all_operations(bool every_value);

  // Fails the test unless the very next exchange succeeds, and a request is served.
  void expect_working_link();

  camera::DspCommand dsp;
};

}  // namespace ipcam::test
