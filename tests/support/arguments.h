// Operations that are called with arguments from a text.
#pragma once

#include <cstdio>
#include <istream>
#include <iterator>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "ipcam/camera/dsp_command.h"

namespace ipcam::test {

// A text between quotation marks; anything else is a null pointer.
struct Quoted {
  std::optional<std::string> text;

  operator unsigned char*() {
    return text ? reinterpret_cast<unsigned char*>(text->data()) : nullptr;
  }  // NOLINT
};
inline std::istream& operator>>(std::istream& in, Quoted& quoted) {
  const std::string rest(std::istreambuf_iterator<char>(in), {});
  const std::size_t begin = rest.find('"') + 1;
  if (begin != 0) quoted.text = rest.substr(begin, rest.rfind('"') - begin);
  return in;
}

// Hexadecimal bytes to the end, "08-27" for those from the one to the other.
struct Bytes {
  std::string all;
};
inline std::istream& operator>>(std::istream& in, Bytes& bytes) {
  for (std::string word; in >> word;) {
    const int first = std::stoi(word, nullptr, 16),
              last = std::stoi(word.substr(word.find('-') + 1), nullptr, 16);
    for (int byte = first; byte <= last; ++byte) bytes.all += static_cast<char>(byte);
  }
  return in;
}

// "81/0x0a=0x65", or without the value.
struct Register {
  unsigned category = 0, byte = 0, value = 0;
};
inline std::istream& operator>>(std::istream& in, Register& one) {
  std::string word;
  in >> word;
  std::sscanf(word.c_str(), "%u/%x=%x", &one.category, &one.byte, &one.value);
  return in;
}

inline std::istream& operator>>(std::istream& in, camera::s_ae_ptn& pattern) {
  return in >> pattern.mode >> pattern.shutter >> pattern.gain >> pattern.max_frm_exp;
}

// All that follow.
template <class Element>
std::istream& operator>>(std::istream& in, std::vector<Element>& list) {
  while ((in >> std::ws).peek() != EOF) in >> list.emplace_back();
  return in;
}

// Calls with arguments of these kinds; numbers that are missing are 0.
template <class... Arguments, class Call>
int call_with(std::istream& in, const Call& call) {
  std::tuple<std::conditional_t<std::is_same_v<Arguments, unsigned char*>, Quoted,
                                std::remove_cvref_t<Arguments>>...>
      arguments;
  std::apply([&](auto&... argument) { ((in >> argument), ...); }, arguments);
  return std::apply(call, arguments);
}

// A lambda, and an operation of an object, as functions of a text.
template <class Lambda, class... Arguments>
auto reading(Lambda lambda, int (Lambda::*)(Arguments...) const) {
  return [lambda](std::istream& in) { return call_with<Arguments...>(in, lambda); };
}
template <class Lambda>
auto reading(Lambda lambda) {
  return reading(lambda, &Lambda::operator());
}
template <class Object, class... Arguments>
auto reading(int (Object::*operation)(Arguments...)) {
  return [operation](Object& object, std::istream& in) {
    return call_with<Arguments...>(
        in, [&](auto&... argument) { return (object.*operation)(argument...); });
  };
}

}  // namespace ipcam::test
