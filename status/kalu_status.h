// The status names' table, as its implementation and the tests see it.
//
// CKALUStatus (extract_verify/status.h) builds its table of names with an
// allocator that returns null instead of throwing. The tests replace it to
// reach the "::ENUM INIT FAILED::" path. Any thread, between conversions.
#ifndef STATUS_KALU_STATUS_H_
#define STATUS_KALU_STATUS_H_

#include <cstddef>

namespace ev {

using TableAllocator = char* (*)(std::size_t bytes);

// Test hook, in the test build only: installs `allocator` (null restores the
// default) and returns the previous one.
TableAllocator SetTableAllocator(TableAllocator allocator);

}  // namespace ev

#endif  // STATUS_KALU_STATUS_H_
