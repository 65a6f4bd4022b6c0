#include "rig/world/directory.h"

#include <cstring>

// Must come after windows.h.
#include <adshlp.h>
#include <ntdsapi.h>

#include "rig/directory_interfaces.h"
#include "rig/function.h"
#include "rig/print.h"
#include "rig/world/process.h"

namespace rig {
namespace {

constexpr CLSID kNameTranslate = {
    0x274FAE1F, 0x3626, 0x11D1, {0xA3, 0xA4, 0x00, 0xC0, 0x4F, 0xB9, 0x50, 0xDC}};
constexpr char kProvider[] = "WinNT://";
constexpr HRESULT kNoSuchDomain = HRESULT_FROM_WIN32(ERROR_NO_SUCH_DOMAIN);
constexpr HRESULT kNoSuchUser = HRESULT_FROM_WIN32(2221);
constexpr HRESULT kUserExists = HRESULT_FROM_WIN32(2224);
constexpr HRESULT kBadClass = static_cast<HRESULT>(0x80005007);
const HANDLE kDirectoryHandle = reinterpret_cast<HANDLE>(uintptr_t{0xD50010});

wchar_t* MakeText(const std::string& text) {
  std::wstring wide = ToWide(text);
  size_t size = (wide.size() + 1) * sizeof(wchar_t);
  return static_cast<wchar_t*>(std::memcpy(MakeNetworkBuffer(size), wide.c_str(), size));
}

// Stores an invalid pointer as a failing method's output.
template <class Type>
void LeaveRubbish(Type** out) {
  *out = reinterpret_cast<Type*>(uintptr_t{0xBADBAD0});
}
template <class Type>
void LeaveRubbish(Type) {
}

}  // namespace

void Directory::Install() {
  container_ = &com_.Make<IADsContainer>("container");
  object_ = &com_.Make<IDispatch>("object");
  user_ = &com_.Make<IADsUser>("user");
  InstallContainer();
  InstallUser();
  InstallTranslator();
  InstallPrincipalNames();
  rig_.On<::ADsGetObject>([this](const wchar_t* path, const IID& iid, void** out) {
    CheckPlain(path);
    return Open(ToUtf8(path), iid, out);
  });
}

DWORD Directory::RefusalOf(const std::string& call) const {
  auto refused = refused_.find(call);
  return refused == refused_.end() ? 0 : refused->second;
}

template <auto Member, class Interface, class Answer>
Declaration& Directory::Add(FakeObject<Interface>& fake, const char* name, Answer answer) {
  std::string method = fake.Name() + "." + name;
  return fake
      .template On<Member>([this, method, answer](auto... arguments) -> HRESULT {
        if (DWORD code = RefusalOf(method)) {
          (LeaveRubbish(arguments), ...);
          return static_cast<HRESULT>(code);
        }
        return answer(arguments...);
      })
      .TextArguments();
}

void Directory::CheckPlain(const wchar_t* text) const {
  if (text != nullptr && rig_.ledger.Holds(kSystemString, ToWord(text))) {
    Fail("a text for the directory is a system string, but must be a plain one: " + ToUtf8(text));
  }
}

HRESULT Directory::Open(const std::string& path, const IID& iid, void** out) {
  *out = nullptr;
  if (DWORD code = RefusalOf("ADsGetObject")) {
    LeaveRubbish(out);
    return static_cast<HRESULT>(code);
  }
  constexpr size_t kStart = sizeof kProvider - 1;
  auto domain = accounts_.domains.find(path.substr(0, kStart) == kProvider ? path.substr(kStart) : "");
  if (domain == accounts_.domains.end()) {
    return kNoSuchDomain;
  }
  domain_ = domain->first;
  return container_->Query(iid, out);
}

void Directory::InstallContainer() {
  Add<&IADsContainer::Create>(*container_, "Create", [this](BSTR type, BSTR name, IDispatch** out) {
    CheckPlain(type);
    CheckPlain(name);
    if (ToUtf8(type) != "user") {
      return kBadClass;
    }
    newName_ = ToUtf8(name);
    newUser_ = {};
    object_->Give(out);
    return HRESULT{S_OK};
  }).HandsOut(Arg<2>);
  Add<&IADsContainer::GetObject>(*container_, "GetObject", [this](BSTR type, BSTR name, IDispatch** out) {
    if (ToUtf8(type) != "user" || Users().count(ToUtf8(name)) == 0) {
      return kNoSuchUser;
    }
    object_->Give(out);
    return HRESULT{S_OK};
  }).HandsOut(Arg<2>);
  Add<&IADsContainer::Delete>(*container_, "Delete", [this](BSTR type, BSTR name) {
    return ToUtf8(type) != "user" || Users().erase(ToUtf8(name)) == 0 ? kNoSuchUser : HRESULT{S_OK};
  });
}

void Directory::InstallUser() {
  // The cast names the method by its type, because the headers overload it with a template.
  constexpr auto kQuery = static_cast<HRESULT (IUnknown::*)(REFIID, void**)>(&IUnknown::QueryInterface);
  object_
      ->On<kQuery>(
          [this](const IID& iid, void** out) {
            if (!hidesUsers_ && IsEqualGUID(iid, __uuidof(IADsUser))) {
              user_->Give(out);
              return HRESULT{S_OK};
            }
            *out = nullptr;
            return HRESULT{E_NOINTERFACE};
          },
          FailsAs(E_NOINTERFACE))
      .HandsOut(Arg<1>);
  Add<&IADsUser::SetPassword>(*user_, "SetPassword", [this](BSTR password) {
    CheckPlain(password);
    newUser_.password = ToUtf8(password);
    return S_OK;
  });
  Add<&IADsUser::put_FullName>(*user_, "put_FullName", [this](BSTR name) {
    CheckPlain(name);
    newUser_.fullName = ToUtf8(name);
    return S_OK;
  });
  Add<&IADsUser::SetInfo>(*user_, "SetInfo", [this] {
    bool isNew = Users().emplace(newName_, newUser_).second;
    return isNew ? HRESULT{S_OK} : kUserExists;
  });
}

HRESULT Directory::Translate(const std::string& name) {
  size_t backslash = name.find('\\');
  auto domain = accounts_.domains.find(name.substr(0, backslash));
  std::string user = backslash == std::string::npos ? "" : name.substr(backslash + 1);
  if (domain == accounts_.domains.end() || domain->second.accounts.count(user) == 0) {
    return kNoSuchUser;
  }
  auto known = distinguishedNames.find(name);
  translated_ =
      known != distinguishedNames.end() ? known->second : "CN=" + user + ",CN=Users,DC=" + domain->first;
  return S_OK;
}

void Directory::InstallTranslator() {
  auto& translator = com_.Make<IADsNameTranslate>("translator");
  com_.Register(kNameTranslate, translator);
  Add<&IADsNameTranslate::Init>(translator, "Init", [this](long type, BSTR path) {
    isInitialised_ = type == ADS_NAME_INITTYPE_GC && path == nullptr;
    return isInitialised_ ? S_OK : E_INVALIDARG;
  });
  Add<&IADsNameTranslate::Set>(translator, "Set", [this](long type, BSTR name) {
    CheckPlain(name);
    return isInitialised_ && type == ADS_NAME_TYPE_NT4 ? Translate(ToUtf8(name)) : E_INVALIDARG;
  });
  Add<&IADsNameTranslate::Get>(translator, "Get", [this](long type, BSTR* out) {
    if (type != ADS_NAME_TYPE_1779 || translated_.empty()) {
      return E_INVALIDARG;
    }
    *out = com_.GiveString(ToWide(translated_));
    return S_OK;
  });
}

DWORD Directory::MakeNames(const std::string& serviceClass, DWORD* count, wchar_t*** names) const {
  *count = hasPrincipalNames ? 2 : 0;
  // Without names there is still a list, which must be freed.
  *names = static_cast<wchar_t**>(MakeNetworkBuffer(*count * sizeof **names));
  if (hasPrincipalNames) {
    (*names)[0] = MakeText(serviceClass + "/pc7.corp.example");
    (*names)[1] = MakeText(serviceClass + "/PC7");
  }
  return ERROR_SUCCESS;
}

DWORD Directory::WriteNames(int operation, const std::string& account, DWORD count, const wchar_t** names) {
  if (operation != DS_SPN_ADD_SPN_OP && operation != DS_SPN_DELETE_SPN_OP) {
    return ERROR_INVALID_PARAMETER;
  }
  for (DWORD at = 0; at < count; ++at) {
    std::string entry = account + " " + ToUtf8(names[at]);
    if (operation == DS_SPN_ADD_SPN_OP) {
      registered.insert(entry);
    } else {
      registered.erase(entry);
    }
  }
  return ERROR_SUCCESS;
}

void Directory::InstallPrincipalNames() {
  rig_.On<::DsGetSpnW>([this](DS_SPN_NAME_TYPE, const wchar_t* serviceClass, const wchar_t*, USHORT, USHORT,
                              const wchar_t**, const USHORT*, DWORD* count, wchar_t*** names) -> DWORD {
    DWORD error = RefusalOf("DsGetSpnW");
    return error != 0 ? error : MakeNames(ToUtf8(serviceClass), count, names);
  });
  rig_.On<::DsBindW>([this](const wchar_t*, const wchar_t*, HANDLE* out) -> DWORD {
    if (DWORD error = RefusalOf("DsBindW")) {
      return error;
    }
    *out = kDirectoryHandle;
    return ERROR_SUCCESS;
  });
  rig_.On<::DsWriteAccountSpnW>([this](HANDLE, DS_SPN_WRITE_OP operation, const wchar_t* account, DWORD count,
                                       const wchar_t** names) -> DWORD {
    DWORD error = RefusalOf("DsWriteAccountSpnW");
    return error != 0 ? error : WriteNames(operation, ToUtf8(account), count, names);
  });
  rig_.On<::DsUnBindW>([](HANDLE*) -> DWORD { return ERROR_SUCCESS; });
  rig_.On<::DsFreeSpnArrayW>([this](DWORD count, wchar_t** names) {
    if (count != (hasPrincipalNames ? 2U : 0U)) {
      Fail("DsFreeSpnArrayW is given a wrong number of names");
      return;
    }
    for (DWORD at = 0; at < count; ++at) {
      Heap::TakeBack(names[at]);
    }
    Heap::TakeBack(names);
  });
}

}  // namespace rig
