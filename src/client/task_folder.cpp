#include "client/task_folder.h"

namespace {

// Identifiers of the task service, which are in no import library.
constexpr CLSID kTaskServiceClass = {
    0x0F87369F, 0xA4E5, 0x4CFC, {0xBD, 0x3E, 0x73, 0xE6, 0x15, 0x45, 0x72, 0xDD}};
constexpr IID kTaskServiceId = {0x2FABA4C7, 0x4DA9, 0x4013, {0x96, 0x97, 0x20, 0xCC, 0x3F, 0xD4, 0x0F, 0x85}};

}  // namespace

int OpenRootFolder(TaskFolder* place, const wchar_t* rootPath) {
  if (!place->service.keep(CoCreateInstance(kTaskServiceClass, nullptr, CLSCTX_INPROC_SERVER, kTaskServiceId,
                                            place->service.putVoid()))) {
    return kAccessService;
  }
  if (FAILED(place->service->Connect(VARIANT{}, VARIANT{}, VARIANT{}, VARIANT{}))) return kAccessConnect;
  if (!place->root.keep(CallWith<&ITaskService::GetFolder>(place->service, rootPath, place->root.put()))) {
    return kAccessRoot;
  }
  return 0;
}

bool OpenMakersFolder(TaskFolder* place) {
  return place->folder.keep(
      CallWith<&ITaskFolder::GetFolder>(place->root, kMakersFolder, place->folder.put()));
}
