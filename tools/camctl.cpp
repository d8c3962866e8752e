// camctl: sets, reads and examines the camera's image control.
#include "tools/cli.h"

int main(int argc, char** argv) {
  using namespace ipcam::tools;
  Output out;
  watch_for_stop_signals();
  Context context{out};
  const int code = run_command_line(context, Words(argv + (argc > 0 ? 1 : 0), argv + argc));
  die_of_stop_signal();
  return code;
}
