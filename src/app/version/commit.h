#ifndef RATSEG_APP_VERSION_COMMIT_H
#define RATSEG_APP_VERSION_COMMIT_H

namespace namespace_ratseg {

// The commit that this build is of, as git knew it when it was built; "unknown" where there was no
// repository. cmake/Commit.cmake writes the file that defines it.
extern const char* const kCommit;

}  // namespace namespace_ratseg

#endif
