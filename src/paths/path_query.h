// Paths in record buffers: a growable buffer to which `Query` of a path appends and from which it reads. Used
// by code that stores paths; no action of this library does.
//
// An entry is a 32-bit identifier and the 32-bit tag "xpth" (both lowest byte first), the 32-bit length of
// the text (highest byte first), the text in UTF-8, and zeros up to a multiple of 4 bytes.
//
//   path->ops.Query(path, kQueryStore, identifier, &buffer, ...)
//       Appends the path. Returns the number of bytes of the entry; 0 if out of memory, and then the buffer
//       is unchanged.
//   path->ops.Query(path, kQueryRead, identifier, &buffer, ...)
//       Reads the entry at `position`. Returns a new root path (the caller releases it) and moves `position`
//       past the entry. Returns 0 and leaves the position if there is no whole entry, if out of memory, and
//       if the entry has another identifier (an `identifier` of 0 accepts any). Ignores `path` itself.
#pragma once

#include <stddef.h>

#include "base/object.h"

/// Selector of a path's `Query` that appends the path to a RecordBuffer.
constexpr DWORD kQueryStore = 0;
/// Selector of a path's `Query` that reads a path from a RecordBuffer.
constexpr DWORD kQueryRead = 1;
/// Selector of a path's `Query` that asks for a walker over the folder; also the tag of a walker, "trav".
constexpr DWORD kQueryWalker = FourCharCode("trav");
/// The argument of kQueryWalker that asks for the walker's constructor.
constexpr UINT_PTR kWalkerConstructor = 3;
/// The tag of a path's entry.
constexpr DWORD kPathEntryTag = FourCharCode("xpth");

/// A growable run of entries. Starts as all zeros.
struct RecordBuffer {
  char* bytes;      ///< heap block, or null while nothing has been appended
  size_t size;      ///< bytes appended
  size_t capacity;  ///< bytes of the block
  size_t position;  ///< where the next entry is read
};

extern "C" {

/// Appends `size` zero bytes and returns their address (valid until the next append). Returns null if out of
/// memory, and then the buffer is unchanged. The block grows to twice its size, or more if that is too small.
char* RecordBufferAppend(RecordBuffer* buffer, size_t size);

/// Frees the block and sets the buffer to all zeros.
void RecordBufferFree(RecordBuffer* buffer);

struct PathObject;

/// Answers kQueryWalker for `path`. This is the only function of this module that a higher one defines, in
/// files/dir_walker.cpp: paths know only names on the disk, not walkers.
UINT_PTR PathOfferWalker(PathObject* path, UINT_PTR wanted, RecordBuffer* ignored);

}  // extern "C"
