#include "manifest/system_date.h"
