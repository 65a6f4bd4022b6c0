// The path value: an immutable, counted node that holds one stretch of path text and a reference on the node
// before it. Used by every action that handles file names, through the session helpers and by itself.
//
// Joining a name onto a folder makes one small node that points at the folder's node. The text of a path is
// the concatenation of its nodes' texts from the root node down; where one text ends with a backslash and the
// next begins with one, only one is kept. A node's text begins with a backslash, except that a root node (one
// without a parent) may begin with a drive, "C:", "C:\" or "C:\Data".
//
// Text inside a path is UTF-8; what goes to and comes from Windows is wide. Every operation that returns a
// PathObject returns a new reference that the caller gives back through the object (or holds in a PathRef);
// null means failure, which includes lack of memory. A null path is accepted and gives null, 0 or nothing,
// where no other meaning is stated. The operations in `PathObject::ops`:
//
//   Retain, Release  Count references; a chain of any length is freed without recursion.
//   Compare          Orders two paths without regard to case; a folder comes before what it contains.
//   CopyText         The whole path in UTF-8; `room` is the buffer's capacity in bytes, what comes behind
//                    it is ignored. 0 when memory lacks.
//   Query            Writes a path into a RecordBuffer and reads one back: see paths/path_query.h. Offers a
//                    walker over an existing folder: see kQueryWalker.
#pragma once

#include "base/object.h"

/// `Object::typeTag` of a path node.
constexpr DWORD kPathTag = FourCharCode("\\:*/");

/// A node of a path. Its fields never change once the node is handed out.
struct PathObject : Object {
  /// The node whose text precedes this one's, or null; this node holds one reference on it.
  PathObject* parent;
  /// Bytes of text in this node, without the terminator (but see PathAppendLnk).
  LONG length;
  /// This node's stretch of the path, UTF-8, zero-terminated, in a heap block of its own.
  char* text;
};

/// A reference on a path.
using PathRef = ObjectRef<PathObject>;

extern "C" {

/// Makes a path of `length` bytes of UTF-8 `text` (negative: up to the terminator) on `parent`, which may be
/// null.
///
/// A leading ".\", a trailing "\." and a trailing backslash (on a parent, two) are dropped, and a leading
/// backslash is supplied where it lacks (not to a root that begins with a drive). Text that stands for the
/// parent itself ("", ".", "\", ".\", "\." and the like) gives the parent, retained. ".." and text beginning
/// with "..\" give null: a path does not go up. Joining onto a root of the form "C:\" makes one root node of
/// both.
///
/// A null `text` with a length that is not negative makes a node with `length` zero bytes of text on
/// `parent`, for the caller to fill before anyone else sees the node; with a negative length it gives null.
PathObject* PathMake(PathObject* parent, const char* text, int length);

/// PathMake of `length` units of wide `text` (negative: up to the terminator). Null for a null `text`.
PathObject* PathJoinWide(PathObject* parent, const wchar_t* text, int length);

/// Makes an absolute path with long names: a relative name is completed from the current folder; short (8.3)
/// names, and the last name, are replaced by the names on the disk, if they exist. A name with a character
/// that no file name can have ("/" too) is not looked up. Text with an asterisk is a pattern and is taken as
/// it is. Null for null and empty text.
PathObject* PathFromWide(const wchar_t* text);
/// PathFromWide of UTF-8 text.
PathObject* PathFromUtf8(const char* text);

/// PathFromWide of text that a person or a setting wrote: turns each "/" in `text` into "\" first, in place.
PathObject* PathFromWrittenWide(wchar_t* text);
/// PathFromWrittenWide of UTF-8 text.
PathObject* PathFromWrittenUtf8(char* text);

/// Joins one name onto `folder` (null: makes a root) like PathMake. If the name may be a short (8.3) name and
/// an entry of that name exists, takes the name on the disk.
PathObject* PathJoin(PathObject* folder, const char* name);

/// The folder that holds the last name of `path`: its text up to the last backslash, of a path directly under
/// a drive the drive. A bare drive is its own folder. Null for null, for a name that stands in no folder, and
/// when memory lacks.
PathObject* PathFolder(PathObject* path);

/// PathJoin of `name` onto the folder that holds the last name of `path` (see PathFolder); of a null path,
/// and of a name that stands in no folder, onto nothing.
PathObject* PathReplaceLeaf(PathObject* path, const char* name);

/// The same path with ".lnk" behind its last name. The node's length deliberately counts the terminator, so
/// it is one more than the visible text; conversions to wide text stop at that terminator.
PathObject* PathAppendLnk(PathObject* path);

/// The longest path that both paths begin with, at whole names, compared without regard to the case of ASCII
/// letters; null when there is none. Where one path contains the other that is the answer itself, retained,
/// but two paths of the same text in different objects give the folder that holds it.
PathObject* PathCommonAncestor(PathObject* a, PathObject* b);

/// The same path in one node; a path that has no parent is returned itself, retained.
PathObject* PathFlatten(PathObject* path);

/// The path as a new wide string, which the caller frees with HeapFreeSafe; a bare drive "C:" is given out as
/// "C:\". Null for an empty path and on failure.
wchar_t* PathToWide(PathObject* path);

/// Copies the path's wide text, cut to `capacity` - 1 characters, and a terminator into `buffer` and returns
/// the characters copied without the terminator; with a null buffer returns the whole length. A path that
/// cannot be converted leaves an empty string and gives 0. With a capacity of 0 nothing is written.
unsigned PathCopyToBuffer(PathObject* path, wchar_t* buffer, unsigned capacity);

}  // extern "C"
