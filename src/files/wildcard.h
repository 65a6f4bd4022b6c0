// Names against patterns of "*" and "?". Used by the directory walker.
#pragma once

extern "C" {

/// 1 when `name` matches `pattern` (UTF-8), else 0. "*" stands for any run of characters, also none, "?" for
/// any one; letters a to z match without regard to case, other characters as they are, counted in UTF-16
/// units. What is left of the pattern behind the end of the name may be "*" and ".", so that "*.*" matches
/// every name. A null pattern matches everything; a null name else nothing. A byte of the pattern that is not
/// UTF-8 stands for the character of its number. Needs no memory, and at most the product of both lengths in
/// time.
int MatchWildcard(const wchar_t* name, const char* pattern);

/// The same for a name in UTF-8.
int MatchWildcardA(const char* name, const char* pattern);

}  // extern "C"
