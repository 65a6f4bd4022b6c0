// Matching of names against patterns with "*" and "?". Used by the directory walker.
#pragma once

extern "C" {

/// Returns 1 if `name` matches `pattern` (UTF-8), else 0. "*" matches any run of characters, also an empty
/// one, "?" any one character. Letters a to z match without regard to case, other characters exactly;
/// characters are UTF-16 units. After the end of the name, the rest of the pattern may consist of "*" and
/// ".", so that "*.*" matches every name. A null pattern matches everything; with any other pattern a null
/// name matches nothing. A byte of the pattern that is not UTF-8 means the character with its number. Needs
/// no memory, and time up to the product of both lengths.
int MatchWildcard(const wchar_t* name, const char* pattern);

/// Like MatchWildcard for a name in UTF-8.
int MatchWildcardA(const char* name, const char* pattern);

}  // extern "C"
