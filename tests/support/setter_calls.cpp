// The setters by name.
#include "tests/support/setter_calls.h"

#include <sstream>
#include <tuple>

namespace ipcam::test {
namespace {

using camera::DspCommand;

template <class Argument>
Argument next_argument(std::istream& arguments) {
  if constexpr (std::is_same_v<Argument, camera::s_ae_ptn>) {
    camera::s_ae_ptn pattern{};
    arguments >> pattern.mode >> pattern.shutter >> pattern.gain >> pattern.max_frm_exp;
    return pattern;
  } else {
    Argument argument{};
    arguments >> argument;
    return argument;
  }
}

template <class... Arguments>
Setter setter(int (DspCommand::*operation)(Arguments...)) {
  return [operation](DspCommand& dsp, const std::string& text) {
    std::istringstream in(text);
    const std::tuple<Arguments...> arguments{next_argument<Arguments>(in)...};
    return std::apply([&](auto... values) { return (dsp.*operation)(values...); }, arguments);
  };
}

Setter setter(int (DspCommand::*operation)(unsigned char*)) {
  return [operation](DspCommand& dsp, std::string text) {
    if (text[0] != '"') return (dsp.*operation)(nullptr);
    text.back() = '\0';
    return (dsp.*operation)(reinterpret_cast<unsigned char*>(&text[1]));
  };
}

}  // namespace

#define SETTER(name) \
  { #name, setter(&DspCommand::do_##name) }
const std::map<std::string, Setter> kSetters = {
    SETTER(saturation), SETTER(contrast),     SETTER(sharpness),    SETTER(brightness),     SETTER(hue),
    SETTER(colorbar),   SETTER(effect),       SETTER(gamma),        SETTER(ygamma),         SETTER(cgamma),
    SETTER(rgain),      SETTER(bgain),        SETTER(whitebalance), SETTER(rbgain_preset1), SETTER(blcomp),
    SETTER(expcomp),    SETTER(aereference),  SETTER(expmode),      SETTER(shutter_gain),   SETTER(max_frm_exp),
    SETTER(shutter),    SETTER(gain),         SETTER(flickerless),  SETTER(autoexposure),   SETTER(autoslowshutter),
    SETTER(agc),        SETTER(agc_max_gain), SETTER(miris_mode),   SETTER(iris_modifier),  SETTER(binning),
    SETTER(sensormode), SETTER(dnmode),       SETTER(dnlevel)};
#undef SETTER

}  // namespace ipcam::test
