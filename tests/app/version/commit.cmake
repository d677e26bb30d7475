# cmake -D SCRIPT=<Commit.cmake> -D WORK=<folder> -P commit.cmake
#
# What Commit.cmake writes of a repository, of one whose HEAD moves, with changes, of a folder inside
# another repository and of a folder without any.
find_program(git git)
if(NOT git)
  message("SKIPPED: there is no git")
  return()
endif()

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output
    OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT status EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\nends with ${status}:\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

# WORK/tree is no part of the repository that WORK may be in.
set(ENV{GIT_CEILING_DIRECTORIES} ${WORK})
set(tree ${WORK}/tree)
function(git)
  run(${git} -C ${tree} -c user.name=N -c user.email=n@example.org -c commit.gpgsign=false ${ARGN})
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect folder commit)
  run(${CMAKE_COMMAND} -D SOURCE=${folder} -D FILE=${WORK}/commit.cpp -P ${SCRIPT})
  file(READ ${WORK}/commit.cpp text)
  if(NOT text MATCHES "\nconst char\\* const kCommit = \"([^\"]*)\";\n" OR NOT CMAKE_MATCH_1 STREQUAL commit)
    message(FATAL_ERROR "expected \"${commit}\" of ${folder}, found: ${text}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${tree}/inner)
file(WRITE ${tree}/inner/file "one\n")
expect(${tree} "unknown")
git(init -q)
expect(${tree} "unknown")  # no commit yet
git(add .)
git(commit -q -m one)
git(rev-parse --short=12 HEAD)
set(first ${output})
expect(${tree}/inner "unknown")
expect(${tree} "${first}")

# Not written again where nothing is new.
run(touch -d "2001-02-03 04:05:06" ${WORK}/commit.cpp)
expect(${tree} "${first}")
file(TIMESTAMP ${WORK}/commit.cpp year "%Y")
if(NOT year EQUAL 2001)
  message(FATAL_ERROR "the file was written again, in ${year}")
endif()

file(WRITE ${tree}/inner/file "two\n")
expect(${tree} "${first}, with changes")
file(WRITE ${tree}/new "not in the repository\n")
git(commit -q -a -m two)
git(rev-parse --short=12 HEAD)
if("${output}" STREQUAL first)
  message(FATAL_ERROR "HEAD has not moved")
endif()
expect(${tree} "${output}")
