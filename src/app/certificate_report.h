#ifndef RATSEG_APP_CERTIFICATE_REPORT_H
#define RATSEG_APP_CERTIFICATE_REPORT_H

#include <iosfwd>

namespace namespace_ratseg {

struct Params;
struct Statistics;

// What a run with -tolerance came to: whether and when it stopped, both energies, the lower bound
// and the gaps, and in words what they say of the labelings. Where a gap is infinite, why.
void printCertificate(std::ostream& out, const Params& par, const Statistics& statistics);

}  // namespace namespace_ratseg

#endif
