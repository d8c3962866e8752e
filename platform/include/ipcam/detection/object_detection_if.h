// Object detection of the camera, told before the picture changes.
#pragma once

namespace ipcam::detection {

// The host's stand-in detects nothing and only enters its calls in the
// journal. All operations: any thread.
class ObjectDetectionIF {
 public:
  // Neither waits nor fails.
  ObjectDetectionIF();
  ~ObjectDetectionIF();
  ObjectDetectionIF(const ObjectDetectionIF&) = delete;
  ObjectDetectionIF& operator=(const ObjectDetectionIF&) = delete;

  // Announces that picture settings are about to change. Returns 0.
  int config();
};

}  // namespace ipcam::detection
