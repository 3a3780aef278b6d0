// The current date as the system's `date +%F` prints it, newline included
// ("YYYY-MM-DD\n"), or "" when the command cannot be started. Any thread.
#ifndef MANIFEST_SYSTEM_DATE_H_
#define MANIFEST_SYSTEM_DATE_H_

#include <string>

#include "extract_verify_export.h"

EV_EXPORT std::string _GetSystemDate();

#endif  // MANIFEST_SYSTEM_DATE_H_
