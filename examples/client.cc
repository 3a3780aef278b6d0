// A minimal client of the installed extract_verify library: one extraction
// run, as a head unit's update manager makes it.
//
//   client CERT PACKAGE DEST [FILE]
//
// verifies PACKAGE against the trusted certificates in CERT and unpacks it
// into the existing directory DEST (only FILE, when given).
#include <cstdio>

#include "extract_verify.h"

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5) {
    fprintf(stderr, "usage: %s CERT PACKAGE DEST [FILE]\n", argv[0]);
    return 2;
  }
  const char* onlyFile = argc == 5 ? argv[4] : nullptr;

  // Blocks until the run has ended; the library prints its progress on
  // standard output. Another thread could stop it with AbortExtraction().
  _KALU_Error status = ExtractWithHash(argv[1], argv[2], argv[3], onlyFile, false);
  if (status != KALU_NO_ERR) {
    fprintf(stderr, "extraction failed: %s (%d)\n", CKALUStatus::EnumToStr(status), status);
    return 1;
  }

  // The verified manifest of the run stays readable until the next run.
  const EV_Version_TPN& manifest = *g_objKALU_Version_TPN;
  printf("package %s version %s: %zu file(s) verified\n", manifest.m_strPartNumber.c_str(),
         manifest.m_strVersionNumber.c_str(), g_hashResult.size());
  return 0;
}
