// Searches memory for a secret.
#include "rig/failures.h"
#include "rig/guarded_heap.h"
#include "rig/import_hook.h"
#include "rig/own_stack.h"
#include "rig/rig.h"
#include "rig/secrets.h"

namespace rig {

size_t RunAndSearch(const std::function<UINT()>& action, const SecretFinder& find) {
  Rig::Current()->tracing = false;
  std::vector<std::string> freed;
  auto keep = [&](const void* block) {
    const ptrdiff_t size = block == nullptr ? -1 : GuardedHeap::Get().SizeOf(block);
    if (size > 0) freed.emplace_back(static_cast<const char*>(block), static_cast<size_t>(size));
  };
  UINT result = ~0U;
  OwnStack stack;
  {
    HX_HOOK(freeing, HeapFree, [&](HANDLE heap, DWORD flags, void* block) {
      keep(block);
      return freeing.Next(heap, flags, block);
    });
    HX_HOOK(growing, HeapReAlloc, [&](HANDLE heap, DWORD flags, void* block, SIZE_T size) {
      keep(block);
      return growing.Next(heap, flags, block, size);
    });
    stack.Run([&] { result = action(); });
  }
  if (result != 0) Fail("the action returned " + std::to_string(result));
  if (const std::string found = find(stack.Content()); !found.empty()) Fail("on the stack: " + found);
  for (const std::string& block : freed) {
    if (const std::string found = find(block); !found.empty())
      Fail("in a heap block that was freed: " + found);
  }
  return freed.size();
}

}  // namespace rig
