#include "extract/hash_compare.h"
