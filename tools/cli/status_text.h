// What the tool says about a run's status: the status's name and number,
// what it means for the package, and a hint when the time zone is the
// likely cause of a failed signature check. Any thread.
#ifndef TOOLS_CLI_STATUS_TEXT_H_
#define TOOLS_CLI_STATUS_TEXT_H_

#include <string>

#include "extract_verify/status.h"

namespace cli {

// "SIGN_ERR02 (41)".
std::string StatusName(_KALU_Error status);

// One sentence on what a status that the library returns means; empty for
// a status that it does not return.
const char* StatusMeaning(_KALU_Error status);

// True when the process's time zone is ahead of UTC now. The library reads
// the signer certificate's start of validity as local time, so in such a
// zone it checks the signature at an instant before the certificate starts.
bool TimeZoneAheadOfUtc();

// Prints "extract-verify: <what>: NAME (N)" and the explanation lines to
// standard error; `localTime` tells whether the time zone hint applies.
void ReportFailedStatus(const char* what, _KALU_Error status, bool localTime);

}  // namespace cli

#endif  // TOOLS_CLI_STATUS_TEXT_H_
