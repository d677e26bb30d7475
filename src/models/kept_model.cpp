#include "models/kept_model.h"

#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace namespace_ratseg {

namespace {

static_assert(std::endian::native == std::endian::little);

constexpr std::string_view kMagic = "ratsegMD";
constexpr std::uint32_t kVersion = 1;
constexpr std::uint32_t kMostLabels = 255;
constexpr std::size_t kHeader = kMagic.size() + 2 * sizeof(std::uint32_t) + sizeof(std::uint64_t);

class Writer {
 public:
  template <class T>
  void put(T value) {
    bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  template <class T>
  void putAll(const std::vector<T>& values) {
    put(static_cast<std::uint64_t>(values.size()));
    bytes_.append(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T));
  }
  const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {}

  template <class T>
  T get() {
    T value;
    take(&value, 1);
    return value;
  }
  template <class T>
  std::vector<T> getAll() {
    const auto count = get<std::uint64_t>();
    if (count > bytes_.size() / sizeof(T)) throw NoModel("has other contents than it says");
    std::vector<T> values(count);
    take(values.data(), count);
    return values;
  }
  bool atEnd() const { return bytes_.empty(); }

 private:
  template <class T>
  void take(T* values, std::size_t count) {
    if (bytes_.size() < count * sizeof(T)) throw NoModel("has other contents than it says");
    if (count > 0) std::memcpy(values, bytes_.data(), count * sizeof(T));
    bytes_.remove_prefix(count * sizeof(T));
  }

  std::string_view bytes_;
};

std::uint32_t checksum(std::string_view bytes) {
  uLong sum = crc32_z(0, nullptr, 0);
  sum = crc32_z(sum, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size());
  return static_cast<std::uint32_t>(sum);
}

void require(bool condition, const char* what) {
  if (!condition) throw NoModel(std::string("holds ") + what);
}

// What was packed, behind the header that vouches for it.
std::string_view payloadOf(std::string_view bytes) {
  if (bytes.substr(0, kMagic.size()) != kMagic) throw NoModel("is no kept model");
  if (bytes.size() < kHeader) throw NoModel("ends early");
  Reader header(bytes.substr(kMagic.size()));
  const auto version = header.get<std::uint32_t>();
  if (version != kVersion) {
    throw NoModel("has version " + std::to_string(version) + " of the format, not " +
                  std::to_string(kVersion));
  }
  const auto sum = header.get<std::uint32_t>();
  const auto length = header.get<std::uint64_t>();
  const std::string_view payload = bytes.substr(kHeader);
  if (payload.size() < length) throw NoModel("ends early");
  if (payload.size() > length) throw NoModel("goes on behind its end");
  if (checksum(payload) != sum) throw NoModel("is damaged: its checksum is wrong");
  return payload;
}

bool isIn(float value, float least, float most) { return value >= least && value <= most; }

void checkNumbers(const KeptModel& model) {
  const Learned& learned = model.learned;
  require(model.kind <= ChannelKind::other, "an unknown kind of picture");
  const bool planesFit = model.kind == ChannelKind::grey     ? model.planes == 1
                         : model.kind == ChannelKind::colour ? model.planes == 3
                                                             : model.planes > 0;
  require(planesFit && model.planes <= 65535, "a number of channels that cannot be");
  require(isIn(model.sigma, 0, 1e30f) && model.sigma > 0, "a sigma that cannot be");
  require(isIn(learned.calibration.temperature, 1e-3f, 1e3f), "a temperature that cannot be");
  require(isIn(learned.mix, 0, 1), "a mix that cannot be");
  require(model.labelCount >= 1 && model.labelCount <= kMostLabels, "a wrong number of labels");
  const auto& labels = learned.labels;
  require(
      !labels.empty() && labels.back() < model.labelCount &&
          std::adjacent_find(labels.begin(), labels.end(), std::greater_equal<>()) == labels.end(),
      "labels that cannot be");
}

void checkForest(const KeptModel& model) {
  const Forest& forest = model.learned.forest;
  require(forest.featureCount == FilterBank::featureCount(model.planes),
          "features of other filters");
  require(forest.isValid(), "a forest that is none");
}

}  // namespace

std::string packModel(const KeptModel& model) {
  const Learned& learned = model.learned;
  Writer payload;
  payload.put(static_cast<std::uint32_t>(model.kind));
  payload.put(model.planes);
  payload.put(model.labelCount);
  payload.put(model.sigma);
  payload.put(learned.calibration.temperature);
  payload.put(learned.mix);
  payload.putAll(learned.labels);
  payload.put(static_cast<std::uint32_t>(learned.forest.featureCount));
  payload.putAll(learned.forest.roots);
  payload.putAll(learned.forest.nodes);
  payload.putAll(learned.forest.leaves);
  for (std::size_t c = 0; c < learned.labels.size(); ++c) {
    payload.putAll(c < model.colours.size() ? model.colours[c]
                                            : std::vector<std::array<float, 3>>());
  }
  Writer file;
  for (const char letter : kMagic) file.put(letter);
  file.put(kVersion);
  file.put(checksum(payload.bytes()));
  file.put(static_cast<std::uint64_t>(payload.bytes().size()));
  return file.bytes() + payload.bytes();
}

KeptModel unpackModel(std::string_view bytes) {
  Reader payload(payloadOf(bytes));
  KeptModel model;
  Learned& learned = model.learned;
  model.kind = static_cast<ChannelKind>(payload.get<std::uint32_t>());
  model.planes = payload.get<std::uint32_t>();
  model.labelCount = payload.get<std::uint32_t>();
  model.sigma = payload.get<float>();
  learned.calibration.temperature = payload.get<float>();
  learned.mix = payload.get<float>();
  learned.labels = payload.getAll<std::uint32_t>();
  checkNumbers(model);
  Forest& forest = learned.forest;
  forest.featureCount = payload.get<std::uint32_t>();
  forest.classCount = learned.labels.size();
  forest.roots = payload.getAll<std::uint32_t>();
  forest.nodes = payload.getAll<Forest::Node>();
  forest.leaves = payload.getAll<float>();
  checkForest(model);
  for (std::size_t c = 0; c < learned.labels.size(); ++c) {
    model.colours.push_back(payload.getAll<std::array<float, 3>>());
    for (const auto& colour : model.colours.back()) {
      for (const float v : colour) require(isIn(v, 0, 1), "colours that are none");
    }
    require(learned.mix >= 1 || !model.colours.back().empty(), "a label without colours");
  }
  if (!payload.atEnd()) throw NoModel("has other contents than it says");
  return model;
}

}  // namespace namespace_ratseg
