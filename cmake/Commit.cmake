# cmake -D SOURCE=<folder> -D FILE=<file.cpp> -P Commit.cmake
#
# Writes into FILE, as C++, which commit the sources in SOURCE are of and whether they have changes;
# "unknown" where SOURCE is no git repository of its own, as when it comes from a tarball. A file that
# says so already stays as it is, with its time.
cmake_minimum_required(VERSION 3.25)

find_program(git git)
function(ask_git answer)
  execute_process(COMMAND ${git} -C ${SOURCE} ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output
    ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT status EQUAL 0)
    set(output "failed")
  endif()
  set(${answer} "${output}" PARENT_SCOPE)
endfunction()

set(commit unknown)
if(git)
  ask_git(inside rev-parse --show-prefix)  # empty in the topmost folder
  ask_git(head rev-parse --verify --short=12 HEAD)
  ask_git(changes --no-optional-locks status --porcelain --untracked-files=no)
  if(inside STREQUAL "" AND head MATCHES "^[0-9a-f]+$")
    set(commit ${head})
    if(NOT changes STREQUAL "")
      string(APPEND commit ", with changes")
    endif()
  endif()
endif()

set(text "#include \"app/version/commit.h\"

namespace namespace_ratseg {
const char* const kCommit = \"${commit}\";
}
")
set(found "")
if(EXISTS ${FILE})
  file(READ ${FILE} found)
endif()
if(NOT found STREQUAL text)
  file(WRITE ${FILE} "${text}")
endif()
