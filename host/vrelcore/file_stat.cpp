#include <sys/stat.h>

#include "vrelcore/vlibc.h"

int VLIBCFileExist(const char* path) {
  struct stat st;
  return stat(path, &st) == 0 ? 1 : 0;
}

// Everything is always filled in: the kernel gives it all in one call.
int VLIBCFileLStat(const char* path, unsigned int /*fields*/, struct stat* st) {
  struct stat found;
  if (lstat(path, &found) != 0) return -1;
  *st = found;
  return 0;
}
