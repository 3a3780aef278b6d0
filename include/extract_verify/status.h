// Status codes of the library and their names.
//
// Every outcome is a _KALU_Error; 1 (KALU_NO_ERR) is success. CKALUStatus
// turns a value into its name, held in one process-wide table of fixed-width
// slots that is built on first use and never freed. Conversions may run on
// any thread; two threads converting their first value at once may both
// build the table (identical results, one allocation lost).
#ifndef EXTRACT_VERIFY_STATUS_H_
#define EXTRACT_VERIFY_STATUS_H_

#include <cstddef>

#include "extract_verify/export.h"

// A signed 32-bit value: every int is a valid _KALU_Error, named or not.
enum _KALU_Error : int {
  KALU_ERR = 0,
  KALU_NO_ERR = 1,
  KALU_VHM_NO_ERROR = 2,
  KALU_ERROR_STOP_DOWNLOA_DREQUEST = 3,
  MAP_SPACE_NOT_AVAILABLE = 4,
  MAP_EXTRACTION_ERROR = 5,
  NAV_EXTRACT_ERROR = 6,
  VCA_SPACE_NOT_AVAILABLE = 7,
  PKG_NOT_COPIED = 8,
  PKG_DOWNLOAD_STARTED = 9,
  KALU_PKG_ALREADY_INSTALLED = 10,
  KALU_RESUME_NEXT_PKG_INSTALLATION = 11,
  USB_NOT_FOUND_FOR_MAP_NAV = 12,
  LST_ERR03 = 13,
  LST_ERR04 = 14,
  LST_ERR05 = 15,
  LST_ERR06 = 16,
  LST_ERR07 = 17,
  LST_ERR08 = 18,
  VER_ERR01 = 19,
  VER_ERR02 = 20,
  VER_ERR03 = 21,
  VER_ERR04 = 22,
  VER_ERR05 = 23,
  VER_ERR06 = 24,
  VER_ERR07 = 25,
  VER_ERR08 = 26,
  VER_ERR09 = 27,
  VER_ERR10 = 28,
  VER_ERR11 = 29,
  VER_ERR12 = 30,
  VER_ERR13 = 31,
  VER_ERR14 = 32,
  VER_ERR15 = 33,
  MEM_ERR01 = 34,
  MEM_ERR02 = 35,
  MEM_ERR03 = 36,
  PKG_ERR02 = 37,
  PKG_ERR03 = 38,
  PKG_ERR04 = 39,
  SIGN_ERR01 = 40,
  SIGN_ERR02 = 41,
  SIGN_ERR03 = 42,
  INSTL_ERR01 = 43,
  INSTL_ERR02 = 44,
  INSTL_ERR03 = 45,
  INSTL_ERR04 = 46,
  INSTL_ERR05 = 47,
  INSTL_ERR06 = 48,
  INSTL_ERR07 = 49,
  INSTL_ERR08 = 50,
  INSTL_ERR09 = 51,
  INSTL_ERR10 = 52,
  INSTL_ERR11 = 53,
  INSTL_ERR12 = 54,
  INSTL_ERR13 = 55,
  INSTL_ERR14 = 56,
  INSTL_ERR15 = 57,
  BGMAP_ERR01 = 58,
  NAVVOICE_ERR01 = 59,
};

class EV_EXPORT CKALUStatus {
 public:
  enum { kSlotCount = 66, kSlotWidth = 150 };

  explicit CKALUStatus(_KALU_Error status);
  ~CKALUStatus();

  _KALU_Error Value() const;
  const char* ToStr() const;

  // Name of `status`: "::INVALID ENUM::" above 65 (and for negative values),
  // "::ENUM INIT FAILED::" when the table could not be allocated, the empty
  // string for the unnamed values 60 to 65. Valid for the life of the process.
  static const char* EnumToStr(_KALU_Error status);

  // Builds the name table unless it exists; a failed build is retried later.
  static void Init();

  static char* m_arcEnums;
  static char m_cInvalidEnumError[kSlotWidth];
  static char m_cEnumInitError[kSlotWidth];

 private:
  _KALU_Error m_eStatus;
};

#endif  // EXTRACT_VERIFY_STATUS_H_
