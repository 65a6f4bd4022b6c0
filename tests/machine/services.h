// Services that an installation makes and deletes.
#pragma once

#include <windows.h>

namespace machine {

/// Waits until no service of the packages is marked for deletion, at most `limit` milliseconds. The removal
/// of a product ends before the process of its deleted service does, and until then the service cannot be
/// made again.
void WaitForDeletedServices(DWORD limit);

}  // namespace machine
