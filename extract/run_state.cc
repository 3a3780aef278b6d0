#include "extract/run_state.h"
