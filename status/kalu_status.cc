#include "status/kalu_status.h"

#include <cstring>
#include <new>

#include "extract_verify/status.h"

namespace {

// Names indexed by value; the names are the enumerators' own spellings.
// clang-format off
const char* const kNames[] = {
    "KALU_ERR", "KALU_NO_ERR", "KALU_VHM_NO_ERROR", "KALU_ERROR_STOP_DOWNLOA_DREQUEST",
    "MAP_SPACE_NOT_AVAILABLE", "MAP_EXTRACTION_ERROR", "NAV_EXTRACT_ERROR",
    "VCA_SPACE_NOT_AVAILABLE", "PKG_NOT_COPIED", "PKG_DOWNLOAD_STARTED",
    "KALU_PKG_ALREADY_INSTALLED", "KALU_RESUME_NEXT_PKG_INSTALLATION",
    "USB_NOT_FOUND_FOR_MAP_NAV", "LST_ERR03", "LST_ERR04", "LST_ERR05", "LST_ERR06",
    "LST_ERR07", "LST_ERR08", "VER_ERR01", "VER_ERR02", "VER_ERR03", "VER_ERR04",
    "VER_ERR05", "VER_ERR06", "VER_ERR07", "VER_ERR08", "VER_ERR09", "VER_ERR10",
    "VER_ERR11", "VER_ERR12", "VER_ERR13", "VER_ERR14", "VER_ERR15", "MEM_ERR01",
    "MEM_ERR02", "MEM_ERR03", "PKG_ERR02", "PKG_ERR03", "PKG_ERR04", "SIGN_ERR01",
    "SIGN_ERR02", "SIGN_ERR03", "INSTL_ERR01", "INSTL_ERR02", "INSTL_ERR03", "INSTL_ERR04",
    "INSTL_ERR05", "INSTL_ERR06", "INSTL_ERR07", "INSTL_ERR08", "INSTL_ERR09",
    "INSTL_ERR10", "INSTL_ERR11", "INSTL_ERR12", "INSTL_ERR13", "INSTL_ERR14",
    "INSTL_ERR15", "BGMAP_ERR01", "NAVVOICE_ERR01",
};
// clang-format on
static_assert(sizeof kNames / sizeof kNames[0] == NAVVOICE_ERR01 + 1, "one name per value");

constexpr std::size_t kTableBytes = CKALUStatus::kSlotCount * CKALUStatus::kSlotWidth;

char* NothrowAllocate(std::size_t bytes) { return new (std::nothrow) char[bytes]; }

#if defined(EV_TEST_SEAMS)
ev::TableAllocator g_allocateTable = NothrowAllocate;
#else
constexpr ev::TableAllocator g_allocateTable = NothrowAllocate;
#endif

}  // namespace

#if defined(EV_TEST_SEAMS)
namespace ev {

TableAllocator SetTableAllocator(TableAllocator allocator) {
  TableAllocator previous = g_allocateTable;
  g_allocateTable = allocator != nullptr ? allocator : NothrowAllocate;
  return previous;
}

}  // namespace ev
#endif

char* CKALUStatus::m_arcEnums = nullptr;
char CKALUStatus::m_cInvalidEnumError[kSlotWidth] = "::INVALID ENUM::";
char CKALUStatus::m_cEnumInitError[kSlotWidth] = "::ENUM INIT FAILED::";

CKALUStatus::CKALUStatus(_KALU_Error status) : m_eStatus(status) {}

CKALUStatus::~CKALUStatus() {}

_KALU_Error CKALUStatus::Value() const { return m_eStatus; }

const char* CKALUStatus::ToStr() const { return EnumToStr(m_eStatus); }

void CKALUStatus::Init() {
  if (m_arcEnums != nullptr) return;
  char working[kTableBytes];
  std::memset(working, 0, sizeof working);
  for (std::size_t value = 0; value < sizeof kNames / sizeof kNames[0]; ++value) {
    std::strncpy(working + value * kSlotWidth, kNames[value], kSlotWidth - 1);
  }
  char* table = g_allocateTable(kTableBytes);
  if (table == nullptr) return;
  std::memset(table, 0, kTableBytes);
  std::memcpy(table, working, kTableBytes);
  m_arcEnums = table;
}

const char* CKALUStatus::EnumToStr(_KALU_Error status) {
  if (m_arcEnums == nullptr) Init();
  if (static_cast<unsigned int>(status) > kSlotCount - 1) return m_cInvalidEnumError;
  if (m_arcEnums == nullptr) return m_cEnumInitError;
  return m_arcEnums + kSlotWidth * static_cast<unsigned int>(status);
}
