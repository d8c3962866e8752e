// Stand-ins for object detection and post-processing: always ready, they note what they are told.
#include "ipcam/detection/object_detection_if.h"
#include "ipcam/eptz/post_process_interface.h"
#include "journal_note.h"

namespace ipcam::detection {

ObjectDetectionIF::ObjectDetectionIF() { platform::note("ObjectDetectionIF::ObjectDetectionIF"); }

ObjectDetectionIF::~ObjectDetectionIF() { platform::note("ObjectDetectionIF::~ObjectDetectionIF"); }

int ObjectDetectionIF::config() {
  platform::note("ObjectDetectionIF::config");
  return 0;
}

}  // namespace ipcam::detection

namespace ipcam::eptz {

PostProcessInterface::PostProcessInterface() {
  platform::note("PostProcessInterface::PostProcessInterface");
}

PostProcessInterface::~PostProcessInterface() {
  platform::note("PostProcessInterface::~PostProcessInterface");
}

int PostProcessInterface::waitReady() {
  platform::note("PostProcessInterface::waitReady");
  return 0;
}

int PostProcessInterface::changeBinningMode(bool on) {
  platform::note("PostProcessInterface::changeBinningMode", {on ? 1 : 0});
  return 0;
}

int PostProcessInterface::loadConfig() {
  platform::note("PostProcessInterface::loadConfig");
  return 0;
}

}  // namespace ipcam::eptz
