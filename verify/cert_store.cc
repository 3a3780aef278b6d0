#include "verify/cert_store.h"
