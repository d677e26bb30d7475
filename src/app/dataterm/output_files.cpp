#include "app/dataterm/output_files.h"

#include <cerrno>
#include <cstdio>
#include <functional>
#include <memory>
#include <utility>

#include "app/dataterm/input_error.h"
#include "app/dataterm/input_picture.h"
#include "util/file_replacement.h"
#include "util/fileio.h"
#include "util/same_file.h"

namespace namespace_ratseg {

namespace {

// The options that name files to be written, with their values.
std::vector<std::pair<std::string, std::string>> outputs(const DatatermOptions& options) {
  std::vector<std::pair<std::string, std::string>> named;
  const std::pair<const char*, const std::string*> all[] = {
      {"-out", &options.out},
      {"-proportions", &options.proportions},
      {"-save-model", &options.model.save},
      {"-picture-out", &options.files.pictureOut}};
  for (const auto& [option, name] : all) {
    if (!name->empty()) named.emplace_back(option, *name);
  }
  return named;
}

[[noreturn]] void failWriting(const std::string& option, const std::string& file,
                              const std::string& reason) {
  throw InputError(option + " " + file, "a file that can be written", reason);
}

// Result files, made but not in their places yet.
class MadeFiles {
 public:
  // make gives the file its content; false with the reason.
  using Make = std::function<bool(FileReplacement& file, std::string& reason)>;

  void add(const std::string& option, const std::string& name, const Make& make) {
    auto file = std::make_unique<FileReplacement>(name);
    std::string reason;
    if (!make(*file, reason)) failWriting(option, name, reason);
    files_.push_back({option, name, std::move(file)});
  }
  void addText(const std::string& option, const std::string& name, const std::string& bytes) {
    add(option, name, [&](FileReplacement& file, std::string& reason) {
      const auto write = [&](int descriptor) {
        return writeAll(descriptor, bytes.data(), bytes.size());
      };
      if (file.make(write)) return true;
      reason = textOfErrno(errno);
      return false;
    });
  }
  void finish() {
    std::vector<FileReplacement*> files;
    for (const File& one : files_) files.push_back(one.replacement.get());
    const std::vector<int> errors = finishTogether(files);
    for (std::size_t k = 0; k < files_.size(); ++k) {
      if (errors[k] != 0) failWriting(files_[k].option, files_[k].name, textOfErrno(errors[k]));
    }
  }

 private:
  struct File {
    std::string option, name;
    std::unique_ptr<FileReplacement> replacement;
  };
  std::vector<File> files_;
};

std::string proportionsText(const std::vector<double>& shares, double spread) {
  std::string text;
  for (double share : shares) text += shareText(share) + " " + shareText(spread) + "\n";
  return text;
}

}  // namespace

std::string shareText(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", value);
  return text;
}

std::vector<std::string> outputNames(const DatatermOptions& options) {
  std::vector<std::string> names;
  for (const auto& [option, name] : outputs(options)) names.push_back(name);
  return names;
}

void refuseOverwriting(const DatatermOptions& options) {
  std::vector<std::string> inputs = {
      options.image,      options.scribbles,   options.scribbledImage,     options.truth,
      options.model.file, options.files.costs, options.files.probabilities};
  for (const auto& [label, file] : options.model.forbidden) inputs.push_back(file);
  for (const auto& [option, out] : outputs(options)) {
    for (const std::string& in : inputs) {
      if (in.empty() || !sameFile(out, in)) continue;
      throw InputError(option + " " + out, "a file of its own", "that it is " + in + " as well");
    }
    inputs.push_back(out);
  }
}

void writeFiles(const DatatermOptions& options, const std::vector<float>& rho,
                const Problem& problem, const std::optional<KeptModel>& model) {
  MadeFiles made;
  made.add("-out", options.out, [&](FileReplacement& file, std::string& reason) {
    // Level 1: higher ones take several times as long and save little on floats.
    if (FileIO::makeArray(file, rho.data(), rho.size(), 1)) return true;
    reason = textOfErrno(errno);
    return false;
  });
  if (!problem.shares.empty()) {
    made.addText("-proportions", options.proportions,
                 proportionsText(problem.shares, options.spread));
  }
  if (!options.model.save.empty()) {
    if (!model) {
      throw InputError("-save-model", "a model of at least two marked labels", "colours alone");
    }
    made.addText("-save-model", options.model.save, packModel(*model));
  }
  if (!options.files.pictureOut.empty()) {
    made.add("-picture-out", options.files.pictureOut,
             [&](FileReplacement& file, std::string& reason) {
               return makePicture(file, problem.picture, &reason);
             });
  }
  made.finish();
}

}  // namespace namespace_ratseg
