// Checks of the files a command is given, made before any work starts, so
// that a missing or unsuitable file is reported as one sentence naming it
// and the cause (InputError), not as a failure of a later stage in the
// words of OpenSSL or of the library. Main thread.
#ifndef TOOLS_CLI_INPUT_CHECKS_H_
#define TOOLS_CLI_INPUT_CHECKS_H_

#include <string>

#include "authoring/pki/pki.h"

namespace cli {

// `path` is an existing file, not a directory, that this process can read.
// `role` names it in the message ("package", "certificate file").
void CheckReadableFile(const std::string& path, const char* role);

// `path` can be read and holds at least one PEM certificate.
void CheckCertificateFile(const std::string& path);

// The private key of the PEM file at `keyPath` with the first certificate
// of `certPath`. An encrypted key is decrypted with the pass phrase that
// `passSource` names ("file:PATH" or "env:NAME"); nothing ever prompts.
// Either may be a "pkcs11:" URI of an object in a token (token_keys.h),
// whose PIN `passSource` then names.
pki::Identity LoadSigner(const std::string& certPath, const std::string& keyPath,
                         const std::string& passSource);

// OpenSSL's queued errors as text lines; the queue is emptied.
std::string TakeOpenSslErrors();

}  // namespace cli

#endif  // TOOLS_CLI_INPUT_CHECKS_H_
