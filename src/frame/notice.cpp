#include "frame/notice.h"

#include "base/text.h"
#include "frame/installer_record.h"

namespace {

// The size of the buffer for properties, in bytes with the terminator.
constexpr DWORD kShortPropertySize = 128;

constexpr char kFallbackTitle[] = "Halvorstead Vantor Platform Component";

void ShowNoticeBox(MSIHANDLE session, const Notice& notice, char* buffer, DWORD count) {
  if (notice.title == NoticeTitle::kWholeBuffer) count = kShortPropertySize;
  UINT status = MsiGetPropertyA(session, "ProductName", buffer, &count);
  const char* title = status == ERROR_SUCCESS && buffer[0] ? buffer : kFallbackTitle;
  MessageBoxA(nullptr, notice.boxText, title, notice.boxIcon);
}

}  // namespace

void SendNotice(MSIHANDLE session, const Notice* notice) {
  char buffer[kShortPropertySize];
  // On purpose: not ReadShortProperty. The length that is left in `count` limits the titles of some notices.
  DWORD count = kShortPropertySize;
  if (MsiGetPropertyA(session, "PROP_SILENCE", buffer, &count) != ERROR_SUCCESS) return;
  if (TxtCompareA(buffer, "-1") != 0) return;

  InstallerRecord record(MsiCreateRecord(2));
  if (!record) {
    ShowNoticeBox(session, *notice, buffer, count);
    return;
  }
  MsiRecordSetInteger(record.get(), 1, notice->number);
  MsiProcessMessage(session, notice->type, record.get());
}
