// One extraction run, for timing: extract_run CERT PACKAGE DEST.
// Exits 0 when the package was extracted and verified, 1 otherwise; the
// run's progress lines go to standard output.
#include <cstdio>

#include "extract/run_state.h"

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: %s CERT PACKAGE DEST\n", argv[0]);
    return 2;
  }
  return ExtractWithHash(argv[1], argv[2], argv[3], nullptr, false) == KALU_NO_ERR ? 0 : 1;
}
