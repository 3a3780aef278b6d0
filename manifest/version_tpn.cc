#include "manifest/version_tpn.h"
