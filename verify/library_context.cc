#include "verify/library_context.h"

namespace ev {

// Never freed: OpenSSL frees its own state at exit, and a context freed by a
// static destructor might outlive it. The context stays reachable.
OSSL_LIB_CTX* LibraryContext() {
  static OSSL_LIB_CTX* const context = OSSL_LIB_CTX_new();
  return context;
}

}  // namespace ev
