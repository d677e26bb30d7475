#include "app/certificate_report.h"

#include <cmath>
#include <cstdio>
#include <ostream>
#include <string>

#include "algorithms/rat_segments/alg/rat_seg.h"

namespace namespace_ratseg {

namespace {

std::string number(const char* format, double value) {
  if (std::isinf(value)) return "infinite";
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

// Prints from its gap how far a labeling is from the optimum.
void printDistance(std::ostream& out, const char* labeling, double gap) {
  out << "    " << labeling << " labeling: ";
  if (std::isfinite(gap)) {
    out << "within " << number("%.3g", 100.0 * gap) << " % of the optimum\n";
  } else {
    out << "nothing is known; it takes labels where their cost forbids them, or its shares are not "
           "among those that the prior allows\n";
  }
}

}  // namespace

void printCertificate(std::ostream& out, const Params& par, const Statistics& s) {
  const std::string tolerance = number("%g", static_cast<double>(par.tolerance));
  if (s.certifiedIteration == 0) {
    out << "Nothing is certified: there was no iteration" << std::endl;
    return;
  }
  if (s.toleranceMet) {
    out << "Stopped after " << s.iterations << " iterations: the gap is within the tolerance of "
        << tolerance << "\n";
  } else {
    out << "The tolerance of " << tolerance << " was not met in " << s.iterations
        << " iterations\n";
  }
  out << "    energy of the relaxed labeling: " << number("%.9g", s.energy) << "\n"
      << "    energy of the hard labeling:    " << number("%.9g", s.labelingEnergy) << "\n"
      << "    lower bound of all energies:    " << number("%.9g", s.bound) << "\n"
      << "    gap: " << number("%.3g", s.gap) << " relaxed, " << number("%.3g", s.labelingGap)
      << " hard\n";
  printDistance(out, "relaxed", s.gap);
  printDistance(out, "hard", s.labelingGap);
  out.flush();
}

}  // namespace namespace_ratseg
