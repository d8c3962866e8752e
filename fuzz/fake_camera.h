// A comm application inside the fuzzing process: the link's system
// calls, answered without another process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "ipcam/camera/dsp_command.h"

namespace ipcam::fuzz {

// The shared record, as the library sees it attached.
camera::shm_info& record();

// Called for each doorbell while the request is in the record; turns it into the reply. The default
// answers every register read with 0x5a and every write with success.
void set_answer(std::function<void(camera::shm_info&)> answer);
void answer_well(camera::shm_info& record);

// Contents of the files below /var/tmp; none is there by default.
void set_file(const std::string& path, std::string bytes);
void clear_files();

// Contents of the stored settings record, 880 bytes.
void set_settings(const std::uint8_t* bytes, std::size_t size);

// Stops the fuzzer with an input that breaks an invariant.
void require(bool invariant, const char* what);

}  // namespace ipcam::fuzz
