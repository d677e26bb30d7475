#ifndef RATSEG_TESTS_SUPPORT_FULL_DEVICE_H
#define RATSEG_TESTS_SUPPORT_FULL_DEVICE_H

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <string>

#include "support/temp_dir.h"

// A device on which there is never room; "" where there is none. Run by root, a faulty program
// could put a file in the place of the machine's own /dev/full, so root gets a node in dir.
inline std::string fullDevice(const TempDir& dir) {
  std::string path = "/dev/full";
  if (geteuid() == 0) {
    path = dir.file("full-device");
    if (mknod(path.c_str(), S_IFCHR | 0666, makedev(1, 7)) != 0) return "";
  }
  const int opened = open(path.c_str(), O_WRONLY);
  if (opened < 0) return "";  // also on file systems without devices
  close(opened);
  return path;
}

#endif
