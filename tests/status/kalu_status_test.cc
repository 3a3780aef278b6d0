// The status names: every named value spelled exactly, the unnamed and
// out-of-range values, the fixed-width table, and a table that cannot be
// allocated.
#include "status/kalu_status.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "status/kalu_status_internal.h"

namespace {

struct Named {
  int number;
  _KALU_Error value;
  const char* name;
};

// The enumerator's identifier doubles as its expected name, so a misspelt
// identifier or name fails as surely as a wrong number.
#define NAMED(number, enumerator) {number, enumerator, #enumerator}

const Named kNamed[] = {
    NAMED(0, KALU_ERR),
    NAMED(1, KALU_NO_ERR),
    NAMED(2, KALU_VHM_NO_ERROR),
    NAMED(3, KALU_ERROR_STOP_DOWNLOA_DREQUEST),
    NAMED(4, MAP_SPACE_NOT_AVAILABLE),
    NAMED(5, MAP_EXTRACTION_ERROR),
    NAMED(6, NAV_EXTRACT_ERROR),
    NAMED(7, VCA_SPACE_NOT_AVAILABLE),
    NAMED(8, PKG_NOT_COPIED),
    NAMED(9, PKG_DOWNLOAD_STARTED),
    NAMED(10, KALU_PKG_ALREADY_INSTALLED),
    NAMED(11, KALU_RESUME_NEXT_PKG_INSTALLATION),
    NAMED(12, USB_NOT_FOUND_FOR_MAP_NAV),
    NAMED(13, LST_ERR03),
    NAMED(14, LST_ERR04),
    NAMED(15, LST_ERR05),
    NAMED(16, LST_ERR06),
    NAMED(17, LST_ERR07),
    NAMED(18, LST_ERR08),
    NAMED(19, VER_ERR01),
    NAMED(20, VER_ERR02),
    NAMED(21, VER_ERR03),
    NAMED(22, VER_ERR04),
    NAMED(23, VER_ERR05),
    NAMED(24, VER_ERR06),
    NAMED(25, VER_ERR07),
    NAMED(26, VER_ERR08),
    NAMED(27, VER_ERR09),
    NAMED(28, VER_ERR10),
    NAMED(29, VER_ERR11),
    NAMED(30, VER_ERR12),
    NAMED(31, VER_ERR13),
    NAMED(32, VER_ERR14),
    NAMED(33, VER_ERR15),
    NAMED(34, MEM_ERR01),
    NAMED(35, MEM_ERR02),
    NAMED(36, MEM_ERR03),
    NAMED(37, PKG_ERR02),
    NAMED(38, PKG_ERR03),
    NAMED(39, PKG_ERR04),
    NAMED(40, SIGN_ERR01),
    NAMED(41, SIGN_ERR02),
    NAMED(42, SIGN_ERR03),
    NAMED(43, INSTL_ERR01),
    NAMED(44, INSTL_ERR02),
    NAMED(45, INSTL_ERR03),
    NAMED(46, INSTL_ERR04),
    NAMED(47, INSTL_ERR05),
    NAMED(48, INSTL_ERR06),
    NAMED(49, INSTL_ERR07),
    NAMED(50, INSTL_ERR08),
    NAMED(51, INSTL_ERR09),
    NAMED(52, INSTL_ERR10),
    NAMED(53, INSTL_ERR11),
    NAMED(54, INSTL_ERR12),
    NAMED(55, INSTL_ERR13),
    NAMED(56, INSTL_ERR14),
    NAMED(57, INSTL_ERR15),
    NAMED(58, BGMAP_ERR01),
    NAMED(59, NAVVOICE_ERR01),
};

#undef NAMED

const char* NameOf(int value) { return CKALUStatus::EnumToStr(static_cast<_KALU_Error>(value)); }

TEST(KaluStatus, NamesEveryValueExactlyAsItsEnumerator) {
  ASSERT_EQ(sizeof kNamed / sizeof kNamed[0], 60u);
  for (int i = 0; i < 60; ++i) {
    EXPECT_EQ(kNamed[i].number, i);
    EXPECT_EQ(static_cast<int>(kNamed[i].value), i) << kNamed[i].name;
    EXPECT_STREQ(NameOf(i), kNamed[i].name) << i;
  }
  EXPECT_STREQ(NameOf(3), "KALU_ERROR_STOP_DOWNLOA_DREQUEST");
}

TEST(KaluStatus, UnnamedSlotsAreEmptyAndOutOfRangeValuesInvalid) {
  for (int value = 60; value <= 65; ++value) EXPECT_STREQ(NameOf(value), "") << value;
  for (int value : {66, 67, 1000, INT_MAX, -1, INT_MIN}) {
    EXPECT_STREQ(NameOf(value), "::INVALID ENUM::") << value;
  }
}

TEST(KaluStatus, NamesLiveInFixedWidthZeroFilledSlots) {
  NameOf(KALU_NO_ERR);
  const char* table = CKALUStatus::m_arcEnums;
  ASSERT_NE(table, nullptr);
  for (int value = 0; value < CKALUStatus::kSlotCount; ++value) {
    const char* slot = table + CKALUStatus::kSlotWidth * value;
    EXPECT_EQ(NameOf(value), slot) << value;
    for (size_t i = std::strlen(slot); i < CKALUStatus::kSlotWidth; ++i) {
      ASSERT_EQ(slot[i], '\0') << value << " at " << i;
    }
  }
  CKALUStatus::Init();  // a built table is kept
  EXPECT_EQ(CKALUStatus::m_arcEnums, table);
}

TEST(KaluStatus, ObjectHoldsItsValueAndNamesIt) {
  for (int value : {0, 1, 38, 59, 65, 66, -1}) {
    CKALUStatus status(static_cast<_KALU_Error>(value));
    EXPECT_EQ(static_cast<int>(status.Value()), value);
    EXPECT_EQ(status.ToStr(), NameOf(value)) << value;
  }
}

// Every table allocation fails and is counted, with the size asked for.
std::vector<size_t> g_requests;
char* FailingAllocator(size_t bytes) {
  g_requests.push_back(bytes);
  return nullptr;
}

class KaluStatusWithoutMemory : public testing::Test {
 protected:
  void SetUp() override {
    m_savedTable = CKALUStatus::m_arcEnums;
    CKALUStatus::m_arcEnums = nullptr;
    g_requests.clear();
    m_savedAllocator = kalu_status_internal::SetTableAllocator(FailingAllocator);
  }
  void TearDown() override {
    kalu_status_internal::SetTableAllocator(m_savedAllocator);
    if (CKALUStatus::m_arcEnums != m_savedTable) delete[] CKALUStatus::m_arcEnums;
    CKALUStatus::m_arcEnums = m_savedTable;
  }
  char* m_savedTable = nullptr;
  kalu_status_internal::TableAllocator m_savedAllocator = nullptr;
};

TEST_F(KaluStatusWithoutMemory, TableValuesReportTheFailedBuildAndOthersStayInvalid) {
  for (int value = 0; value <= 65; ++value) {
    EXPECT_STREQ(NameOf(value), "::ENUM INIT FAILED::") << value;
  }
  EXPECT_STREQ(NameOf(66), "::INVALID ENUM::");
  EXPECT_STREQ(NameOf(-1), "::INVALID ENUM::");
  EXPECT_STREQ(CKALUStatus(PKG_ERR03).ToStr(), "::ENUM INIT FAILED::");
  EXPECT_EQ(CKALUStatus::m_arcEnums, nullptr);
  // Every conversion retried the build, always for the whole table.
  EXPECT_EQ(g_requests, std::vector<size_t>(69, 66u * 150u));
}

TEST_F(KaluStatusWithoutMemory, ALaterSuccessfulBuildNamesValuesAgain) {
  EXPECT_STREQ(NameOf(KALU_NO_ERR), "::ENUM INIT FAILED::");
  kalu_status_internal::SetTableAllocator(nullptr);
  EXPECT_STREQ(NameOf(PKG_ERR03), "PKG_ERR03");
  EXPECT_NE(CKALUStatus::m_arcEnums, nullptr);
  EXPECT_STREQ(NameOf(NAVVOICE_ERR01), "NAVVOICE_ERR01");
}

}  // namespace
