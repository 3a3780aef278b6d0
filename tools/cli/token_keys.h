// Keys that never leave a PKCS#11 token, reached through OpenSSL's PKCS#11
// engine (libengine-pkcs11-openssl), and the certificates beside them.
//
// A token object is named by an RFC 7512 URI, "pkcs11:token=...;object=...";
// `module-path=PATH` in its query names the token's module, otherwise the
// engine loads its default (p11-kit's proxy, which reaches every module
// registered with p11-kit). The engine is loaded on first use and stays
// until CloseTokenEngine: the keys it hands out call back into it until
// they are freed. Each failure is one sentence (InputError) that names the
// cause: no engine, no module, a wrong PIN, no such object. Main thread.
#ifndef TOOLS_CLI_TOKEN_KEYS_H_
#define TOOLS_CLI_TOKEN_KEYS_H_

#include <string>

#include "authoring/pki/pki.h"

namespace cli {

// `text` names a token object rather than a file.
bool IsTokenUri(const std::string& text);

// The private key at `uri`, after logging in to its token with `pin`.
pki::Key LoadTokenKey(const std::string& uri, const std::string& pin);

// The certificate at `uri`; certificates are public, no PIN is needed.
pki::Cert LoadTokenCertificate(const std::string& uri);

// Closes the engine, once every key taken from it has been freed; main
// calls it when the command has ended.
void CloseTokenEngine();

}  // namespace cli

#endif  // TOOLS_CLI_TOKEN_KEYS_H_
