// The shared library's own object: its version, for clients that want to log
// which library they run against.
#include "extract_verify/extract_verify.h"

extern "C" const char* extract_verify_version() { return "1.0.0"; }
