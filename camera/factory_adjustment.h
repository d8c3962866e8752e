// The factory adjustment files: of the camera, and of white balance for each sensor readout.
#pragma once

#include "ipcam/camera/dsp_command.h"

namespace ipcam::camera {

inline constexpr char kCameraFile[] = "/var/tmp/AdjCamera.txt";
inline constexpr char kHalfPixelWbFile[] = "/var/tmp/AdjWbHalfPixels.txt";
inline constexpr char kAllPixelWbFile[] = "/var/tmp/AdjWbAllPixels.txt";

// What became of an adjustment file. A file that is too short is as
// invalid as one without the validity mark.
enum class AdjustmentFile { kCannotOpen, kInvalid, kValid };

// Sends the register values of the white-balance adjustment file `path`. An invalid file is
// reported on standard error and not sent; one that cannot be opened is not reported.
AdjustmentFile load_wb_adjustment(DspCommand& dsp, const char* path);

}  // namespace ipcam::camera
