// Any text as a recording: read, put in order and compared with itself.
#include "tools/recording.h"

#include <algorithm>

#include "fuzz/fake_camera.h"

using ipcam::fuzz::require;
using ipcam::tools::Event;
using ipcam::tools::Recording;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const Recording recording = ipcam::tools::read_recording(text);
  require(std::ranges::is_sorted(recording.events, {}, &Event::order_us), "events are in order");
  const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n')) +
                     (text.empty() || text.ends_with('\n') ? 0 : 1);
  require(recording.events.size() + recording.faults.size() == lines, "no line is passed over");
  ipcam::tools::MaybeRecord stored;
  for (const Event& event : recording.events) {
    const auto* change = event.as<ipcam::tools::StoredChange>();
    if (change == nullptr) continue;
    const std::size_t changed_bytes = change->bytes ? change->bytes->size() : 0;
    require(change->offset + changed_bytes <= sizeof *stored,
            "a change stays within the stored record");
    stored = changed(*change, stored);
  }
  return 0;
}
