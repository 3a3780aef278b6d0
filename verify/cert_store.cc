#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/x509_vfy.h>

#include <cstdio>

#include "extract_verify/verify.h"
#include "platform/log.h"
#include "verify/library_context.h"

X509_STORE* create_store(BIO* diagnostics, const char* certFile, const char* certDir) {
  // The store itself takes no library context; the certificates and CRLs it
  // is given are read into the library's, and its lookups and checks fetch
  // from the context of the objects they work on.
  X509_STORE* store = X509_STORE_new();
  if (store == nullptr) return nullptr;

  X509_LOOKUP* lookup = X509_STORE_add_lookup(store, X509_LOOKUP_file());
  if (lookup == nullptr) {
    X509_STORE_free(store);
    return nullptr;
  }
  if (certFile != nullptr) {
    if (!X509_LOOKUP_load_file_ex(lookup, certFile, X509_FILETYPE_PEM, ev::LibraryContext(),
                                  nullptr)) {
      if (diagnostics != nullptr) BIO_printf(diagnostics, "Error loading file %s\n", certFile);
      printf("Error loading file %s\n", certFile);
      EV_LOG_ERROR("Error loading file %s ", certFile);
      X509_STORE_free(store);
      return nullptr;
    }
  } else {
    X509_LOOKUP_load_file_ex(lookup, nullptr, X509_FILETYPE_DEFAULT, ev::LibraryContext(), nullptr);
  }

  lookup = X509_STORE_add_lookup(store, X509_LOOKUP_hash_dir());
  if (lookup == nullptr) {
    X509_STORE_free(store);
    return nullptr;
  }
  if (certDir != nullptr) {
    if (!X509_LOOKUP_add_dir(lookup, certDir, X509_FILETYPE_PEM)) {
      if (diagnostics != nullptr) BIO_printf(diagnostics, "Error loading directory %s\n", certDir);
      printf("Error loading directory %s\n", certDir);
      EV_LOG_ERROR("Error loading directory %s ", certDir);
      X509_STORE_free(store);
      return nullptr;
    }
  } else {
    X509_LOOKUP_add_dir(lookup, nullptr, X509_FILETYPE_DEFAULT);
  }

  // A default file or directory that is absent leaves errors behind; they
  // must not be mistaken for the verification's own.
  ERR_clear_error();
  return store;
}
