#include "verify/unsign.h"
