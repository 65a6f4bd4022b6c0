// Checks what exists at a path, moves files and folders, and creates folders. Used by the upgrade actions and
// by a path's `Query` when asked for a walker. Results are codes of base/status.h; a null path gives
// kStatusMissingArgument, a path that cannot be converted kStatusNoMemory.
#pragma once

#include "base/status.h"
#include "paths/path.h"

extern "C" {

/// Returns kStatusOk if a file of that name exists and can be opened (its contents need not be accessible),
/// kStatusWrongKind for a folder that can be opened like a file, kStatusNotFound otherwise. Windows does not
/// open a folder like a file, so a folder usually counts as not found.
int FileExists(PathObject* path);

/// Returns kStatusOk for a folder, kStatusWrongKind for a file, kStatusNotFound if neither exists.
int FolderExists(PathObject* path);

/// Moves a file or a folder within its volume; an existing file of the new name is replaced. Returns
/// kStatusOk, or kStatusOperationFailed, and then nothing is moved.
int MovePath(PathObject* from, PathObject* to);

/// Creates each missing folder along `path`, `path` itself included, with default security. Returns
/// kStatusOk, kStatusWrongKind if a file exists where a folder is needed, kStatusNotCreated if a folder
/// cannot be created; the folders above it stay. Works only for a path that begins with a drive and names
/// more than the drive; for any other path, the first folder can neither be found nor created.
int CreateFolderChain(PathObject* path);

}  // extern "C"
