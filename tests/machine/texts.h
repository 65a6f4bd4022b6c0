// Conversions of texts, for the programs that compare the state of the machine.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace machine {

/// Converts between UTF-8 (or another 8-bit code page) and UTF-16; a character without a counterpart becomes
/// '?'. All texts are UTF-8 unless stated otherwise.
std::wstring ToWide(const std::string& text, UINT codePage = CP_UTF8);
std::string FromWide(const std::wstring& text, UINT codePage = CP_UTF8);

/// Returns `text` with `by` in place of each `what`, which must not be empty.
std::string Replaced(std::string text, const std::string& what, const std::string& by);

/// Joins lines into one text; each of them ends with a line feed.
std::string Joined(const std::vector<std::string>& lines);

}  // namespace machine
