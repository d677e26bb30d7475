#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tiffio.h>

#include <QtGlobal>
#include <string>

#include "util/pictures/complaints.h"

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;

int others = 0;
void count(QtMsgType, const QMessageLogContext&, const QString&) { ++others; }

TEST(Complaints, AreCollectedEachOnceWithoutControlCharacters) {
  Complaints complaints;
  EXPECT_THAT(complaints.lines(), ElementsAre());
  for (int k = 0; k < 3; ++k) {
    qWarning("a\n\x1b[31mline");
    qCritical("another");
    qDebug("what developers want to know");
    TIFFError("read", "%s of %d", "row", 7);
    TIFFWarning(nullptr, "odd");
    complaints.add("strange");
    qWarning("libpng warning: strange");
  }
  qWarning("%s", std::string(300, 'x').c_str());
  EXPECT_THAT(complaints.lines(), ElementsAre("a??[31mline", "another", "read: row of 7", "odd",
                                              "strange", std::string(200, 'x') + "..."));
}

TEST(Complaints, GoWhereTheyWentAfterwards) {
  const QtMessageHandler before = qInstallMessageHandler(count);
  others = 0;
  {
    const Complaints complaints;
    qWarning("first");
  }
  EXPECT_EQ(others, 0);
  qWarning("second");
  EXPECT_EQ(others, 1);
  EXPECT_THAT(Complaints().lines(), ElementsAre());
  qInstallMessageHandler(before);
}

}  // namespace
}  // namespace namespace_ratseg
