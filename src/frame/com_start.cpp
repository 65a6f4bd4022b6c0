#include "frame/com_start.h"

#include <objbase.h>

#include "base/late_binding.h"

int StartCom(HRESULT* started) {
  *started = E_NOTIMPL;
  // Looked up anew each time; nothing of it is kept.
  HMODULE module = GetModuleHandleA("OLE32");
  if (!module) return 0;
  auto* initialize = FunctionAs<decltype(CoInitializeEx)>(GetProcAddress(module, "CoInitializeEx"));
  if (!initialize) return 0;
  *started = initialize(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
  return 1;
}
