// The setters by name, called with arguments from a text.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "ipcam/camera/dsp_command.h"

namespace ipcam::test {

// A text argument stands between quotation marks; anything else is a null pointer.
using Setter = std::function<int(camera::DspCommand&, std::string arguments)>;
extern const std::map<std::string, Setter> kSetters;

}  // namespace ipcam::test
