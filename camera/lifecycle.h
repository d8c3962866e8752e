// Shutdown of everything that new_camera_ctrl() has started.
#pragma once

namespace ipcam::camera {

// Ends the control thread and releases everything that new_camera_ctrl() created. Requests that are
// queued when it is called are served first; later ones are refused. Returns 0; -1 at the first
// step that failed, with the later ones not done, and -1 with nothing touched when no control
// thread has been started, or on the control thread itself. Any thread.
int shut_down_camera_ctrl();

}  // namespace ipcam::camera
