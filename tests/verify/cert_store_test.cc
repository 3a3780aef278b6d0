#include "verify/cert_store.h"
#include "verify/verify_by_date.h"

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/buffer.h>
#include <openssl/err.h>
#include <openssl/x509_vfy.h>

#include <memory>
#include <string>

#include "tests/testsupport/capture.h"
#include "tests/testsupport/temp_dir.h"
#include "tests/verify/signing_fixture.h"

namespace {

using testsupport::LogCapture;
using testsupport::OutputCapture;
using testsupport::TempDir;
using testsupport::WriteFile;

struct StoreFree {
  void operator()(X509_STORE* store) const { X509_STORE_free(store); }
};
using Store = std::unique_ptr<X509_STORE, StoreFree>;
struct BioFree {
  void operator()(BIO* bio) const { BIO_free(bio); }
};
using Bio = std::unique_ptr<BIO, BioFree>;

int CertificatesIn(X509_STORE* store) {
  int count = 0;
  STACK_OF(X509_OBJECT)* objects = X509_STORE_get0_objects(store);
  for (int i = 0; i < sk_X509_OBJECT_num(objects); ++i) {
    if (X509_OBJECT_get0_X509(sk_X509_OBJECT_value(objects, i)) != nullptr) ++count;
  }
  return count;
}

std::string Contents(BIO* memory) {
  BUF_MEM* buffer = nullptr;
  BIO_get_mem_ptr(memory, &buffer);
  return std::string(buffer->data, buffer->length);
}

class CertStoreTest : public testing::Test {
 protected:
  CertStoreTest()
      : root(pki::MakeRootCa("Store Root", {pki::UtcTime(2010, 1, 1), pki::UtcTime(2040, 1, 1)})),
        other(pki::MakeRootCa("Other Root", {pki::UtcTime(2010, 1, 1), pki::UtcTime(2040, 1, 1)})) {
  }

  TempDir dir;
  pki::Identity root;
  pki::Identity other;
};

TEST_F(CertStoreTest, VerificationTimeIsBuiltIn) {
  unsigned int time = 0;
  EXPECT_TRUE(GetTimeFromFile(time));
  EXPECT_EQ(1428426906u, time);
}

TEST_F(CertStoreTest, LoadsEveryCertificateOfThePemFile) {
  const std::string trust = dir.file("trust.pem");
  pki::WriteCertificatesPem(trust, {root.cert.get(), other.cert.get()});
  OutputCapture out;
  Store store(create_store(nullptr, trust.c_str(), nullptr));
  EXPECT_EQ("", out.Finish());
  ASSERT_NE(nullptr, store);
  EXPECT_EQ(2, CertificatesIn(store.get()));
}

TEST_F(CertStoreTest, FileThatCannotBeLoadedIsReportedEverywhere) {
  const std::string notPem = dir.file("trust.pem");
  WriteFile(notPem, "this is not a certificate\n");
  for (const std::string& path : {notPem, dir.file("missing.pem")}) {
    Bio diagnostics(BIO_new(BIO_s_mem()));
    LogCapture log;
    OutputCapture out;
    EXPECT_EQ(nullptr, create_store(diagnostics.get(), path.c_str(), nullptr));
    EXPECT_EQ("Error loading file " + path + "\n", out.Finish());
    EXPECT_EQ("Error loading file " + path + "\n", Contents(diagnostics.get()));
    EXPECT_EQ(std::vector<std::string>{"31:Error loading file " + path + " "},
              log.Levelled("create_store"));
  }
}

TEST_F(CertStoreTest, DirectoryThatCannotBeAddedIsReportedEverywhere) {
  const std::string trust = dir.file("trust.pem");
  pki::WriteCertificatesPem(trust, {root.cert.get()});
  Bio diagnostics(BIO_new(BIO_s_mem()));
  LogCapture log;
  OutputCapture out;
  // An empty directory name is the one that the hashed-directory lookup refuses.
  EXPECT_EQ(nullptr, create_store(diagnostics.get(), trust.c_str(), ""));
  EXPECT_EQ("Error loading directory \n", out.Finish());
  EXPECT_EQ("Error loading directory \n", Contents(diagnostics.get()));
  EXPECT_EQ(std::vector<std::string>{"31:Error loading directory  "},
            log.Levelled("create_store"));
}

}  // namespace
