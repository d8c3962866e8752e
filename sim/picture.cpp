// The picture of the simulated camera: a colour chart as the registers make it look, as a PNG file.
#include "sim/picture.h"

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#include <stb/stb_image_write.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <numbers>
#include <vector>

#include "registers/register_map.h"
#include "registers/register_values.h"
#include "workstation/replace_file.h"

namespace ipcam::sim {
namespace {

constexpr int kWidth = 480;
constexpr int kHeight = 400;
constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;
constexpr int kNeutral = 0x80;

struct Colour {
  float red, green, blue;
};
using Picture = std::vector<Colour>;  // row by row

constexpr std::size_t index_of(int x, int y) {
  return static_cast<std::size_t>(y) * kWidth + static_cast<std::size_t>(x);
}

// --- The chart ---

constexpr int kColumns = 6;
constexpr int kRows = 4;
constexpr int kCellWidth = kWidth / kColumns;
constexpr int kCellHeight = 66;
constexpr int kMargin = 4;
constexpr int kRampTop = kRows * kCellHeight;
constexpr int kRampHeight = 40;
constexpr int kTargetTop = kRampTop + kRampHeight;

// sRGB: natural colours, mixed colours, primary and secondary colours, greys.
constexpr std::uint8_t kPatches[kRows * kColumns][3] = {
    {115, 82, 68},   {194, 150, 130}, {98, 122, 157}, {87, 108, 67},   {133, 128, 177},
    {103, 189, 170}, {214, 126, 44},  {80, 91, 166},  {193, 90, 99},   {94, 60, 108},
    {157, 188, 64},  {224, 163, 46},  {56, 61, 150},  {70, 148, 73},   {175, 54, 60},
    {231, 199, 31},  {187, 86, 149},  {8, 133, 161},  {243, 243, 242}, {200, 200, 200},
    {160, 160, 160}, {122, 122, 121}, {85, 85, 85},   {52, 52, 52},
};
constexpr float kBackground = 40 / 255.f;
constexpr float kDark = 50 / 255.f;
constexpr float kLight = 205 / 255.f;

constexpr Colour grey(float value) { return {value, value, value}; }

// Star of 16 rays, left; bars of 12 pixels down to 1, right. Light where true.
bool is_light_in_target(double x, double y) {
  constexpr double kCentreX = 60, kCentreY = kTargetTop + 48, kRays = 16;
  if (x < 2 * kCentreX) {
    return std::fmod(std::atan2(y - kCentreY, x - kCentreX) / std::numbers::pi * kRays + 2 * kRays,
                     2) < 1;
  }
  double left = 2 * kCentreX;
  for (const double width : {12., 8., 6., 4., 3., 2., 1.}) {
    const double right = left + 8 * width;
    if (x < right) return std::fmod((x - left) / width, 2) >= 1;
    left = right;
  }
  // What is left: a slanted edge.
  return x - (y - kTargetTop) / 5 > 435;
}

// sRGB values of the chart at a point.
Colour chart_at(double x, double y) {
  if (y >= kTargetTop) {
    const bool inside =
        y >= kTargetTop + kMargin && y < kHeight - kMargin && x >= kMargin && x < kWidth - kMargin;
    return grey(!inside ? kBackground : is_light_in_target(x, y) ? kLight : kDark);
  }
  if (y >= kRampTop) return grey(static_cast<float>(x / kWidth));

  const int column = static_cast<int>(x) / kCellWidth;
  const int row = static_cast<int>(y) / kCellHeight;
  const double left = x - column * kCellWidth;
  const double top = y - row * kCellHeight;
  const bool inside = left >= kMargin && left < kCellWidth - kMargin && top >= kMargin &&
                      top < kCellHeight - kMargin;
  if (!inside) return grey(kBackground);
  const auto& patch = kPatches[row * kColumns + column];
  return {static_cast<float>(patch[0]) / 255, static_cast<float>(patch[1]) / 255,
          static_cast<float>(patch[2]) / 255};
}

float light_of(float value) { return std::pow(value, 2.2f); }
float value_of(float light) { return std::pow(light, 1 / 2.2f); }

// Light of the chart, each pixel the average of 3 x 3 points of it.
const Picture& chart() {
  static const Picture light = [] {
    constexpr int kPoints = 3;
    Picture picture(kPixels);
    for (int i = 0; i < kWidth * kPoints * kHeight * kPoints; ++i) {
      const int column = i % (kWidth * kPoints);
      const int row = i / (kWidth * kPoints);
      const Colour point = chart_at((column + 0.5) / kPoints, (row + 0.5) / kPoints);
      Colour& sum = picture[index_of(column / kPoints, row / kPoints)];
      sum.red += light_of(point.red) / (kPoints * kPoints);
      sum.green += light_of(point.green) / (kPoints * kPoints);
      sum.blue += light_of(point.blue) / (kPoints * kPoints);
    }
    return picture;
  }();
  return light;
}

// --- From light to values ---

Picture exposed_chart(const PictureSettings& settings) {
  const double exposure = std::exp2(settings.expcomp / 6.0);
  const double exponent = 1 / (1 + settings.gamma / 10.0);
  const auto develop = [&](float light, double factor) {
    const auto exposed = static_cast<float>(std::clamp(light * exposure * factor, 0.0, 1.0));
    return std::pow(value_of(exposed), static_cast<float>(exponent));
  };
  Picture picture = chart();
  for (Colour& pixel : picture) {
    pixel = {develop(pixel.red, settings.red_factor), develop(pixel.green, 1),
             develop(pixel.blue, settings.blue_factor)};
  }
  return picture;
}

// White, yellow, cyan, green, magenta, red, blue, black.
Picture colour_bars() {
  constexpr int kBars = 8;
  Picture picture(kPixels);
  for (std::size_t i = 0; i < picture.size(); ++i) {
    const auto bar = i % kWidth * kBars / kWidth;
    const auto off = [bar](unsigned bit) { return (bar & bit) != 0 ? 0.f : 1.f; };
    picture[i] = {off(2), off(4), off(1)};
  }
  return picture;
}

// --- Luma and chroma ---

// Maps luma; at 0 and 1 every curve is fixed.
class LumaCurve {
 public:
  explicit LumaCurve(const std::array<std::uint8_t, 10>& values) {
    const bool loaded = std::ranges::any_of(values, [](std::uint8_t value) { return value != 0; });
    for (std::size_t i = 0; i < values.size(); ++i) {
      const float x = static_cast<float>(0x38 + 0x10 * i) / 255;
      const float y = loaded ? std::max(static_cast<float>(values[i]) / 255, points_[i].y) : x;
      points_[i + 1] = {x, y};
    }
  }

