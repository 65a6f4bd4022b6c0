#include "rig/facts.h"

#include <msi.h>
#include <msiquery.h>

#include <cstdio>
#include <set>
#include <string_view>

#include "rig/declaration.h"
#include "rig/guarded_heap.h"
#include "rig/print.h"
#include "rig/secrets.h"

namespace rig {
namespace {

bool isRecording = false;

// The number of the entry point that is running; 0 for none, and if nothing is recorded.
int runningEntry = 0;

// The file of facts, opened for the first fact; null without HX_ARTIFACTS.
std::FILE* FactsFile() {
  static std::FILE* file = [] {
    wchar_t folder[MAX_PATH];
    DWORD length = GetEnvironmentVariableW(L"HX_ARTIFACTS", folder, MAX_PATH);
    bool isGiven = length > 0 && length < MAX_PATH;
    return isGiven ? _wfopen((std::wstring(folder) + L"\\facts.txt").c_str(), L"wb") : nullptr;
  }();
  return file;
}

std::string Escaped(const std::string& text) {
  std::string out;
  for (char unit : text) {
    switch (unit) {
      case '\\':
        out += "\\\\";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      default:
        out += unit;
    }
  }
  return out;
}

void Record(const char* kind, const std::string& text) {
  static std::set<std::string> seen;
  if (runningEntry == 0) return;
  const DWORD error = GetLastError();
  const std::string line = "CustomAction" + std::to_string(runningEntry) + "\t" + kind + "\t" +
                           Escaped(Secret::Masked(text)) + "\n";
  if (seen.insert(line).second) {
    if (std::FILE* file = FactsFile()) {
      std::fwrite(line.data(), 1, line.size(), file);
      std::fflush(file);
    }
  }
  SetLastError(error);
}

// The property that a call names, in words[1]; empty for a null name.
std::string PropertyOf(bool isWide, const uint64_t* words) {
  if (words[1] == 0) return {};
  auto address = static_cast<uintptr_t>(words[1]);
  return isWide ? ToUtf8(reinterpret_cast<const wchar_t*>(address)) : reinterpret_cast<const char*>(address);
}

void ObserveRead(bool isWide, const uint64_t* words) {
  auto* buffer = reinterpret_cast<const void*>(static_cast<uintptr_t>(words[2]));
  auto* count = reinterpret_cast<const DWORD*>(static_cast<uintptr_t>(words[3]));
  std::string text = PropertyOf(isWide, words);
  if (buffer != nullptr && count != nullptr && GuardedHeap::Get().SizeOf(buffer) < 0) {
    text += " " + std::to_string(*count) + (isWide ? "W" : "A");
  }
  Record("reads", text);
}

}  // namespace

void RecordFacts() {
  isRecording = true;
}

ObservedCall::ObservedCall(const std::string& file, int number) {
  runningEntry = isRecording && file == "hxsetup.dll" ? number : 0;
}

ObservedCall::~ObservedCall() {
  runningEntry = 0;
}

void ObservedCall::Returned(UINT result) const {
  Record("returns", std::to_string(result));
}

void ObserveCall(const Declaration& declaration, const uint64_t* words) {
  if (runningEntry == 0) return;
  const std::string_view name = declaration.Name();
  if (name == "MsiGetPropertyA" || name == "MsiGetPropertyW") {
    ObserveRead(name.back() == 'W', words);
  } else if (name == "MsiSetPropertyA" || name == "MsiSetPropertyW") {
    Record("sets", PropertyOf(name.back() == 'W', words));
  } else if (name == "MessageBoxA") {
    Record("box", reinterpret_cast<const char*>(static_cast<uintptr_t>(words[1])));
  }
}

void ObserveMessage(unsigned type, const std::string& text, const std::vector<std::string>& fields) {
  if (type == INSTALLMESSAGE_INFO) {
    Record("log", text);
  } else {
    Record("notice", fields.size() > 1 ? fields[1] : text);
  }
}

}  // namespace rig
