// What stands under a path, moving it, and making the folders on the way to it. Used by the upgrade actions
// and by the path value's question for a walker. Results are codes of base/status.h; a null path gives
// kStatusMissingArgument, a path that cannot be converted kStatusNoMemory.
#pragma once

#include "base/status.h"
#include "paths/path.h"

extern "C" {

/// kStatusOk when a file of that name exists and can be opened (its contents need not be accessible),
/// kStatusWrongKind for a folder that can be opened like a file, kStatusNotFound otherwise. Windows does not
/// open a folder like a file, so that a folder mostly counts as not found.
int FileExists(PathObject* path);

/// kStatusOk for a folder, kStatusWrongKind for a file, kStatusNotFound for neither.
int FolderExists(PathObject* path);

/// Moves a file or a folder within its volume; an existing file of the new name is replaced. kStatusOk, or
/// kStatusOperationFailed and nothing is moved.
int MovePath(PathObject* from, PathObject* to);

/// Creates each folder along `path` that is missing, `path` itself included, with default security.
/// kStatusOk, kStatusWrongKind when a file stands where a folder is needed, kStatusNotCreated when a folder
/// cannot be created; the folders above it stay. Only a path that begins with a drive, and names more than
/// the drive, can be provided: of any other, the first folder is none that could be found or created.
int CreateFolderChain(PathObject* path);

}  // extern "C"