  float at(float x) const {
    const auto after = std::ranges::find_if(points_.begin() + 1, points_.end() - 1,
                                            [x](Point p) { return x < p.x; });
    const Point a = *(after - 1);
    return a.y + (after->y - a.y) * (x - a.x) / (after->x - a.x);
  }

 private:
  struct Point {
    float x, y;
  };
  std::array<Point, 12> points_ = {{{0, 0}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {1, 1}}};
};

// Luma and the two colour differences, as ITU-R BT.601 weighs them.
struct Luma {
  float y, b, r;
};
constexpr float kRedWeight = 0.299f, kBlueWeight = 0.114f,
                kGreenWeight = 1 - kRedWeight - kBlueWeight;

Luma to_luma(const Colour& pixel) {
  const float y = kRedWeight * pixel.red + kGreenWeight * pixel.green + kBlueWeight * pixel.blue;
  return {y, pixel.blue - y, pixel.red - y};
}

Colour to_colour(const Luma& pixel) {
  const float green = pixel.y - (kRedWeight * pixel.r + kBlueWeight * pixel.b) / kGreenWeight;
  return {pixel.y + pixel.r, green, pixel.y + pixel.b};
}

// Average luma of a pixel and its neighbours; at the border of those that there are.
float average_around(const std::vector<Luma>& picture, int x, int y) {
  float sum = 0;
  int count = 0;
  for (int v = std::max(y - 1, 0); v <= std::min(y + 1, kHeight - 1); ++v) {
    for (int u = std::max(x - 1, 0); u <= std::min(x + 1, kWidth - 1); ++u, ++count) {
      sum += picture[index_of(u, v)].y;
    }
  }
  return sum / static_cast<float>(count);
}

Picture processed(const Picture& picture, const PictureSettings& settings) {
  std::vector<Luma> in;
  const LumaCurve curve(settings.luma_curve);
  for (const Colour& pixel : picture) {
    in.push_back(to_luma(pixel));
    in.back().y = curve.at(in.back().y);
  }

  const float sharpening = static_cast<float>(settings.sharpness - kNeutral) / kNeutral;
  const float edge_gain = sharpening > 0 ? 2 * sharpening : sharpening;
  const float contrast = static_cast<float>(settings.contrast) / kNeutral;
  const float brightness = static_cast<float>(settings.brightness - kNeutral) / 255;
  const float saturation =
      settings.monochrome ? 0 : static_cast<float>(settings.saturation) / kNeutral;
  const double angle = settings.hue * std::numbers::pi / 2 / kNeutral;
  const auto cosine = saturation * static_cast<float>(std::cos(angle));
  const auto sine = saturation * static_cast<float>(std::sin(angle));

  Picture out;
  for (std::size_t i = 0; i < in.size(); ++i) {
    const Luma& pixel = in[i];
    const int x = static_cast<int>(i) % kWidth;
    const int y = static_cast<int>(i) / kWidth;
    const float sharp =
        edge_gain == 0 ? pixel.y : pixel.y + edge_gain * (pixel.y - average_around(in, x, y));
    out.push_back(
        to_colour({(sharp - 0.5f) * contrast + 0.5f + brightness, cosine * pixel.b - sine * pixel.r,
                   sine * pixel.b + cosine * pixel.r}));
  }
  return out;
}

std::vector<std::uint8_t> to_bytes(const Picture& picture, bool negative) {
  std::vector<std::uint8_t> bytes;
  for (const Colour& pixel : picture) {
    for (const float value : {pixel.red, pixel.green, pixel.blue}) {
      const auto byte = static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.f, 1.f) * 255));
      bytes.push_back(negative ? static_cast<std::uint8_t>(255 - byte) : byte);
    }
  }
  return bytes;
}

}  // namespace

