#ifndef RATSEG_APP_CERTIFICATE_REPORT_H
#define RATSEG_APP_CERTIFICATE_REPORT_H

#include <iosfwd>

namespace namespace_ratseg {

struct Params;
struct Statistics;

// Reports the result of a run with -tolerance: whether and when it stopped, both energies, the
// lower bound and the gaps, what they say of the labelings in words, and why a gap is infinite.
void printCertificate(std::ostream& out, const Params& par, const Statistics& statistics);

}  // namespace namespace_ratseg

#endif
