#include "extract/extract_thread.h"