PictureSettings picture_settings(const Switchboard& board) {
  using registers::address;
  using registers::bits;
  const auto signed_reg = [&](Address at) {
    return static_cast<int>(static_cast<std::int8_t>(board.reg(at)));
  };
  const auto level = [&](Address at) { return board.reg(at) == 0 ? kNeutral : board.reg(at); };
  const int mode = board.reg(bits("wb_mode"));
  // Of the gain that the mode looks at, if it looks at any.
  const auto factor = [&](Address manual, Address preset1, std::uint32_t measured) {
    const int gain = mode == registers::kWbManual    ? board.word(manual)
                     : mode == registers::kWbPreset1 ? board.word(preset1)
                                                     : 0;
    return gain == 0 ? 1.0 : static_cast<double>(measured) / gain;
  };

  PictureSettings settings{
      .expcomp = signed_reg(address("expcomp")),
      .red_factor =
          factor(address("manual_red_gain_lo"), address("preset1_red_gain_lo"), board.onepush_red),
      .blue_factor = factor(address("manual_blue_gain_lo"), address("preset1_blue_gain_lo"),
                            board.onepush_blue),
      .gamma = std::min<int>(board.reg(address("gamma")), 6),
      .luma_curve = {},
      .brightness = level(address("brightness")),
      .contrast = level(address("contrast")),
      .sharpness = level(address("sharpness")),
      .saturation = level(address("saturation")),
      .hue = signed_reg(address("hue")),
      .monochrome = board.reg(bits("monochrome")) != 0,
      .negative = board.reg(bits("negative")) != 0,
      .colorbar = board.reg(address("colorbar")) != 0};
  for (std::size_t i = 0; i < settings.luma_curve.size(); ++i)
    settings.luma_curve[i] = board.reg(address("ygamma_0") + i);
  return settings;
}

void write_picture(const PictureSettings& settings, const std::string& path) {
  const Picture picture =
      processed(settings.colorbar ? colour_bars() : exposed_chart(settings), settings);
  const std::vector<std::uint8_t> bytes = to_bytes(picture, settings.negative);

  constexpr int kChannels = 3;
  const auto append = [](void* to, void* data, int size) {
    static_cast<std::string*>(to)->append(static_cast<const char*>(data),
                                          static_cast<std::size_t>(size));
  };
  std::string png;
  if (stbi_write_png_to_func(append, &png, kWidth, kHeight, kChannels, bytes.data(),
                             kWidth * kChannels) == 0)
    throw std::bad_alloc();
  workstation::replace_file(path, png);
}

}  // namespace ipcam::sim
