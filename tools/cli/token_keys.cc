// The engine interface is deprecated in OpenSSL 3, but the PKCS#11 engine is
// what Debian ships for keys in tokens; silence the warnings here only.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "tools/cli/token_keys.h"

#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/ui.h>

#include <cstring>

#include "tools/cli/input_checks.h"
#include "tools/cli/options.h"

namespace cli {

namespace {

// A token URI split into the object's path, which the engine reads, and
// the module named in its query, which the engine does not.
struct TokenUri {
  std::string object;
  std::string modulePath;
};

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// URI values may carry %XX escapes.
std::string PercentDecoded(const std::string& text) {
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '%' && i + 2 < text.size() ? HexValue(text[i + 1]) : -1;
    const int low = high >= 0 ? HexValue(text[i + 2]) : -1;
    if (low < 0) {
      plain += text[i];
    } else {
      plain += static_cast<char>(high * 16 + low);
      i += 2;
    }
  }
  return plain;
}

TokenUri SplitUri(const std::string& uri) {
  const size_t query = uri.find('?');
  TokenUri split{uri.substr(0, query), ""};
  if (query == std::string::npos) return split;
  const std::string attributes = "&" + uri.substr(query + 1) + "&";
  const char kModule[] = "&module-path=";
  const size_t module = attributes.find(kModule);
  if (module != std::string::npos) {
    const size_t start = module + strlen(kModule);
    split.modulePath =
        PercentDecoded(attributes.substr(start, attributes.find('&', start) - start));
  }
  return split;
}

// The causes a user can act on, told apart by the first error that the
// engine queues: its library's name and its reason. libp11 queues a failed
// PKCS#11 call under "PKCS#11 module" with the standard's CKR_ code.
struct KnownFailure {
  const char* library;
  int reason;
  const char* cause;
};
const KnownFailure kKnownFailures[] = {
    {"PKCS#11 module", 0xA0, "the PIN is wrong"},                               // CKR_PIN_INCORRECT
    {"PKCS#11 module", 0xA1, "the PIN is not one the token accepts"},           // CKR_PIN_INVALID
    {"PKCS#11 module", 0xA2, "the PIN is not one the token accepts"},           // CKR_PIN_LEN_RANGE
    {"PKCS#11 module", 0xA4, "the token is locked after too many wrong PINs"},  // CKR_PIN_LOCKED
    {"pkcs11 engine", 101, "no token holds such an object"},  // ENG_R_OBJECT_NOT_FOUND
    {"libp11", 1025, "the PKCS#11 module cannot be loaded"},  // P11_R_LOAD_MODULE_ERROR
};

[[noreturn]] void FailToLoad(const char* what, const std::string& uri) {
  const unsigned long first = ERR_peek_error();
  const char* library = ERR_lib_error_string(first);
  std::string sentence = "cannot load " + std::string(what) + " " + uri;
  for (const KnownFailure& known : kKnownFailures) {
    if (library != nullptr && strcmp(library, known.library) == 0 &&
        ERR_GET_REASON(first) == known.reason) {
      throw InputError(sentence + ": " + known.cause, TakeOpenSslErrors());
    }
  }
  throw InputError(sentence + " from its token", TakeOpenSslErrors());
}

// libp11 asks for a PIN through a user interface when it has none (to look
// for a certificate among the private objects, say); this one answers
// nothing, so that the tool never prompts.
UI_METHOD* NoPrompt() {
  static UI_METHOD* const method = [] {
    UI_METHOD* answersNothing = UI_create_method("extract-verify: no prompt");
    UI_method_set_reader(answersNothing, [](UI*, UI_STRING*) { return -1; });
    return answersNothing;
  }();
  return method;
}

// OpenSSL's PKCS#11 engine with its module named, initialised; finished
// when it is destroyed.
class TokenEngine {
 public:
  explicit TokenEngine(const TokenUri& uri) : m_engine(ENGINE_by_id("pkcs11")) {
    if (m_engine == nullptr) {
      throw InputError("OpenSSL's PKCS#11 engine, which reads " + uri.object +
                           ", is not installed (Debian package libengine-pkcs11-openssl)",
                       TakeOpenSslErrors());
    }
    // Quiet: libp11 prints its own lines on standard error otherwise.
    ENGINE_ctrl_cmd_string(m_engine, "QUIET", nullptr, 0);
    ENGINE_ctrl_cmd(m_engine, "SET_USER_INTERFACE", 0, NoPrompt(), nullptr, 0);
    if (!uri.modulePath.empty()) {
      CheckReadableFile(uri.modulePath, "PKCS#11 module");
      ENGINE_ctrl_cmd_string(m_engine, "MODULE_PATH", uri.modulePath.c_str(), 0);
    }
    if (ENGINE_init(m_engine) != 1) {
      ENGINE_free(m_engine);
      throw InputError("OpenSSL's PKCS#11 engine does not start", TakeOpenSslErrors());
    }
  }
  ~TokenEngine() {
    ENGINE_finish(m_engine);
    ENGINE_free(m_engine);
  }
  TokenEngine(const TokenEngine&) = delete;
  TokenEngine& operator=(const TokenEngine&) = delete;

  ENGINE* get() const { return m_engine; }

 private:
  ENGINE* m_engine;
};

// The one engine of the process, made for the module of the first URI and
// closed by CloseTokenEngine. It is not left to the exit handlers: a module
// may tear itself down in its own before the engine could close it.
TokenEngine* g_engine = nullptr;

ENGINE* Engine(const TokenUri& uri) {
  if (g_engine == nullptr) g_engine = new TokenEngine(uri);
  return g_engine->get();
}

}  // namespace

bool IsTokenUri(const std::string& text) { return text.compare(0, 7, "pkcs11:") == 0; }

void CloseTokenEngine() {
  delete g_engine;
  g_engine = nullptr;
}

pki::Key LoadTokenKey(const std::string& uri, const std::string& pin) {
  const TokenUri split = SplitUri(uri);
  ENGINE* engine = Engine(split);
  ENGINE_ctrl_cmd_string(engine, "PIN", pin.c_str(), 0);
  pki::Key key(ENGINE_load_private_key(engine, split.object.c_str(), nullptr, nullptr));
  if (!key) FailToLoad("the key", uri);
  return key;
}

pki::Cert LoadTokenCertificate(const std::string& uri) {
  const TokenUri split = SplitUri(uri);
  struct {
    const char* id;
    X509* cert;
  } request = {split.object.c_str(), nullptr};
  if (ENGINE_ctrl_cmd(Engine(split), "LOAD_CERT_CTRL", 0, &request, nullptr, 0) != 1 ||
      request.cert == nullptr) {
    FailToLoad("the certificate", uri);
  }
  return pki::Cert(request.cert);
}

}  // namespace cli
