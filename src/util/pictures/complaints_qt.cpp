#include <tiffio.h>

#include <QString>
#include <QtGlobal>
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "util/pictures/complaints.h"

namespace namespace_ratseg {

namespace {

std::mutex mutex;
std::vector<std::string> collected;

void collect(std::string text) {
  constexpr char kFromLibpng[] = "libpng warning: ";  // as Qt passes it on
  if (text.starts_with(kFromLibpng)) text.erase(0, sizeof kFromLibpng - 1);
  constexpr std::size_t kLongest = 200;
  if (text.size() > kLongest) text = text.substr(0, kLongest) + "...";
  const auto isControl = [](unsigned char c) { return c < ' ' || c == 0x7f; };
  std::replace_if(text.begin(), text.end(), isControl, '?');
  const std::lock_guard lock(mutex);
  if (std::find(collected.begin(), collected.end(), text) == collected.end()) {
    collected.push_back(text);
  }
}

void collectFromQt(QtMsgType type, const QMessageLogContext&, const QString& text) {
  if (type != QtDebugMsg && type != QtInfoMsg) collect(text.toStdString());
}

void collectFromTIFF(const char* where, const char* format, va_list values) {
  char text[512];
  std::vsnprintf(text, sizeof text, format, values);
  collect((where != nullptr ? std::string(where) + ": " : "") + text);
}

}  // namespace

struct Complaints::Before {
  QtMessageHandler qt;
  TIFFErrorHandler tiffError;
  TIFFErrorHandler tiffWarning;
};

Complaints::Complaints()
    : before_(new Before{qInstallMessageHandler(collectFromQt),
                         TIFFSetErrorHandler(collectFromTIFF),
                         TIFFSetWarningHandler(collectFromTIFF)}) {
  const std::lock_guard lock(mutex);
  collected.clear();
}

Complaints::~Complaints() {
  qInstallMessageHandler(before_->qt);
  TIFFSetErrorHandler(before_->tiffError);
  TIFFSetWarningHandler(before_->tiffWarning);
  delete before_;
}

void Complaints::add(const std::string& complaint) { collect(complaint); }

std::vector<std::string> Complaints::lines() const {
  const std::lock_guard lock(mutex);
  return collected;
}

}  // namespace namespace_ratseg
