// The installer: properties, records and the log. A line of the library's log has at most 255 bytes.

#include "answers/installer.h"

#include "image.h"
#include "require.h"
#include "world.h"

#include <msi.h>
#include <msiquery.h>

namespace {

constexpr size_t kLongestLine = 255;

// A record: its first fields, in 8 bits.
struct Record {
  std::string fields[3];
  bool isWide = false;
};

std::map<std::u16string, std::u16string> properties;
std::map<MSIHANDLE, Record> records;
MSIHANDLE lastRecord;
bool isRollback;

void* ThingOf(MSIHANDLE record) {
  constexpr uintptr_t kRecords = 0x900000000;
  return reinterpret_cast<void*>(kRecords + record);
}

Record& RecordOf(MSIHANDLE handle) {
  NeedHeld(Kind::kRecord, ThingOf(handle));
  return records[handle];
}

void NeedSession(MSIHANDLE session) {
  REQUIRE(session == kSession, "a function of the installer is called for another session");
}

const std::u16string& ValueOf(const std::u16string& name) {
  static const std::u16string kUnset;
  auto found = properties.find(name);
  return found == properties.end() ? kUnset : found->second;
}

// Copies a value with the rules of the installer: what does not fit is cut, and its length is reported.
template <typename Unit, typename Text>
UINT Deliver(const Text& value, Unit* buffer, LPDWORD count) {
  if (MustFail()) return ERROR_FUNCTION_FAILED;
  const size_t capacity = *count;
  *count = static_cast<DWORD>(value.size());
  if (capacity > value.size()) {
    memcpy(buffer, value.c_str(), (value.size() + 1) * sizeof(Unit));
    return ERROR_SUCCESS;
  }
  if (capacity) {
    memcpy(buffer, value.data(), (capacity - 1) * sizeof(Unit));
    buffer[capacity - 1] = 0;
  }
  return ERROR_MORE_DATA;
}

UINT WINAPI AnswerMsiGetPropertyA(MSIHANDLE session, LPCSTR name, LPSTR value, LPDWORD count) {
  NeedSession(session);
  return Deliver(NarrowOf(ValueOf(WideOf(name))), value, count);
}

UINT WINAPI AnswerMsiGetPropertyW(MSIHANDLE session, LPCWSTR name, LPWSTR value, LPDWORD count) {
  NeedSession(session);
  return Deliver(ValueOf(std::u16string(ViewOf(name))), value, count);
}

UINT WINAPI AnswerMsiSetPropertyA(MSIHANDLE session, LPCSTR name, LPCSTR value) {
  NeedSession(session);
  if (MustFail()) return ERROR_FUNCTION_FAILED;
  properties[WideOf(name)] = WideOf(value);
  return ERROR_SUCCESS;
}

UINT WINAPI AnswerMsiSetPropertyW(MSIHANDLE session, LPCWSTR name, LPCWSTR value) {
  NeedSession(session);
  if (MustFail()) return ERROR_FUNCTION_FAILED;
  properties[std::u16string(ViewOf(name))] = ViewOf(value);
  return ERROR_SUCCESS;
}

BOOL WINAPI AnswerMsiGetMode(MSIHANDLE session, MSIRUNMODE mode) {
  NeedSession(session);
  REQUIRE(mode == MSIRUNMODE_ROLLBACK, "MsiGetMode is asked for mode %d", mode);
  return isRollback;
}

MSIHANDLE WINAPI AnswerMsiCreateRecord(UINT fields) {
  REQUIRE(fields == 2, "a record with %u fields is created", fields);
  if (MustFail()) return 0;
  Took(Kind::kRecord, ThingOf(++lastRecord));
  records[lastRecord] = {};
  return lastRecord;
}

UINT WINAPI AnswerMsiCloseHandle(MSIHANDLE handle) {
  GaveBack(Kind::kRecord, ThingOf(handle));
  return ERROR_SUCCESS;
}

UINT WINAPI AnswerMsiRecordSetStringA(MSIHANDLE handle, UINT field, LPCSTR text) {
  Record& record = RecordOf(handle);
  REQUIRE(field < std::size(record.fields), "the field %u of a record is set", field);
  record.fields[field] = text;
  return MustFail() ? ERROR_FUNCTION_FAILED : ERROR_SUCCESS;
}

UINT WINAPI AnswerMsiRecordSetStringW(MSIHANDLE handle, UINT field, LPCWSTR text) {
  Record& record = RecordOf(handle);
  REQUIRE(field < std::size(record.fields), "the field %u of a record is set", field);
  record.fields[field] = NarrowOf(ViewOf(text));
  record.isWide = true;
  return MustFail() ? ERROR_FUNCTION_FAILED : ERROR_SUCCESS;
}

UINT WINAPI AnswerMsiRecordSetInteger(MSIHANDLE handle, UINT field, int number) {
  Record& record = RecordOf(handle);
  REQUIRE(field == 1 && ((number >= 25000 && number <= 26001) || number == 27000),
          "the field %u is set to the notice %d", field, number);
  record.fields[field] = std::to_string(number);
  return MustFail() ? ERROR_FUNCTION_FAILED : ERROR_SUCCESS;
}

int WINAPI AnswerMsiProcessMessage(MSIHANDLE session, INSTALLMESSAGE type, MSIHANDLE handle) {
  NeedSession(session);
  const Record& record = RecordOf(handle);
  if (type == INSTALLMESSAGE_INFO) {
    const char* form = record.isWide ? "JN Setup Log: [1]" : "Hx Setup Log: [1]";
    REQUIRE(record.fields[0] == form, "a line of the log has the form \"%s\"", record.fields[0].c_str());
    REQUIRE(record.isWide || record.fields[1].size() <= kLongestLine, "a line of the log has %zu bytes",
            record.fields[1].size());
  }
  return MustFail() ? -1 : IDOK;
}

INSTALLUILEVEL WINAPI AnswerMsiSetInternalUI(INSTALLUILEVEL level, HWND* window) {
  REQUIRE(level == INSTALLUILEVEL_BASIC && !window, "the level of the interface is set to %d", level);
  return INSTALLUILEVEL_FULL;
}

void Reset() {
  properties.clear();
  records.clear();
  lastRecord = 0;
  isRollback = false;
}

const AtBegin kReset(Reset);
const Answers kInstaller{
    ANSWER(MsiCloseHandle, AnswerMsiCloseHandle),
    ANSWER(MsiCreateRecord, AnswerMsiCreateRecord),
    ANSWER(MsiGetMode, AnswerMsiGetMode),
    ANSWER(MsiGetPropertyA, AnswerMsiGetPropertyA),
    ANSWER(MsiGetPropertyW, AnswerMsiGetPropertyW),
    ANSWER(MsiProcessMessage, AnswerMsiProcessMessage),
    ANSWER(MsiRecordSetInteger, AnswerMsiRecordSetInteger),
    ANSWER(MsiRecordSetStringA, AnswerMsiRecordSetStringA),
    ANSWER(MsiRecordSetStringW, AnswerMsiRecordSetStringW),
    ANSWER(MsiSetInternalUI, AnswerMsiSetInternalUI),
    ANSWER(MsiSetPropertyA, AnswerMsiSetPropertyA),
    ANSWER(MsiSetPropertyW, AnswerMsiSetPropertyW),
};

}  // namespace

void SetProperty(const std::u16string& name, const std::u16string& value) {
  properties[name] = value;
}

const std::u16string& PropertyOf(const std::u16string& name) {
  return ValueOf(name);
}

void SetRollback(bool rollback) {
  isRollback = rollback;
}
