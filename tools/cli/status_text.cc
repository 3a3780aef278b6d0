#include "tools/cli/status_text.h"

#include <cstdio>
#include <ctime>

#include "tools/cli/commands.h"

namespace cli {

std::string StatusName(_KALU_Error status) {
  return std::string(CKALUStatus::EnumToStr(status)) + " (" + std::to_string(status) + ")";
}

const char* StatusMeaning(_KALU_Error status) {
  switch (status) {
    case KALU_NO_ERR:
      return "every extracted file matches the signed manifest";
    case VER_ERR01:
      return "no verified manifest: the package has no Version.der, or Version.inf could not "
             "be written to or read from the destination directory";
    case VER_ERR04:
      return "the signed manifest describes a file (hash value or size) without naming it";
    case PKG_ERR03:
      return "the package could not be read or unpacked, holds an empty entry, a directory or "
             "two different files for one path, a file could not be written, or the run was "
             "interrupted";
    case SIGN_ERR01:
      return "Version.der is not signed data that verifies against the certificate file, or "
             "the package carries more than one";
    case SIGN_ERR02:
      return "an extracted file is not listed in the signed manifest, or its SHA-256 differs "
             "from the manifest's";
    default:
      return "";
  }
}

bool TimeZoneAheadOfUtc() {
  // The same conversion as the library's: UTC fields read as local time.
  time_t now = time(nullptr);
  std::tm fields{};
  gmtime_r(&now, &fields);
  fields.tm_isdst = 0;
  time_t asLocal = mktime(&fields);
  return asLocal != static_cast<time_t>(-1) && asLocal < now;
}

void ReportFailedStatus(const char* what, _KALU_Error status, bool localTime) {
  fprintf(stderr, "%s: %s: %s\n", kToolName, what, StatusName(status).c_str());
  const char* meaning = StatusMeaning(status);
  if (*meaning != '\0') fprintf(stderr, "  %s\n", meaning);
  if (status == SIGN_ERR01 && localTime && TimeZoneAheadOfUtc()) {
    fprintf(
        stderr,
        "  hint: with --local-time the signer's start of validity is read in this time\n"
        "  zone, which is ahead of UTC, so it is checked before it starts; drop --local-time\n");
  }
}

}  // namespace cli
