// Two paths: their order, and their common ancestor.

#include <stdint.h>

#include "base/object.h"
#include "base/text.h"
#include "paths/path_node.h"

namespace {

// Returns the bytes of a path's text.
int64_t Measure(const PathObject* path) {
  int64_t length = 0;
  for (PathPiece piece = LastPiece(path); piece.node; piece = PieceBefore(piece)) length += piece.length;
  return length;
}

// Moves to the nearest piece, towards the root, that has bytes left; node is null if there is none.
void SkipUsedUp(PathPiece* piece) {
  while (piece->node && !piece->length) *piece = PieceBefore(*piece);
}

// Returns the last piece of `path` without its last `dropped` bytes.
PathPiece LastPieceWithout(const PathObject* path, int64_t dropped) {
  PathPiece piece = LastPiece(path);
  while (piece.node && dropped > piece.length) {
    dropped -= piece.length;
    piece = PieceBefore(piece);
  }
  piece.length -= static_cast<int>(dropped);
  return piece;
}

// Turns a comparison's result into an order; a failed comparison counts as "before".
int AsOrder(int comparison) {
  return comparison < 0 ? -1 : comparison;
}

char FoldToUpper(char unit) {
  return unit >= 'a' && unit <= 'z' ? static_cast<char>(unit - 'a' + 'A') : unit;
}

// Returns the length of the longest folder with which both texts begin.
size_t CommonPrefix(const char* a, const char* b) {
  size_t matched = 0;
  while (a[matched] && FoldToUpper(a[matched]) == FoldToUpper(b[matched])) ++matched;
  bool isWholeName = (!a[matched] && b[matched] == '\\') || (!b[matched] && a[matched] == '\\');
  if (isWholeName) return matched;
  while (matched && a[matched - 1] != '\\') --matched;
  return matched ? matched - 1 : 0;
}

}  // namespace

int PathCompare(Object* first, Object* second) {
  if (first == second || !first || !second) return 0;
  const PathObject* a = static_cast<const PathObject*>(first);
  const PathObject* b = static_cast<const PathObject*>(second);
  if (a == b->parent) return -1;
  if (b == a->parent) return 1;
  if (a->parent == b->parent) return AsOrder(TxtCompareIA(a->text, b->text));

  int64_t lengthA = Measure(a);
  int64_t lengthB = Measure(b);
  int64_t common = lengthA < lengthB ? lengthA : lengthB;
  int result = lengthA > lengthB ? 1 : lengthA < lengthB ? -1 : 0;
  PathPiece pieceA = LastPieceWithout(a, lengthA - common);
  PathPiece pieceB = LastPieceWithout(b, lengthB - common);
  for (;;) {
    SkipUsedUp(&pieceA);
    SkipUsedUp(&pieceB);
    if (pieceA.node == pieceB.node || !pieceA.node || !pieceB.node) return result;
    int stretch = pieceA.length < pieceB.length ? pieceA.length : pieceB.length;
    pieceA.length -= stretch;
    pieceB.length -= stretch;
    int order = TxtCompareNIA(pieceA.node->text + pieceA.length, pieceB.node->text + pieceB.length,
                              static_cast<size_t>(stretch));
    // The leftmost difference decides.
    if (order) result = AsOrder(order);
  }
}

PathObject* PathCommonAncestor(PathObject* a, PathObject* b) {
  if (!a || !b) return nullptr;
  if (a == b) return static_cast<PathObject*>(a->ops.Retain(a));
  PathRef flatA(PathFlatten(a));
  PathRef flatB(PathFlatten(b));
  if (!flatA || !flatB) return nullptr;
  const char* text = flatA.get()->text;
  size_t length = CommonPrefix(text, flatB.get()->text);
  if (!length) return nullptr;
  if (!text[length]) return static_cast<PathObject*>(a->ops.Retain(a));
  if (!flatB.get()->text[length]) return static_cast<PathObject*>(b->ops.Retain(b));
  return PathMake(nullptr, text, static_cast<int>(length));
}
