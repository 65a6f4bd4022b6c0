// The library's own status codes for work on files and folders. Used by the file status, the copy/move engine
// and the actions that call them. 0 is success. If a function returns other values, its comment lists them.
#pragma once

/// Success.
constexpr int kStatusOk = 0;
/// A folder could not be created, or a function that the step needs is missing.
constexpr int kStatusNotCreated = -1;
/// A move, copy or deletion failed, or a name could not be resolved.
constexpr int kStatusOperationFailed = -36;
/// The file or folder does not exist.
constexpr int kStatusNotFound = -43;
/// The name exists but is of the wrong kind: a file where a folder is wanted, or the reverse.
constexpr int kStatusWrongKind = -48;
/// A required argument is null or missing.
constexpr int kStatusMissingArgument = -50;
/// Out of memory; also if a path cannot be converted to a string.
constexpr int kStatusNoMemory = -108;
