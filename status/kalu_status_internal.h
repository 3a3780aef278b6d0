// Test seam of the status table: the allocator that Init uses for the table.
// It returns null instead of throwing; tests install a failing one to reach
// the "::ENUM INIT FAILED::" path. Not exported to clients.
#ifndef STATUS_KALU_STATUS_INTERNAL_H_
#define STATUS_KALU_STATUS_INTERNAL_H_

#include <cstddef>

namespace kalu_status_internal {

using TableAllocator = char* (*)(std::size_t bytes);

// Installs `allocator` (null restores the default) and returns the previous one.
TableAllocator SetTableAllocator(TableAllocator allocator);

}  // namespace kalu_status_internal

#endif  // STATUS_KALU_STATUS_INTERNAL_H_
