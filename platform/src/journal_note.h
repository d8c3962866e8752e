// Entering a call into the platform's journal.
#pragma once

#include <initializer_list>
#include <optional>
#include <string_view>

namespace ipcam::platform {

// Enters "operation(text, arguments...) = result"; an empty text and an absent result are left out.
// At most four arguments; `operation` must be a literal, `text` is copied and cut at 63 characters.
// Any thread; does not allocate, so that it may stand on the request path.
void note(const char* operation, std::initializer_list<int> arguments = {},
          std::string_view text = {}, std::optional<int> result = {});

}  // namespace ipcam::platform
