#include "extract/source_reader.h"
