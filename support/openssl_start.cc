#include "support/openssl_start.h"

#include <openssl/crypto.h>

namespace support_internal {

void StartOpenSsl() { OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr); }

}  // namespace support_internal
