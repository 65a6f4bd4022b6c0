// The splitting of command lines, and the formatting of wide texts.

#include "image.h"
#include "require.h"
#include "world.h"

#include <shellapi.h>

namespace {

// Splits a command line as Windows does: the first element ends at a blank or at its quotation mark, the
// others have quotation marks and backslashes.
std::vector<std::u16string> Split(std::u16string_view line) {
  std::vector<std::u16string> elements;
  size_t at = 0;
  auto isBlank = [](char16_t unit) { return unit == u' ' || unit == u'\t'; };
  std::u16string first;
  if (!line.empty() && line[0] == u'"') {
    for (at = 1; at < line.size() && line[at] != u'"'; ++at) first.push_back(line[at]);
    if (at < line.size()) ++at;
  } else {
    for (; at < line.size() && !isBlank(line[at]); ++at) first.push_back(line[at]);
  }
  elements.push_back(first);
  for (;;) {
    while (at < line.size() && isBlank(line[at])) ++at;
    if (at == line.size()) return elements;
    std::u16string element;
    bool isQuoted = false;
    for (; at < line.size() && (isQuoted || !isBlank(line[at])); ++at) {
      size_t backslashes = 0;
      while (at < line.size() && line[at] == u'\\') ++backslashes, ++at;
      if (at < line.size() && line[at] == u'"') {
        element.append(backslashes / 2, u'\\');
        if (backslashes % 2) {
          element.push_back(u'"');
        } else if (isQuoted && at + 1 < line.size() && line[at + 1] == u'"') {
          element.push_back(u'"');
          ++at;
        } else {
          isQuoted = !isQuoted;
        }
        continue;
      }
      element.append(backslashes, u'\\');
      if (at == line.size() || (!isQuoted && isBlank(line[at]))) break;
      element.push_back(line[at]);
    }
    elements.push_back(element);
  }
}

LPWSTR* WINAPI AnswerCommandLineToArgvW(LPCWSTR line, int* count) {
  if (MustFail()) return WithError(ERROR_NOT_ENOUGH_MEMORY, nullptr);
  std::vector<std::u16string> elements = Split(ViewOf(line));
  if (!*line) elements = {u"C:\\Windows\\System32\\msiexec.exe"};
  size_t size = (elements.size() + 1) * sizeof(LPWSTR);
  for (const auto& element : elements) size += (element.size() + 1) * sizeof(wchar_t);
  auto* block = static_cast<LPWSTR*>(NewBlock(Kind::kLocalBlock, size));
  auto* text = reinterpret_cast<wchar_t*>(block + elements.size() + 1);
  for (size_t i = 0; i < elements.size(); ++i) {
    block[i] = text;
    memcpy(text, elements[i].c_str(), (elements[i].size() + 1) * sizeof(wchar_t));
    text += elements[i].size() + 1;
  }
  block[elements.size()] = nullptr;
  *count = static_cast<int>(elements.size());
  return block;
}

// Formats with "%s" and "%0Nd" only, as the library does; cuts the text to 1024 characters, as Windows does.
int IMAGE_ABI AnswerWsprintfW(LPWSTR buffer, LPCWSTR format, uint64_t first, uint64_t second, uint64_t third,
                              uint64_t fourth, uint64_t fifth, uint64_t sixth, uint64_t seventh) {
  constexpr size_t kMost = 1024;
  // The library passes at most seven arguments. Those that it does not pass are rubbish, and no directive
  // asks for them.
  const uint64_t slots[] = {first, second, third, fourth, fifth, sixth, seventh};
  size_t next = 0;
  std::u16string text;
  for (; *format; ++format) {
    if (*format != L'%') {
      text.push_back(static_cast<char16_t>(*format));
      continue;
    }
    ++format;
    size_t width = 0;
    while (*format >= L'0' && *format <= L'9') width = width * 10 + static_cast<size_t>(*format++ - L'0');
    REQUIRE(next < std::size(slots), "wsprintfW is called with more directives");
    const uint64_t slot = slots[next++];
    if (*format == L's') {
      text += ViewOf(reinterpret_cast<const wchar_t*>(slot));
    } else {
      REQUIRE(*format == L'd', "wsprintfW is called with another directive");
      std::u16string digits = WideOf(std::to_string(static_cast<int>(slot)));
      if (digits.size() < width) digits.insert(0, width - digits.size(), u'0');
      text += digits;
    }
  }
  text.resize(std::min(text.size(), kMost));
  memcpy(buffer, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
  return static_cast<int>(text.size());
}

const Answers kShell{
    {"wsprintfW", reinterpret_cast<void*>(&AnswerWsprintfW)},
    ANSWER(CommandLineToArgvW, AnswerCommandLineToArgvW),
};

}  // namespace
