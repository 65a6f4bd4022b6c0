// The subject's use of COM, all of it bound by name.
#include "subject.h"

#include <objbase.h>
#include <objidl.h>

namespace {

constexpr GUID kClass = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0xC0, 0xDE}};
constexpr GUID kStream = {0x0000000C, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr GUID kSequentialStream = {0x0C733A30, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0, 0xAA, 0, 0x44, 0x77, 0x3D}};

template <typename Signature>
Signature* Find(HMODULE module, const char* name) {
  return reinterpret_cast<Signature*>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

HRESULT UseStream(IStream* stream, SubjectComFault fault) {
  HRESULT result = stream->Write("data", 4, nullptr);
  if (FAILED(result)) return result;
  if (fault == kSubjectComCallsOther) return stream->Revert();
  ISequentialStream* same = nullptr;
  result = stream->QueryInterface(kSequentialStream, reinterpret_cast<void**>(&same));
  if (SUCCEEDED(result)) same->Release();
  return result;
}

HRESULT CreateAndUse(HMODULE ole, SubjectComFault fault) {
  auto create = Find<decltype(CoCreateInstance)>(ole, "CoCreateInstance");
  if (!create) return E_NOTIMPL;
  IStream* stream = nullptr;
  HRESULT result = create(kClass, nullptr, CLSCTX_INPROC_SERVER, kStream, reinterpret_cast<void**>(&stream));
  if (FAILED(result) && fault == kSubjectComUsesLeftover && stream) stream->Release();
  if (FAILED(result)) return result;
  result = UseStream(stream, fault);
  if (fault != kSubjectComKeepsObject) stream->Release();
  if (fault == kSubjectComReleasesTwice) stream->Release();
  return result;
}

HRESULT UseString(HMODULE oleaut, SubjectComFault fault) {
  auto allocate = Find<BSTR WINAPI(const OLECHAR*)>(oleaut, "SysAllocString");
  auto release = Find<void WINAPI(BSTR)>(oleaut, "SysFreeString");
  if (!allocate || !release) return E_NOTIMPL;
  BSTR string = allocate(L"text");
  if (!string) return E_OUTOFMEMORY;
  if (fault != kSubjectComKeepsString) release(string);
  return S_OK;
}

}  // namespace

extern "C" HRESULT SubjectCom(SubjectComFault fault) {
  HMODULE ole = LoadLibraryA("OLE32");
  if (!ole) return E_FAIL;
  auto start = Find<decltype(CoInitializeEx)>(ole, "CoInitializeEx");
  auto end = Find<decltype(CoUninitialize)>(ole, "CoUninitialize");
  HRESULT started = start && end ? start(nullptr, COINIT_APARTMENTTHREADED) : E_NOTIMPL;
  HRESULT result = started;
  if (SUCCEEDED(started) || started == RPC_E_CHANGED_MODE) result = CreateAndUse(ole, fault);
  if (SUCCEEDED(result)) {
    HMODULE oleaut = LoadLibraryA("OLEAUT32");
    result = oleaut ? UseString(oleaut, fault) : E_FAIL;
    if (oleaut) FreeLibrary(oleaut);
  }
  if (SUCCEEDED(started) && fault != kSubjectComKeepsStart) end();
  FreeLibrary(ole);
  return result;
}
