#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "files/hdf5.h"

namespace namespace_ratseg {

std::string axesOfTags(const std::string& json) {
  const QJsonDocument tags = QJsonDocument::fromJson(QByteArray::fromStdString(json));
  std::string axes;
  for (const QJsonValue& axis : tags.object().value("axes").toArray()) {
    const std::string key = axis.toObject().value("key").toString().toStdString();
    if (key.size() != 1) return "";
    axes += key;
  }
  return axes;
}

}  // namespace namespace_ratseg
