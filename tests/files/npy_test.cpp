#include "files/npy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "files/file_error.h"
#include "files/npy_header.h"

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const CheckElements kAny = [](std::size_t) {};

// A file of version 1 with this header and these bytes behind it.
std::string npy(const std::string& header, const std::string& data) {
  std::string file("\x93NUMPY\x01\x00", 8);
  file += {static_cast<char>(header.size() & 255), static_cast<char>(header.size() >> 8)};
  return file + header + data;
}

std::string floats(const std::vector<float>& values) {
  std::string bytes(values.size() * sizeof(float), '\0');
  std::memcpy(bytes.data(), values.data(), bytes.size());
  return bytes;
}

std::string errorOf(const std::string& file) {
  try {
    readNpy(file, kAny);
  } catch (const FileError& error) {
    return error.what();
  }
  return "none";
}

TEST(Npy, ReadsShapeOrderAndElements) {
  const std::string file = npy("{'descr': '<f4', 'fortran_order': True, 'shape': (2, 3), }\n",
                               floats({1, 2, 3, 4, 5, 6}));
  const Array array = readNpy(file, kAny);
  EXPECT_THAT(array.shape, ElementsAre(2, 3));
  EXPECT_TRUE(array.fortranOrder);
  EXPECT_THAT(array.values, ElementsAre(1, 2, 3, 4, 5, 6));
  EXPECT_EQ(array.samples, (SampleType{SampleKind::floating, 32}));
}

TEST(Npy, KeysMayStandInAnyOrderAndForm) {
  for (const char* header :
       {"{\"shape\":(2,),\"descr\":\"<u2\",\"fortran_order\":False}",
        "{ 'fortran_order' : False , 'shape' : ( 2 , ) , 'descr' : '<u2' , }   \n",
        "{'descr': '<u2', 'fortran_order': False, 'shape': (2L,)}"}) {
    EXPECT_THAT(readNpy(npy(header, std::string("\x01\x00\x00\x02", 4)), kAny).values,
                ElementsAre(1, 512))
        << header;
  }
}

TEST(Npy, CutAtAnyByteIsAnError) {
  const std::string whole = npy("{'descr': '<f4', 'fortran_order': False, 'shape': (2, 3), }\n",
                                floats({1, 2, 3, 4, 5, 6}));
  ASSERT_EQ(errorOf(whole), "none");
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const std::string error = errorOf(whole.substr(0, size));
    EXPECT_NE(error, "none") << size;
    if (size >= 6) {
      EXPECT_THAT(error, HasSubstr("ends early")) << size;
    }
  }
  EXPECT_EQ(errorOf(whole.substr(0, whole.size() - 1)), "ends early: 5 of 6 elements are there");
  EXPECT_EQ(errorOf(whole + "more"), "none");
}

TEST(Npy, HeadersThatAreNoneAreErrors) {
  for (const char* header :
       {"", "{", "{}", "{'descr': '<f4'}", "{'descr': '<f4', 'fortran_order': False, 'shape': ()",
        "{'descr': '<f4', 'descr': '<f4', 'fortran_order': False, 'shape': ()}",
        "{'descr': '<f4', 'fortran_order': 0, 'shape': ()}",
        "{'descr': '<f4', 'fortran_order': False, 'shape': (-1,)}",
        "{'descr': '<f4', 'fortran_order': False, 'shape': (1.5,)}",
        "{'descr': '<f4', 'fortran_order': False, 'shape': [1]}",
        "{'descr': '<f4', 'fortran_order': False, 'shape': (18446744073709551616,)}",
        "{'descr': '<f4', 'fortran_order': False, 'shape': (1,)} x",
        "{'descr': '<f4', 'fortran_order': False, 'shape': (1,), 'more': 1}",
        "{'descr': __import__('os').system('true'), 'fortran_order': False, 'shape': (1,)}"}) {
    EXPECT_EQ(errorOf(npy(header, std::string(64, '\0'))),
              "is damaged: its header is none of numpy's")
        << header;
  }
}

TEST(Npy, SizesWhoseProductIsTooLargeAreErrors) {
  for (const char* shape :
       {"(4294967296, 4294967296)", "(18446744073709551615, 2)", "(9223372036854775808, 2, 1)"}) {
    EXPECT_THAT(errorOf(npy("{'descr': '<f4', 'fortran_order': False, 'shape': " +
                                std::string(shape) + ", }",
                            std::string(64, '\0'))),
                HasSubstr("has sizes that no memory holds"))
        << shape;
  }
  EXPECT_EQ(errorOf(npy("{'descr': '<f8', 'fortran_order': False, 'shape': (1000000, 1000000), }",
                        std::string(64, '\0'))),
            "ends early: 8 of 1000000000000 elements are there");
}

TEST(Npy, VersionsThatAreNotKnownAreErrors) {
  std::string file = npy("{'descr': '<f4', 'fortran_order': False, 'shape': (), }", floats({1}));
  file[6] = 4;
  EXPECT_EQ(errorOf(file), "is of version 4 of numpy's format, but 1 to 3 are read");
  file[6] = 2;  // has 4 bytes for the header's length: the first two letters count
  EXPECT_EQ(errorOf(file), "is damaged: its header has more than 64 KiB");
}

TEST(Npy, AsksBeforeItTakesMemory) {
  const std::string file =
      npy("{'descr': '<f4', 'fortran_order': False, 'shape': (3,), }", floats({1, 2, 3}));
  EXPECT_THROW(readNpy(file,
                       [](std::size_t count) {
                         if (count == 3) throw std::length_error("three");
                       }),
               std::length_error);
}

}  // namespace
}  // namespace namespace_ratseg
