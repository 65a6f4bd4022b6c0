#include "rig/world/installer.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "rig/facts.h"
#include "rig/function.h"
#include "rig/print.h"

namespace rig {
namespace {

constexpr MSIHANDLE kSession = 4711;

/// Stores text in a caller's buffer as MsiGetProperty does. On entry `*count` is the buffer's size with the
/// terminator; on return it is the text's length without it. Text that does not fit is cut and terminated.
template <class Unit>
UINT GiveText(std::basic_string_view<Unit> text, Unit* buffer, DWORD* count) {
  if (buffer == nullptr) {
    if (count != nullptr) {
      *count = static_cast<DWORD>(text.size());
    }
    return ERROR_SUCCESS;
  }
  if (count == nullptr) {
    return ERROR_INVALID_PARAMETER;
  }
  DWORD room = *count;
  *count = static_cast<DWORD>(text.size());
  if (room > 0) {
    size_t copied = std::min<size_t>(text.size(), room - 1);
    std::memcpy(buffer, text.data(), copied * sizeof(Unit));
    buffer[copied] = 0;
  }
  return text.size() < room ? ERROR_SUCCESS : ERROR_MORE_DATA;
}

/// Replaces "[1]", "[2]" ... by the fields.
std::wstring Expand(const std::vector<std::wstring>& fields) {
  const std::wstring& pattern = fields[0];
  std::wstring out;
  for (size_t at = 0; at < pattern.size();) {
    size_t end = at + 1;
    while (end < pattern.size() && pattern[end] >= L'0' && pattern[end] <= L'9') {
      ++end;
    }
    if (pattern[at] == L'[' && end > at + 1 && end < pattern.size() && pattern[end] == L']') {
      size_t field = std::stoul(pattern.substr(at + 1, end - at - 1));
      out += field < fields.size() ? fields[field] : L"";
      at = end + 1;
    } else {
      out += pattern[at++];
    }
  }
  return out;
}

}  // namespace

InstallerSession::InstallerSession(Rig& rig) : rig_(rig) {
}

std::string InstallerSession::Narrow(std::wstring_view text) const {
  int size = static_cast<int>(text.size());
  std::string out(static_cast<size_t>(size) * 4, '\0');
  int length = size == 0 ? 0
                         : WideCharToMultiByte(codePage, 0, text.data(), size, out.data(),
                                               static_cast<int>(out.size()), nullptr, nullptr);
  out.resize(static_cast<size_t>(length));
  return out;
}

std::wstring InstallerSession::Widen(std::string_view text) const {
  int size = static_cast<int>(text.size());
  std::wstring out(text.size(), L'\0');
  int length = size == 0 ? 0 : MultiByteToWideChar(codePage, 0, text.data(), size, out.data(), size);
  out.resize(static_cast<size_t>(length));
  return out;
}

void InstallerSession::Set(const std::string& name, std::string_view value) {
  Set(name, ToWide(value));
}

void InstallerSession::Set(const std::string& name, std::wstring_view value) {
  properties_[name] = std::wstring(value);
}

std::string InstallerSession::Get(const std::string& name) const {
  auto found = properties_.find(name);
  return found == properties_.end() ? std::string() : ToUtf8(found->second);
}

std::vector<std::string> InstallerSession::Log() const {
  std::vector<std::string> lines;
  for (const Message& message : messages_) {
    if (message.type == INSTALLMESSAGE_INFO) {
      lines.push_back(message.text);
    }
  }
  return lines;
}

UINT InstallerSession::Read(const std::string& name, std::wstring& value) const {
  auto failing = unreadable_.find(name);
  if (failing != unreadable_.end()) {
    return failing->second;
  }
  auto found = properties_.find(name);
  value = found == properties_.end() ? std::wstring() : found->second;
  return ERROR_SUCCESS;
}

UINT InstallerSession::Write(const std::string& name, std::wstring value) {
  auto failing = unsettable_.find(name);
  if (failing != unsettable_.end()) {
    return failing->second;
  }
  if (name.empty()) {
    return ERROR_FUNCTION_FAILED;
  }
  published_.push_back(name + " = " + ToUtf8(value));
  properties_[name] = std::move(value);
  return ERROR_SUCCESS;
}

UINT InstallerSession::SetField(MSIHANDLE record, UINT field, std::wstring value) {
  auto found = records_.find(record);
  if (found == records_.end()) {
    return ERROR_INVALID_HANDLE;
  }
  if (field >= found->second.fields.size()) {
    return ERROR_INVALID_FIELD;
  }
  found->second.fields[field] = std::move(value);
  return ERROR_SUCCESS;
}

int InstallerSession::Process(INSTALLMESSAGE type, MSIHANDLE record) {
  auto found = records_.find(record);
  if (found == records_.end()) {
    return -1;
  }
  Message message{static_cast<unsigned>(type), ToUtf8(Expand(found->second.fields)), {}};
  for (const std::wstring& field : found->second.fields) {
    message.fields.push_back(ToUtf8(field));
  }
  ObserveMessage(message.type, message.text, message.fields);
  messages_.push_back(std::move(message));
  return answer;
}

void InstallerSession::Install() {
  rig_.session = kSession;
  rig_.On<::MsiGetPropertyA>([this](MSIHANDLE, const char* name, char* buffer, DWORD* count) -> UINT {
    std::wstring value;
    UINT error = name == nullptr ? ERROR_INVALID_PARAMETER : Read(name, value);
    return error != ERROR_SUCCESS ? error : GiveText<char>(Narrow(value), buffer, count);
  });
  rig_.On<::MsiGetPropertyW>([this](MSIHANDLE, const wchar_t* name, wchar_t* buffer, DWORD* count) -> UINT {
    std::wstring value;
    UINT error = name == nullptr ? ERROR_INVALID_PARAMETER : Read(ToUtf8(name), value);
    return error != ERROR_SUCCESS ? error : GiveText<wchar_t>(value, buffer, count);
  });
  rig_.On<::MsiSetPropertyA>([this](MSIHANDLE, const char* name, const char* value) -> UINT {
    return name == nullptr ? ERROR_INVALID_PARAMETER : Write(name, Widen(value == nullptr ? "" : value));
  });
  rig_.On<::MsiSetPropertyW>([this](MSIHANDLE, const wchar_t* name, const wchar_t* value) -> UINT {
    return name == nullptr ? ERROR_INVALID_PARAMETER : Write(ToUtf8(name), value == nullptr ? L"" : value);
  });
  rig_.On<::MsiGetMode>(
      [this](MSIHANDLE, MSIRUNMODE mode) -> BOOL { return rollback && mode == MSIRUNMODE_ROLLBACK; });
  rig_.On<::MsiCreateRecord>([this](UINT fields) -> MSIHANDLE {
    if (refusesRecords) {
      return 0;
    }
    records_[nextRecord_].fields.resize(fields + 1);
    return nextRecord_++;
  });
  rig_.On<::MsiCloseHandle>([this](MSIHANDLE handle) -> UINT {
    return records_.erase(handle) == 0 ? ERROR_INVALID_HANDLE : ERROR_SUCCESS;
  });
  rig_.On<::MsiRecordSetStringA>([this](MSIHANDLE record, UINT field, const char* value) {
    return SetField(record, field, Widen(value == nullptr ? "" : value));
  });
  rig_.On<::MsiRecordSetStringW>([this](MSIHANDLE record, UINT field, const wchar_t* value) {
    return SetField(record, field, value == nullptr ? L"" : value);
  });
  rig_.On<::MsiRecordSetInteger>([this](MSIHANDLE record, UINT field, int value) {
    return SetField(record, field, std::to_wstring(value));
  });
  rig_.On<::MsiProcessMessage>(
      [this](MSIHANDLE, INSTALLMESSAGE type, MSIHANDLE record) { return Process(type, record); });
  rig_.On<::MsiSetInternalUI>([this](INSTALLUILEVEL level, HWND*) { return std::exchange(uiLevel, level); });
}

}  // namespace rig
