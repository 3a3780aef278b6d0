#include "extract/hash_compare.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <vector>

#include "extract/run_state.h"
#include "tests/testsupport/capture.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kDigestA = std::string(64, 'a');
const std::string kDigestB = std::string(63, 'b') + "1";

class HashCompareTest : public testing::Test {
 protected:
  void SetUp() override {
    delete g_objKALU_Version_TPN;
    g_objKALU_Version_TPN = new EV_Version_TPN();
    g_objKALU_Version_TPN->m_bVersionInfFound = true;
    g_hashResult.clear();
  }
  void TearDown() override { g_hashResult.clear(); }

  void List(const std::string& name, const std::string& digest) {
    g_objKALU_Version_TPN->m_mapFileHash[name] = digest;
  }

  // Runs the comparison, keeping what it printed and logged.
  _KALU_Error Compare() {
    testsupport::LogCapture log;
    testsupport::OutputCapture output;
    _KALU_Error status = compareHashValues();
    printed = output.Finish();
    logged = log.Texts("compareHashValues");
    return status;
  }

  std::string printed;
  Lines logged;
};

TEST_F(HashCompareTest, NothingIsComparedWithoutAManifestAndNothingWrittenPasses) {
  List("listed but not in the package", kDigestA);
  EXPECT_EQ(KALU_NO_ERR, Compare());
  EXPECT_EQ("", printed);
  g_objKALU_Version_TPN->m_bVersionInfFound = false;
  g_hashResult["a"] = kDigestA;
  List("a", kDigestA);
  EXPECT_EQ(VER_ERR01, Compare());
  EXPECT_EQ("", printed);
  EXPECT_EQ((Lines{"+", "-"}), logged);
}

TEST_F(HashCompareTest, EveryMatchIsPrintedAndLoggedInNameOrder) {
  g_hashResult["b"] = kDigestB;
  g_hashResult["a"] = kDigestA;
  List("a", kDigestA);
  List("b", kDigestB);
  EXPECT_EQ(KALU_NO_ERR, Compare());
  EXPECT_EQ("HashValues are Same - [File Name] a \n"
            "Version Inf Hash Value    : " + kDigestA + " \n"
            "Extracted file Hash Value : " + kDigestA + " \n"
            "HashValues are Same - [File Name] b \n"
            "Version Inf Hash Value    : " + kDigestB + " \n"
            "Extracted file Hash Value : " + kDigestB + " \n",
            printed);
  EXPECT_EQ((Lines{"+", "HashValues are Same - [File Name] a",
                   "Version Inf Hash Value    : " + kDigestA,
                   "Extracted file Hash Value : " + kDigestA + " ",
                   "HashValues are Same - [File Name] b",
                   "Version Inf Hash Value    : " + kDigestB,
                   "Extracted file Hash Value : " + kDigestB + " ", "-"}),
            logged);
}

TEST_F(HashCompareTest, OnlyTheFirstFailingNameIsReported) {
  g_hashResult["a"] = kDigestA;
  g_hashResult["b"] = kDigestB;  // not listed
  g_hashResult["c"] = kDigestA;  // listed with another digest
  List("a", kDigestA);
  List("c", kDigestB);
  EXPECT_EQ(SIGN_ERR02, Compare());
  EXPECT_EQ("HashValues are Same - [File Name] a \n"
            "Version Inf Hash Value    : " + kDigestA + " \n"
            "Extracted file Hash Value : " + kDigestA + " \n"
            "!!!! File Not Found in Version.inf - [File Name] b \n"
            "Extracted file Hash Value : " + kDigestB + " \n",
            printed);
  Lines expectedTail = {"!!!! File Not Found in Version.inf - [File Name] b  ",
                        "Extracted file Hash Value : " + kDigestB + " ", "-"};
  ASSERT_EQ(7u, logged.size());
  EXPECT_EQ(expectedTail, Lines(logged.begin() + 4, logged.end()));
}

TEST_F(HashCompareTest, UpperCaseManifestDigestIsAMismatch) {
  std::string upper = kDigestB;
  for (char& c : upper) c = static_cast<char>(toupper(c));
  g_hashResult["f"] = kDigestB;
  List("f", upper);
  EXPECT_EQ(SIGN_ERR02, Compare());
  EXPECT_EQ("!!!! HashValue Mismatch Error - [File Name] f \n"
            "Version Inf Hash Value    : " + upper + " \n"
            "Extracted file Hash Value : " + kDigestB + " \n",
            printed);
  EXPECT_EQ((Lines{"+", "!!!! HashValue Mismatch Error - [File Name] f",
                   "Version Inf Hash Value    : " + upper,
                   "Extracted file Hash Value : " + kDigestB, "-"}),
            logged);
}

// Digests compare as text up to the first NUL, untrimmed; names whole and
// in case.
TEST_F(HashCompareTest, DigestsAndNamesMustMatchExactly) {
  g_hashResult["f"] = kDigestA + std::string("\0tail", 5);
  List("f", kDigestA);
  EXPECT_EQ(KALU_NO_ERR, Compare());
  List("f", kDigestA + " ");
  EXPECT_EQ(SIGN_ERR02, Compare());
  for (const char* listed : {"file", "dir/File"}) {
    SetUp();
    g_hashResult["dir/file"] = kDigestA;
    List(listed, kDigestA);
    EXPECT_EQ(SIGN_ERR02, Compare()) << listed;
    EXPECT_EQ(0u, printed.find("!!!! File Not Found in Version.inf - [File Name] dir/file \n"));
  }
}

}  // namespace
