#include "extract/hash_write_buffer.h"
