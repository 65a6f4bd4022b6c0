// The path value: an immutable, counted node with one section of the path's text and a reference to the node
// before it. Used by every action that handles file names, directly or through the session helpers.
//
// Joining a name onto a folder makes one small node that points to the folder's node. The text of a path is
// the concatenation of its nodes' texts from the root node down; if one text ends with a backslash and the
// next begins with one, only one is kept. A node's text begins with a backslash, but the text of a root node
// (one without a parent) may begin with a drive instead: "C:", "C:\" or "C:\Data".
//
// Text inside a path is UTF-8; text passed to and received from Windows is wide. Every operation that returns
// a PathObject returns a new reference, which the caller releases through the object (or holds in a PathRef).
// Null means failure; out of memory is one. A null path is accepted and gives null, 0 or nothing,
// unless a comment says otherwise. The operations in `PathObject::ops`:
//
//   Retain, Release  Count references; a chain of any length is freed without recursion.
//   Compare          Compares two paths without regard to case; a folder comes before its contents.
//   CopyText         Copies the whole path in UTF-8, cut to `room`, the buffer's capacity in bytes. Returns 0
//                    if out of memory.
//   Query            Writes a path into a RecordBuffer and reads one back: see paths/path_query.h. Offers a
//                    walker over an existing folder: see kQueryWalker.
#pragma once

#include "base/object.h"

/// `Object::typeTag` of a path node.
constexpr DWORD kPathTag = FourCharCode("\\:*/");

/// A node of a path. Its fields never change once the node has been returned to a caller.
struct PathObject : Object {
  /// The node whose text comes before this one's, or null; this node holds one reference to it.
  PathObject* parent;
  /// Bytes of text in this node, without the terminator (but see PathAppendLnk).
  LONG length;
  /// This node's section of the path, UTF-8, zero-terminated, in its own heap block.
  char* text;
};

/// A reference to a path.
using PathRef = ObjectRef<PathObject>;

extern "C" {

/// Makes a path of `length` bytes of UTF-8 `text` (negative: up to the terminator) on `parent`, which may be
/// null.
///
/// A trailing "\." and a trailing backslash are dropped; on a parent, also a leading ".\" and a second
/// trailing backslash. A root of the form "C:\" keeps its backslash. A missing leading backslash is added,
/// but not to a root that begins with a drive. Joining onto a root of the form "C:\" makes one root node of
/// both.
///
/// On a parent, text that means the parent itself ("", ".", "\", ".\", "\." and the like) gives the parent,
/// retained; "\." without a parent gives null. ".." and text beginning with "..\" give null: a path does not
/// go up.
///
/// A null `text` with a length that is not negative makes a node with `length` zero bytes of text on
/// `parent`. The caller fills the text before any other code uses the node. With a negative length it gives
/// null.
PathObject* PathMake(PathObject* parent, const char* text, int length);

/// Converts `length` units of wide `text` (negative: up to the terminator) and calls PathMake. Null for a
/// null `text`.
PathObject* PathJoinWide(PathObject* parent, const wchar_t* text, int length);

/// Makes an absolute path with long names. A relative name is completed from the current folder. Short (8.3)
/// names, and the last name, are replaced by the names on the disk if they exist. A name with a character
/// that no file name can have ("/" too) is not looked up. Text with an asterisk is a pattern and is used
/// unchanged. Null for null and empty text.
PathObject* PathFromWide(const wchar_t* text);
/// Like PathFromWide for UTF-8 text.
PathObject* PathFromUtf8(const char* text);

/// Like PathFromWide for text that a person or a setting wrote: first turns each "/" in `text` into "\", in
/// place.
PathObject* PathFromWrittenWide(wchar_t* text);
/// Like PathFromWrittenWide for UTF-8 text.
PathObject* PathFromWrittenUtf8(char* text);

/// Joins one name onto `folder` (null: makes a root) like PathMake. If the name may be a short (8.3) name and
/// an entry with that name exists, uses the name on the disk.
PathObject* PathJoin(PathObject* folder, const char* name);

/// Returns the folder that holds the last name of `path`: the text up to the last backslash. For a path
/// directly under a drive this is the drive. A bare drive is its own folder. Null for null, for a name
/// without a folder, and if out of memory.
PathObject* PathFolder(PathObject* path);

/// Joins `name`, like PathJoin, onto the folder that holds the last name of `path` (see PathFolder). If
/// `path` is null or a name without a folder, makes a root of `name`.
PathObject* PathReplaceLeaf(PathObject* path, const char* name);

/// Returns the same path with ".lnk" after its last name. On purpose: the node's length counts the
/// terminator, so it is one more than the visible text. Conversions to wide text stop at that terminator.
PathObject* PathAppendLnk(PathObject* path);

/// Returns the longest path with which both paths begin, compared by whole names and without regard to the
/// case of ASCII letters; null if there is none. If one path contains the other, the containing path is
/// returned, retained. But two paths of the same text in different objects give the folder that holds it.
PathObject* PathCommonAncestor(PathObject* a, PathObject* b);

/// Returns the same path in one node; a path without a parent is returned itself, retained.
PathObject* PathFlatten(PathObject* path);

/// Converts the path to a new wide string, which the caller frees with HeapFreeSafe; a bare drive "C:"
/// becomes "C:\". Null for an empty path and on failure.
wchar_t* PathToWide(PathObject* path);

/// Copies the path's wide text, cut to `capacity` - 1 characters, and a terminator into `buffer`. Returns the
/// characters copied without the terminator; with a null buffer returns the whole length. If the path cannot
/// be converted, the buffer receives an empty string and the result is 0. With a capacity of 0 writes
/// nothing.
unsigned PathCopyToBuffer(PathObject* path, wchar_t* buffer, unsigned capacity);

}  // extern "C"
