// Moves an older server's folders into the new layout.
//
// CustomAction20  immediate: decides where everything goes. Reads PROP_PRE75SERVER or DIR_SERVER, the
//                 settings of the server, and the last names of DIR_UPG, DIR_UPG_DATA, DIR_UPG_HELPERDATA,
//                 DIR_UPG_VRDF and DIR_UPG_VRDF_PREFS. Sets these five, DIR_EXSERVER and DIR_EXDATA. Always
//                 returns 0.
// CustomAction15  deferred: runs the copy/move engine with CustomActionData, to move the old server folder
//                 aside. Returns 0; on failure shows notice 26000 and returns 1603.
// CustomAction16  deferred: runs the engine with CustomActionData, to move files into the new server folder.
//                 Shows notice 26001 on failure, except in a rollback. Always returns 0.
// CustomAction17  deferred: reads and deletes the marker files of the database conversion in the folder
//                 CustomActionData. Returns 0 for a completed conversion, 1602 for a cancelled one, otherwise
//                 1603. Always returns 0 if the folder is preceded by "-".

#include "base/heap.h"
#include "base/text.h"
#include "base/windows_owners.h"
#include "files/file_status.h"
#include "files/tree_copy.h"
#include "format/format.h"
#include "frame/notice.h"
#include "frame/session.h"
#include "server/server_folders.h"

namespace {

constexpr INSTALLMESSAGE kNoticeType =
    static_cast<INSTALLMESSAGE>(INSTALLMESSAGE_USER | MB_OK | MB_ICONINFORMATION);

constexpr Notice kNotMovedAside = {26000, kNoticeType,
                                   "Setup was unable to move the older Server folder aside.  Either the "
                                   "target already exists, or the Server "
                                   "folder is open in another process.  The install must abort.",
                                   MB_OK | MB_ICONERROR, NoticeTitle::kWholeBuffer};

constexpr Notice kNotAllMoved = {
    26001, kNoticeType,
    "Setup was unable to move some files from the old Server folder into the new Server folder.",
    MB_OK | MB_ICONERROR, NoticeTitle::kWholeBuffer};

// The properties of the folders inside the new data folder; each folder is inside the previous one.
constexpr const wchar_t* kNestedFolders[] = {L"DIR_UPG_HELPERDATA", L"DIR_UPG_VRDF", L"DIR_UPG_VRDF_PREFS"};

// Runs the copy/move engine with CustomActionData; false on failure.
bool RunTreeCopy(MSIHANDLE session) {
  HeapStringW arguments(ReadPropertyW(session, L"CustomActionData"));
  return arguments && TreeCopyMove(arguments.get()) == kStatusOk;
}

// Returns true if `path` is `folder` or inside it. Compares with the common ancestor of both, so it does not
// recognize the root of a drive as `folder`, and letters beyond ASCII match only in the same case.
bool IsWithin(PathObject* path, PathObject* folder) {
  if (folder->ops.Compare(path, folder) == 0) return true;
  PathRef common(PathCommonAncestor(folder, path));
  return common && folder->ops.Compare(common.get(), folder) == 0;
}

// Returns the folder of the server that is being replaced; null if there is none, or on failure.
PathRef FindOldServer(MSIHANDLE session) {
  PathRef server;
  if (!ReadPathProperty(session, L"PROP_PRE75SERVER", &server) || server) return server;
  ReadPathProperty(session, L"DIR_SERVER", &server);
  return server;
}

// Stores the data folder of the old server at `data`; null if it has none outside the folder `server`.
// Returns false if that is unknown, because out of memory.
bool FindOutsideData(PathObject* server, PathRef* data) {
  RegistryKey settings;
  if (!OpenServerSettings(&settings)) return true;
  if (!ReadServerDataFolder(settings.get(), kDataFolderText, data)) return false;
  if (*data && IsWithin(data->get(), server)) data->reset();
  return true;
}

// Joins the last component of the property `name` onto `folder`. Returns null on failure, and if `folder` is
// null.
PathRef MakeBelow(MSIHANDLE session, PathObject* folder, const wchar_t* name) {
  char lastName[kLastNameSize];
  if (!folder || !ReadLastName(session, name, lastName)) return PathRef();
  return PathRef(PathJoin(folder, lastName));
}

// Makes the path of the new data folder, next to the old one `data`: the last name of DIR_UPG_DATA and
// today's date. Returns null on failure.
PathRef MakeDatedBeside(MSIHANDLE session, PathObject* data) {
  char name[kLastNameSize];
  if (!ReadLastName(session, L"DIR_UPG_DATA", name)) return PathRef();
  unsigned length = static_cast<unsigned>(TxtLenA(name));
  FormatString(name + length, kLastNameSize - length, " %d{z::#F}", 0);
  return PathRef(PathReplaceLeaf(data, name));
}

// Makes the path of a marker file in `folder` (null: the root of the current drive).
PathRef Marker(PathObject* folder, const char* name) {
  return PathRef(PathJoin(folder, name));
}

// Deletes a marker file, if it exists.
void Delete(PathObject* marker) {
  HeapStringW name(PathToWide(marker));
  if (name) DeleteFileW(name.get());
}

// Reads the result of the conversion from the marker files in `folder`, and deletes them.
UINT TakeConversionResult(PathObject* folder) {
  UINT result = ERROR_SUCCESS;
  {
    PathRef completed = Marker(folder, "dbcon_completed.txt");
    if (FileExists(completed.get()) != kStatusOk) result = ERROR_INSTALL_FAILURE;
    Delete(completed.get());
  }
  PathRef cancelled = Marker(folder, "dbcon_cancelled.txt");
  if (result && FileExists(cancelled.get()) == kStatusOk) result = ERROR_INSTALL_USEREXIT;
  Delete(cancelled.get());
  Delete(Marker(folder, "dbcon_failed.txt").get());
  Delete(Marker(folder, "dbcon_nospace.txt").get());
  return result;
}

}  // namespace

