#include "verify/verify_by_date.h"
