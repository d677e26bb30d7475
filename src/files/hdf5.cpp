#include "files/hdf5.h"

#include <hdf5.h>

#include <utility>

#include "device/quoted.h"
#include "files/file_error.h"

namespace namespace_ratseg {

namespace {

// A handle of libhdf5 with the function that gives it back.
class Handle {
 public:
  Handle(hid_t id, herr_t (*close)(hid_t)) : id_(id), close_(close) {}
  ~Handle() {
    if (id_ >= 0) close_(id_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  operator hid_t() const { return id_; }
  bool ok() const { return id_ >= 0; }

 private:
  hid_t id_;
  herr_t (*close_)(hid_t);
};

// Keeps libhdf5 from printing.
class Silence {
 public:
  Silence() {
    H5Eget_auto2(H5E_DEFAULT, &print_, &data_);
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
  }
  ~Silence() { H5Eset_auto2(H5E_DEFAULT, print_, data_); }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  H5E_auto2_t print_ = nullptr;
  void* data_ = nullptr;
};

herr_t takeInnermost(unsigned, const H5E_error2_t* error, void* text) {
  if (error->desc != nullptr) *static_cast<std::string*>(text) = error->desc;
  return 0;
}

// ": " and what libhdf5 says of its last error.
std::string because() {
  std::string text;
  H5Ewalk2(H5E_DEFAULT, H5E_WALK_DOWNWARD, takeInnermost, &text);
  return text.empty() ? "" : ": " + inLine(text);
}

[[noreturn]] void failDamaged() { throw FileError("is a damaged HDF5 file" + because()); }

void checked(herr_t result) {
  if (result < 0) failDamaged();
}

hid_t openBytes(std::string_view file) {
  const Handle access(H5Pcreate(H5P_FILE_ACCESS), H5Pclose);
  checked(H5Pset_fapl_core(access, std::size_t{1} << 20, false));
  // libhdf5 copies the bytes.
  checked(H5Pset_file_image(access, const_cast<char*>(file.data()), file.size()));
  return H5Fopen("memory", H5F_ACC_RDONLY, access);
}

herr_t collectDataset(hid_t, const char* name, const H5O_info_t* info, void* names) {
  try {
    if (info->type == H5O_TYPE_DATASET) {
      static_cast<std::vector<std::string>*>(names)->emplace_back(name);
    }
    return 0;
  } catch (const std::exception&) {
    return -1;
  }
}

std::string chooseDataset(hid_t file) {
  std::vector<std::string> names;
  checked(H5Ovisit(file, H5_INDEX_NAME, H5_ITER_NATIVE, collectDataset, &names));
  for (const std::string& name : names) {
    if (name == "exported_data") return name;
  }
  if (names.size() == 1) return names[0];
  if (names.empty()) throw FileError("is an HDF5 file without a dataset");
  std::string list;
  for (std::size_t k = 0; k < names.size() && k < 5; ++k) {
    list += (k > 0 ? ", " : "") + inQuotes(names[k]);
  }
  throw FileError("has " + std::to_string(names.size()) + " datasets (" + list +
                  (names.size() > 5 ? ", ..." : "") + "), none of which is exported_data");
}

SampleType samplesOf(hid_t dataset) {
  const Handle type(H5Dget_type(dataset), H5Tclose);
  const auto bits = static_cast<int>(8 * H5Tget_size(type));
  const H5T_class_t kind = H5Tget_class(type);
  const bool isFloat = kind == H5T_FLOAT && (bits == 16 || bits == 32 || bits == 64);
  const bool isInteger =
      kind == H5T_INTEGER && (bits == 8 || bits == 16) && H5Tget_sign(type) == H5T_SGN_NONE;
  if (!isFloat && !isInteger) {
    throw FileError(
        "has a dataset of other elements than floats of 16, 32 or 64 bits and unsigned integers of "
        "8 or 16");
  }
  return {isFloat ? SampleKind::floating : SampleKind::unsignedInteger, bits};
}

std::vector<std::size_t> shapeOf(hid_t dataset) {
  const Handle space(H5Dget_space(dataset), H5Sclose);
  const int rank = H5Sget_simple_extent_ndims(space);
  if (rank < 0) failDamaged();
  std::vector<hsize_t> sizes(static_cast<std::size_t>(rank));
  if (rank > 0) H5Sget_simple_extent_dims(space, sizes.data(), nullptr);
  return {sizes.begin(), sizes.end()};
}

// The attribute's text, of fixed or variable length; "" where there is none.
std::string textAttribute(hid_t dataset, const char* name) {
  if (H5Aexists(dataset, name) <= 0) return "";
  const Handle attribute(H5Aopen(dataset, name, H5P_DEFAULT), H5Aclose);
  if (!attribute.ok()) return "";
  const Handle type(H5Aget_type(attribute), H5Tclose);
  const Handle space(H5Aget_space(attribute), H5Sclose);
  if (H5Tget_class(type) != H5T_STRING || H5Sget_simple_extent_npoints(space) != 1) return "";
  if (H5Tis_variable_str(type) > 0) {
    char* text = nullptr;
    if (H5Aread(attribute, type, &text) < 0 || text == nullptr) return "";
    std::string copy = text;
    H5free_memory(text);
    return copy;
  }
  std::string text(H5Tget_size(type), '\0');
  if (H5Aread(attribute, type, text.data()) < 0) return "";
  return text.c_str();
}

}  // namespace

bool beginsHdf5(std::string_view file) { return file.starts_with("\x89HDF\r\n\x1a\n"); }

Array readHdf5(std::string_view bytes, const CheckElements& check) {
  const Silence silence;
  const Handle file(openBytes(bytes), H5Fclose);
  if (!file.ok()) failDamaged();
  const Handle dataset(H5Dopen2(file, chooseDataset(file).c_str(), H5P_DEFAULT), H5Dclose);
  if (!dataset.ok()) failDamaged();
  Array array;
  array.samples = samplesOf(dataset);
  array.shape = shapeOf(dataset);
  array.axes = axesOfTags(textAttribute(dataset, "axistags"));
  const std::size_t count = elementCount(array.shape);
  check(count);
  array.values.resize(count);
  const bool read =
      H5Dread(dataset, H5T_NATIVE_FLOAT, H5S_ALL, H5S_ALL, H5P_DEFAULT, array.values.data()) >= 0;
  if (!read) failDamaged();
  return array;
}

}  // namespace namespace_ratseg
