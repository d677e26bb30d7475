#include "files/samples.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace namespace_ratseg {

namespace {

float halfToFloat(std::uint16_t half) {
  const int exponent = half >> 10 & 31;
  const int fraction = half & 1023;
  float value = 0;
  if (exponent == 31) {
    value = fraction == 0 ? std::numeric_limits<float>::infinity()
                          : std::numeric_limits<float>::quiet_NaN();
  } else if (exponent == 0) {
    value = std::ldexp(static_cast<float>(fraction), -24);
  } else {
    value = std::ldexp(static_cast<float>(fraction + 1024), exponent - 25);
  }
  return (half & 0x8000) != 0 ? -value : value;
}

template <class T>
void convert(const std::uint8_t* bytes, std::size_t count, float* to) {
  for (std::size_t k = 0; k < count; ++k) {
    T value;
    std::memcpy(&value, bytes + k * sizeof(T), sizeof(T));
    to[k] = static_cast<float>(value);
  }
}

void convertHalves(const std::uint8_t* bytes, std::size_t count, float* to) {
  for (std::size_t k = 0; k < count; ++k) {
    std::uint16_t half;
    std::memcpy(&half, bytes + 2 * k, 2);
    to[k] = halfToFloat(half);
  }
}

// Samples bit by bit.
void convertBits(const SampleType& type, const std::uint8_t* bytes, std::size_t count, float* to) {
  const auto bits = static_cast<unsigned>(type.bits);
  const bool isSigned = type.kind == SampleKind::signedInteger;
  std::uint64_t buffer = 0;
  unsigned have = 0;
  for (std::size_t k = 0; k < count; ++k) {
    for (; have < bits; have += 8) buffer = buffer << 8 | *bytes++;
    have -= bits;
    const std::uint64_t value = buffer >> have & ((std::uint64_t{1} << bits) - 1);
    const bool negative = isSigned && (value >> (bits - 1) & 1) != 0;
    const double range = std::ldexp(1.0, static_cast<int>(bits));
    to[k] = static_cast<float>(static_cast<double>(value) - (negative ? range : 0));
  }
}

template <class Unsigned, class Signed>
void convertIntegers(SampleKind kind, const std::uint8_t* bytes, std::size_t count, float* to) {
  if (kind == SampleKind::signedInteger) {
    convert<Signed>(bytes, count, to);
  } else {
    convert<Unsigned>(bytes, count, to);
  }
}

}  // namespace

std::string sampleText(const SampleType& type) {
  const char* const names[] = {"unsigned integers", "signed integers", "floats"};
  return std::to_string(type.bits) + "-bit " + names[static_cast<int>(type.kind)];
}

bool samplesAreKnown(const SampleType& type) {
  if (type.kind == SampleKind::floating) {
    return type.bits == 16 || type.bits == 32 || type.bits == 64;
  }
  return (type.bits >= 1 && type.bits <= 32) || type.bits == 64;
}

std::size_t sampleBytes(const SampleType& type, std::size_t count) {
  return (count * static_cast<std::size_t>(type.bits) + 7) / 8;
}

void toFloats(const SampleType& type, const std::uint8_t* bytes, std::size_t count, float* to) {
  const bool floating = type.kind == SampleKind::floating;
  switch (type.bits) {
    case 8:
      return convertIntegers<std::uint8_t, std::int8_t>(type.kind, bytes, count, to);
    case 16:
      if (floating) return convertHalves(bytes, count, to);
      return convertIntegers<std::uint16_t, std::int16_t>(type.kind, bytes, count, to);
    case 32:
      if (floating) return convert<float>(bytes, count, to);
      return convertIntegers<std::uint32_t, std::int32_t>(type.kind, bytes, count, to);
    case 64:
      if (floating) return convert<double>(bytes, count, to);
      return convertIntegers<std::uint64_t, std::int64_t>(type.kind, bytes, count, to);
    default:
      convertBits(type, bytes, count, to);
  }
}

void swapBytes(std::uint8_t* bytes, std::size_t count, std::size_t each) {
  for (std::size_t k = 0; k < count; ++k) std::reverse(bytes + k * each, bytes + (k + 1) * each);
}

}  // namespace namespace_ratseg
