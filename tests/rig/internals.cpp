#include "rig/internals.h"

#include <stdexcept>
#include <string>

namespace rig {

void* FindInternal(const char* name) {
  Library* library = Library::Current();
  if (library == nullptr) {
    throw std::runtime_error(std::string(name) + " was called while no library is loaded");
  }
  FARPROC address = library->Find(name);
  if (address == nullptr) {
    throw std::runtime_error(std::string("the library does not export ") + name);
  }
  return reinterpret_cast<void*>(address);
}

}  // namespace rig
