// Object detection of the camera, told before the picture changes.
#pragma once

namespace ipcam::detection {

class ObjectDetectionIF {
 public:
  ObjectDetectionIF();
  ~ObjectDetectionIF();
  ObjectDetectionIF(const ObjectDetectionIF&) = delete;
  ObjectDetectionIF& operator=(const ObjectDetectionIF&) = delete;

  // Announces that picture settings are about to change. Returns 0.
  int config();
};

}  // namespace ipcam::detection
