// Kept for clients that include the library's header by its bare name; the
// interface is declared under extract_verify/.
#ifndef EXTRACT_VERIFY_H_
#define EXTRACT_VERIFY_H_

#include "extract_verify/extract_verify.h"

#endif  // EXTRACT_VERIFY_H_
