#ifndef RATSEG_FILES_SAMPLES_H
#define RATSEG_FILES_SAMPLES_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace namespace_ratseg {

// What the numbers of a file are.
enum class SampleKind { unsignedInteger, signedInteger, floating };

struct SampleType {
  SampleKind kind = SampleKind::unsignedInteger;
  int bits = 8;
  bool operator==(const SampleType&) const = default;
};

// "16-bit unsigned integers"
std::string sampleText(const SampleType& type);

// True of integers of 1 to 32 and 64 bits and of floats of 16, 32 and 64.
bool samplesAreKnown(const SampleType& type);

// Bytes that count samples take in a row, the last one filled up.
std::size_t sampleBytes(const SampleType& type, std::size_t count);

// Turns count samples of a known type into floats. Those of 8, 16, 32 and 64 bits are in the
// machine's order of bytes; those of other sizes follow each other bit by bit, the highest first.
void toFloats(const SampleType& type, const std::uint8_t* bytes, std::size_t count, float* to);

// Swaps the bytes of count elements of so many bytes each.
void swapBytes(std::uint8_t* bytes, std::size_t count, std::size_t each);

}  // namespace namespace_ratseg

#endif
