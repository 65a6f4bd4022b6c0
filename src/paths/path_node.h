// Shared by the source files of the path value: the operations in its table, and the walk over the nodes of a
// path. Used by the path*.cpp files only.
#pragma once

#include <limits.h>
#include <stddef.h>

#include "base/object.h"
#include "paths/drive.h"
#include "paths/path.h"

/// The most bytes of a node's text or of a whole path; a longer one counts as out of memory. Leaves space for
/// additions to a text (drive prefix, backslash, ".lnk", terminators).
constexpr int kMaxPathBytes = INT_MAX - 16;

extern "C" {

/// `Release` of a path.
void PathRelease(Object* object);
/// `Compare` of two paths.
int PathCompare(Object* first, Object* second);
/// `CopyText` of a path.
unsigned PathCopyText(Object* object, char* buffer, unsigned room, int precision, const char* position,
                      unsigned conversion);
/// `Query` of a path.
UINT_PTR PathQuery(Object* object, DWORD selector, UINT_PTR argument, void* record, const char* position,
                   unsigned conversion);

}  // extern "C"

/// One node's part of a path's text: the whole text of the node, without a final backslash if the next text
/// begins with one.
struct PathPiece {
  const PathObject* node;  ///< null before the root node
  int length;              ///< the bytes of the node's text that count
  bool startsAtBackslash;  ///< true if the path's text from this piece on begins with a backslash
};

/// Returns the piece of `node`; `beforeBackslash` is true if the text after it begins with a backslash.
inline PathPiece PieceOf(const PathObject* node, bool beforeBackslash) {
  if (!node) return {nullptr, 0, beforeBackslash};
  int length = node->length;
  if (beforeBackslash && length && node->text[length - 1] == '\\') --length;
  return {node, length, length ? node->text[0] == '\\' : beforeBackslash};
}

/// Returns the last piece of `path`: paths are walked from their end to their root.
inline PathPiece LastPiece(const PathObject* path) {
  return PieceOf(path, false);
}

/// Returns the piece before `piece`; `piece.node` must not be null.
inline PathPiece PieceBefore(const PathPiece& piece) {
  return PieceOf(piece.node->parent, piece.startsAtBackslash);
}

/// Returns the sum of all node lengths of `path` in bytes, doubled backslashes included.
inline size_t SumOfLengths(const PathObject* path) {
  size_t sum = 0;
  for (; path; path = path->parent) sum += static_cast<size_t>(path->length);
  return sum;
}
