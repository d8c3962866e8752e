// Post-processing pipeline behind the image sensor.
#pragma once

namespace ipcam::eptz {

// The host's stand-in processes nothing and only enters its calls in the
// journal. All operations: any thread.
class PostProcessInterface {
 public:
  // Neither waits nor fails.
  PostProcessInterface();
  virtual ~PostProcessInterface();
  PostProcessInterface(const PostProcessInterface&) = delete;
  PostProcessInterface& operator=(const PostProcessInterface&) = delete;

  // Blocks until the pipeline can take a change; the host's always can. Returns 0.
  int waitReady();
  // Tells the pipeline whether the sensor bins pixels. Returns 0.
  int changeBinningMode(bool on);
  // Makes the pipeline read its configuration again. Returns 0.
  int loadConfig();
};

}  // namespace ipcam::eptz
