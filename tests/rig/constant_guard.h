// Makes the page behind each constant of a library unreadable, so that a read past a literal or a table
// crashes. Only a library that tools/images/guarded_constants.py has linked has such pages; its constants end
// where they begin.
#pragma once

#include <windows.h>

#include <cstddef>

namespace rig {

/// Makes the guard pages of a loaded library unreadable and returns their number; 0 if it was linked without
/// them.
size_t GuardConstants(HMODULE library);

/// Returns how many bytes `address` is past the start of its guard page, which is about the end of the
/// constant; -1 if it is not in a guard page of `library`.
ptrdiff_t PastConstant(HMODULE library, const void* address);

}  // namespace rig
