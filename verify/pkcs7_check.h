// The steps both signature checks take, written once: delete the old output,
// parse the DER bytes, build the store, find the verification time, make and
// install the verification parameters, open the output and verify.
//
// What differs between the checks is data: the text and level of every
// failure message and the verify flags, plus two hooks, one that finds the
// verification time and one that reports a failed verification. Messages are
// logged under the name of the check that runs the steps. The steps that
// print nothing themselves (the parse and the parameters) are verify_common's,
// which the tool takes as well, so that its explanation of a refusal cannot
// drift from the checks. Not exported. Any thread; nothing survives a call.
#ifndef VERIFY_PKCS7_CHECK_H_
#define VERIFY_PKCS7_CHECK_H_

#include <openssl/pkcs7.h>

#include <string>

namespace ev {

// One failure message: `printed` goes to standard output through printf,
// `logged` to the platform log at `level`. Both formats take the same
// arguments.
struct Notice {
  const char* printed;
  const char* logged;
  int level;
};

// The arguments of one check, with the output path derived from them.
struct Pkcs7CheckCall {
  const char* pathArgument;  // the check's own path argument, as given
  std::string outputPath;
  const char* certFilePath;
  const unsigned char* derBuffer;
  int derLength;
};

struct Pkcs7Check {
  const char* name;     // the check's function name, under which it logs
  Notice removeFailed;  // takes the output path and errno
  Notice noBuffer;
  Notice notParsed;
  Notice noStore;
  Notice noParam;
  Notice unknownPurpose;
  Notice paramNotApplied;
  Notice noOutput;  // takes the output path
  int verifyFlags;
  // Stores the verification time for `p7`, or reports why it cannot and
  // returns false.
  bool (*findTime)(PKCS7* p7, unsigned int& verificationTime);
  // Reports a failed verification whose first queued error is `error`.
  void (*reportFailure)(const Pkcs7CheckCall& call, unsigned long error);
};

// Runs the steps; KALU_NO_ERR when the signature verified, else SIGN_ERR01.
// The parsed structure, the store, the parameters and the output are all
// released before it returns.
unsigned int RunPkcs7Check(const Pkcs7Check& check, const Pkcs7CheckCall& call);

}  // namespace ev

#endif  // VERIFY_PKCS7_CHECK_H_
