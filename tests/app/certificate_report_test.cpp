#include "app/certificate_report.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>

#include "algorithms/rat_segments/alg/rat_seg.h"

namespace namespace_ratseg {
namespace {

Statistics figures() {
  Statistics s;
  s.iterations = s.certifiedIteration = 250;
  s.energy = 251263.074;
  s.labelingEnergy = 251733.459;
  s.bound = 251025.593;
  s.gap = 0.000945;
  s.labelingGap = 0.00282;
  s.toleranceMet = true;
  return s;
}

std::string report(const Statistics& s) {
  Params par;
  par.tolerance = 1e-3f;
  std::ostringstream out;
  printCertificate(out, par, s);
  return out.str();
}

TEST(CertificateReport, SaysWhenTheRunStoppedAndHowFarBothLabelingsAre) {
  EXPECT_EQ(report(figures()),
            "Stopped after 250 iterations: the gap is within the tolerance of 0.001\n"
            "    energy of the relaxed labeling: 251263.074\n"
            "    energy of the hard labeling:    251733.459\n"
            "    lower bound of all energies:    251025.593\n"
            "    gap: 0.000945 relaxed, 0.00282 hard\n"
            "    relaxed labeling: within 0.0945 % of the optimum\n"
            "    hard labeling: within 0.282 % of the optimum\n");
}

TEST(CertificateReport, SaysThatTheToleranceWasNotMet) {
  Statistics s = figures();
  s.toleranceMet = false;
  EXPECT_EQ(report(s).find("The tolerance of 0.001 was not met in 250 iterations\n"), 0u);
}

TEST(CertificateReport, SaysWhyNothingIsKnown) {
  Statistics s = figures();
  s.toleranceMet = false;
  s.labelingEnergy = s.labelingGap = HUGE_VAL;
  EXPECT_NE(report(s).find("    energy of the hard labeling:    infinite\n"), std::string::npos);
  EXPECT_NE(report(s).find("    relaxed labeling: within 0.0945 % of the optimum\n"
                           "    hard labeling: nothing is known; it takes labels"),
            std::string::npos);
}

TEST(CertificateReport, SaysThatThereWasNoIteration) {
  EXPECT_EQ(report({}), "Nothing is certified: there was no iteration\n");
}

}  // namespace
}  // namespace namespace_ratseg
