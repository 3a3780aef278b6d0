#include "extract/read_buffer.h"