extern "C" UINT WINAPI CustomAction20(MSIHANDLE session) {
  PathRef server = FindOldServer(session);
  if (!server) return ERROR_SUCCESS;
  SetDirectoryProperty(session, L"DIR_EXSERVER", server.get());

  PathRef data;
  if (!FindOutsideData(server.get(), &data)) return ERROR_SUCCESS;
  if (data) {
    SetDirectoryProperty(session, L"DIR_EXDATA", data.get());
  } else {
    MsiSetPropertyW(session, L"DIR_EXDATA", L"");
  }

  PathRef around(PathFolder(server.get()));
  PathRef upgrade = MakeBelow(session, around.get(), L"DIR_UPG");
  // On purpose: the only property whose failure ends the action. Everything below depends on it.
  if (!SetDirectoryProperty(session, L"DIR_UPG", upgrade.get())) return ERROR_SUCCESS;
  PathRef folder =
      data ? MakeDatedBeside(session, data.get()) : MakeBelow(session, upgrade.get(), L"DIR_UPG_DATA");
  SetDirectoryProperty(session, L"DIR_UPG_DATA", folder.get());
  for (const wchar_t* name : kNestedFolders) {
    folder = MakeBelow(session, folder.get(), name);
    SetDirectoryProperty(session, name, folder.get());
  }
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction15(MSIHANDLE session) {
  if (RunTreeCopy(session)) return ERROR_SUCCESS;
  SendNotice(session, &kNotMovedAside);
  return ERROR_INSTALL_FAILURE;
}

extern "C" UINT WINAPI CustomAction16(MSIHANDLE session) {
  if (RunTreeCopy(session) || IsRollback(session)) return ERROR_SUCCESS;
  SendNotice(session, &kNotAllMoved);
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction17(MSIHANDLE session) {
  HeapStringW data(ReadPropertyW(session, L"CustomActionData"));
  bool neverFails = data && data.get()[0] == L'-';
  PathRef folder(PathFromWrittenWide(neverFails ? data.get() + 1 : data.get()));
  UINT result = TakeConversionResult(folder.get());
  return neverFails ? ERROR_SUCCESS : result;
}
