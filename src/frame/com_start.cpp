#include "frame/com_start.h"

#include <objbase.h>

#include "base/late_binding.h"

int StartCom(HRESULT* started) {
  *started = E_NOTIMPL;
  // On purpose: looked up on each call and not kept, because COM's library may be loaded or freed between two
  // actions.
  auto* initialize = FindFunction<decltype(CoInitializeEx)>(GetModuleHandleA("OLE32"), "CoInitializeEx");
  if (!initialize) return 0;
  *started = initialize(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
  return 1;
}
