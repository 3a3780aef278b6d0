// Revocation lists of the certificate file, as both signature checks and the
// tool consult them.
//
// A certificate file may hold CRLs beside its certificates. When it does, a
// CRL issued by the signer's CA is consulted whatever its own dates: the
// checks run at the signer's start of validity, before any CRL that revokes
// it can have been issued, and whoever put the CRL into the file made it the
// current word on that CA's signers. A signer the CRL lists is refused. A CA
// with no CRL in the file, and a file without CRLs, are checked as before.
// Only the signer is looked up, not the CAs above it.
//
// Not exported to clients; the tool links this unit's archive to explain a
// refusal as the checks make it. Any thread; a store is set up and used by
// one thread at a time.
#ifndef VERIFY_REVOCATION_H_
#define VERIFY_REVOCATION_H_

#include <openssl/x509_vfy.h>

namespace ev {

// When `store` holds a CRL, installs the verification callback that consults
// CRLs as above and returns X509_V_FLAG_CRL_CHECK, the flag the verification
// parameters need to make it; otherwise leaves the store alone and returns 0.
// Call before a verification context is made from the store.
unsigned long ConsultRevocationLists(X509_STORE* store);

// True once a verification made with `store` refused a revoked signer.
bool FoundSignerRevoked(X509_STORE* store);

}  // namespace ev

#endif  // VERIFY_REVOCATION_H_
