#ifndef RATSEG_APP_DATATERM_OUTPUT_FILES_H
#define RATSEG_APP_DATATERM_OUTPUT_FILES_H

#include <optional>
#include <string>
#include <vector>

#include "app/dataterm/options.h"
#include "app/dataterm/problem.h"
#include "models/kept_model.h"

namespace namespace_ratseg {

// Throws InputError where a file to be written is also read, or named twice: hand-drawn scribbles
// are not to be lost by a slip of the fingers.
void refuseOverwriting(const DatatermOptions& options);

// The names of the files that are written.
std::vector<std::string> outputNames(const DatatermOptions& options);

// Writes all files; none takes its place unless all are made. Throws InputError.
void writeFiles(const DatatermOptions& options, const std::vector<float>& rho,
                const Problem& problem, const std::optional<KeptModel>& model);

// A number as it stands in the proportions file and in reports.
std::string shareText(double value);

}  // namespace namespace_ratseg

#endif
