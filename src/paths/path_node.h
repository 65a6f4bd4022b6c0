// What the rooms of the path value share: the operations behind its table, and the walk over the nodes of a
// path. Used by the path*.cpp files only.
#pragma once

#include <limits.h>
#include <stddef.h>

#include "base/object.h"
#include "paths/drive.h"
#include "paths/path.h"

/// The most bytes that a node's text or a whole path may have; longer ones count as lack of memory. Leaves
/// room for what is put around a text (drive prefix, backslash, ".lnk", terminators).
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

/// One node's share of a path's text: the whole text of the node, less a last backslash that doubles the
/// first one of the text behind it.
struct PathPiece {
  const PathObject* node;  ///< null in front of the root node
  int length;              ///< bytes of the node's text that count
  bool startsAtBackslash;  ///< whether the path's text from this piece on begins with a backslash
};

/// The share of `node`, where the text behind it begins with a backslash or not.
inline PathPiece PieceOf(const PathObject* node, bool beforeBackslash) {
  if (!node) return {nullptr, 0, beforeBackslash};
  int length = node->length;
  if (beforeBackslash && length && node->text[length - 1] == '\\') --length;
  return {node, length, length ? node->text[0] == '\\' : beforeBackslash};
}

/// The last piece of `path`: paths are walked from their end to their root.
inline PathPiece LastPiece(const PathObject* path) {
  return PieceOf(path, false);
}

/// The piece before `piece`, which is not the one in front of the root.
inline PathPiece PieceBefore(const PathPiece& piece) {
  return PieceOf(piece.node->parent, piece.startsAtBackslash);
}

/// The sum of all lengths of `path` in bytes, doubled backslashes included.
inline size_t SumOfLengths(const PathObject* path) {
  size_t sum = 0;
  for (; path; path = path->parent) sum += static_cast<size_t>(path->length);
  return sum;
}
