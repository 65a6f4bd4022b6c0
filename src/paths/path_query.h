// Paths in record buffers: the growable buffer that `Query` of a path appends to and reads from. Used by code
// that stores paths; no action of this library does.
//
// An entry is a 32-bit identifier and the 32-bit tag "xpth" (both lowest byte first), the 32-bit length of
// the text (highest byte first), the text in UTF-8, and zeros up to a multiple of 4 bytes.
//
//   path->ops.Query(path, kQueryStore, identifier, &buffer, ...)
//       appends the path; the answer is the number of bytes that the entry takes, or 0 when memory lacks, and
//       then the buffer is as it was.
//   path->ops.Query(path, kQueryRead, identifier, &buffer, ...)
//       reads the entry at `position`; the answer is a new root path (the caller releases it), and `position`
//       is moved behind the entry. 0, and the position stays, when there is no whole entry, or memory lacks,
//       or the entry has another identifier (an `identifier` of 0 accepts any). `path` itself is not looked
//       at.
#pragma once

#include <stddef.h>

#include "base/object.h"

/// Selector of a path's `Query` that appends the path to a RecordBuffer.
constexpr DWORD kQueryStore = 0;
/// Selector of a path's `Query` that reads a path from a RecordBuffer.
constexpr DWORD kQueryRead = 1;
/// Selector of a path's `Query` that asks for a walker over the folder; the tag of a walker, "trav".
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

/// Appends `size` zero bytes and returns where they begin (valid until the next append), or null when memory
/// lacks, and then the buffer is as it was. The block grows to twice its size, or more when that is too
/// little.
char* RecordBufferAppend(RecordBuffer* buffer, size_t size);

/// Frees the block and makes the buffer all zeros.
void RecordBufferFree(RecordBuffer* buffer);

struct PathObject;

/// The answer of `path` to kQueryWalker. The only function of this module that a higher one defines: the
/// walker itself does, files/dir_walker.cpp, because paths know nothing of what is on the disk but names.
UINT_PTR PathOfferWalker(PathObject* path, UINT_PTR wanted, RecordBuffer* ignored);

}  // extern "C"
