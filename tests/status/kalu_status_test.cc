// The status names: every named value spelled exactly, the unnamed and
// out-of-range values, and a table that cannot be allocated.
#include "status/kalu_status.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "extract_verify/status.h"

namespace {

// The enumerator's identifier doubles as its expected name and its place in
// the list as its number, so a misspelt name or a wrong number fails alike.
// clang-format off
#define N(e) {e, #e}
const std::pair<_KALU_Error, const char*> kNamed[] = {
    N(KALU_ERR), N(KALU_NO_ERR), N(KALU_VHM_NO_ERROR), N(KALU_ERROR_STOP_DOWNLOA_DREQUEST),
    N(MAP_SPACE_NOT_AVAILABLE), N(MAP_EXTRACTION_ERROR), N(NAV_EXTRACT_ERROR),
    N(VCA_SPACE_NOT_AVAILABLE), N(PKG_NOT_COPIED), N(PKG_DOWNLOAD_STARTED),
    N(KALU_PKG_ALREADY_INSTALLED), N(KALU_RESUME_NEXT_PKG_INSTALLATION),
    N(USB_NOT_FOUND_FOR_MAP_NAV), N(LST_ERR03), N(LST_ERR04), N(LST_ERR05), N(LST_ERR06),
    N(LST_ERR07), N(LST_ERR08), N(VER_ERR01), N(VER_ERR02), N(VER_ERR03), N(VER_ERR04),
    N(VER_ERR05), N(VER_ERR06), N(VER_ERR07), N(VER_ERR08), N(VER_ERR09), N(VER_ERR10),
    N(VER_ERR11), N(VER_ERR12), N(VER_ERR13), N(VER_ERR14), N(VER_ERR15), N(MEM_ERR01),
    N(MEM_ERR02), N(MEM_ERR03), N(PKG_ERR02), N(PKG_ERR03), N(PKG_ERR04), N(SIGN_ERR01),
    N(SIGN_ERR02), N(SIGN_ERR03), N(INSTL_ERR01), N(INSTL_ERR02), N(INSTL_ERR03),
    N(INSTL_ERR04), N(INSTL_ERR05), N(INSTL_ERR06), N(INSTL_ERR07), N(INSTL_ERR08),
    N(INSTL_ERR09), N(INSTL_ERR10), N(INSTL_ERR11), N(INSTL_ERR12), N(INSTL_ERR13),
    N(INSTL_ERR14), N(INSTL_ERR15), N(BGMAP_ERR01), N(NAVVOICE_ERR01)};
#undef N
// clang-format on

const char* NameOf(int value) { return CKALUStatus::EnumToStr(static_cast<_KALU_Error>(value)); }

TEST(KaluStatus, NamesEveryValueExactlyAndNothingElse) {
  ASSERT_EQ(sizeof kNamed / sizeof kNamed[0], 60u);
  for (int i = 0; i < 60; ++i) {
    EXPECT_EQ(static_cast<int>(kNamed[i].first), i) << kNamed[i].second;
    EXPECT_STREQ(NameOf(i), kNamed[i].second) << i;
  }
  for (int value = 60; value <= 65; ++value) EXPECT_STREQ(NameOf(value), "") << value;
  for (int value : {66, 1000, INT_MAX, -1, INT_MIN}) {
    EXPECT_STREQ(NameOf(value), "::INVALID ENUM::") << value;
  }
  EXPECT_STREQ(CKALUStatus(PKG_ERR03).ToStr(), "PKG_ERR03");
}

char* FailingAllocator(size_t) { return nullptr; }

// A table that cannot be allocated names every value as such, and the next
// conversion builds it again.
TEST(KaluStatus, TableThatCannotBeAllocatedIsReportedAndRetried) {
  char* savedTable = CKALUStatus::m_arcEnums;
  CKALUStatus::m_arcEnums = nullptr;
  auto savedAllocator = ev::SetTableAllocator(FailingAllocator);
  EXPECT_STREQ(NameOf(PKG_ERR03), "::ENUM INIT FAILED::");
  EXPECT_STREQ(NameOf(-1), "::INVALID ENUM::");
  ev::SetTableAllocator(nullptr);
  EXPECT_STREQ(NameOf(NAVVOICE_ERR01), "NAVVOICE_ERR01");
  ev::SetTableAllocator(savedAllocator);
  delete[] CKALUStatus::m_arcEnums;
  CKALUStatus::m_arcEnums = savedTable;
}

}  // namespace
