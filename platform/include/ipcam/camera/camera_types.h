// Types of the camera's shared headers that appear in the camera interface.
#pragma once

namespace ipcam::camera {

enum e_codec_type : int { CODEC_JPEG = 0, CODEC_MPEG4 = 1, CODEC_H264 = 2 };

struct s_codec_plane_size_inf {
  int width;
  int height;
};

// Control record of a server program; not used by the camera library.
struct s_ctrl_inf {
  int reserved[4];
};

}  // namespace ipcam::camera
