// Requests of the picture, white balance and compensation: exchanges, messages, calls, stored levels and results.
#include <bit>

#include "camera/control_thread.h"
#include "tests/support/story.h"

namespace ipcam::test {
namespace {

class PictureHandlersTest : public StoryTest, public ::testing::WithParamInterface<Section> {
  // The words of the settings snapshot.
  Lines state() const override {
    using Words = std::array<std::int32_t, sizeof(camera::SettingsSnapshot) / 4>;
    const auto words = std::bit_cast<Words>(camera::ControlThread::instance().snapshot());
    Lines lines;
    for (std::size_t i = 0; i < words.size(); ++i) {
      lines.push_back("stored w" + std::to_string(4 * i) + "=" + std::to_string(words[i]));
    }
    return lines;
  }
};

INSTANTIATE_TEST_SUITE_P(PictureHandlers, PictureHandlersTest, ::testing::ValuesIn(read_cases("picture_handlers.txt")),
                         section_name);

TEST_P(PictureHandlersTest, Serve) { check_story(GetParam()); }

}  // namespace
}  // namespace ipcam::test
