// accept.exe: what accept.cmd cannot do by itself. A person starts accept.cmd.
//
//   accept.exe check PROCESSOR FOLDER [/in-use] [/no-install] [/report REPORT]
//     Prints why this machine, the archive in FOLDER, which is for PROCESSOR, or the folder REPORT cannot be
//     used, and what the person should know. The exit status is 0 if it can, and 2 if not. Restores what an
//     interrupted run has left.
//   accept.exe run REPORT LEVEL SECONDS PROGRAM [FILTER]
//     Runs a test program, for at most SECONDS. Its results, output and logs are in REPORT\LEVEL afterwards.
//   accept.exe report REPORT PROCESSOR FOLDER [/no-install] [/filter FILTER]
//     Writes REPORT\report.txt and prints its verdict. The words are those with which the tests were run. The
//     exit status is 0 if all tests passed, 1 if not, and 2 if none was run.
#include <windows.h>
// After windows.h, which it needs.
#include <shellapi.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "acceptance/facts.h"
#include "acceptance/limit.h"
#include "acceptance/report.h"
#include "machine/passwords.h"
#include "machine/signed_libraries.h"
#include "machine/texts.h"

namespace {

using machine::FromWide;
using machine::ToWide;

constexpr int kRefused = 2;

std::string ReadFile(const std::wstring& path) {
  std::FILE* file = _wfopen(path.c_str(), L"rb");
  if (!file) return "";
  std::string bytes;
  char block[16384];
  for (size_t count; (count = std::fread(block, 1, sizeof block, file)) > 0;) bytes.append(block, count);
  std::fclose(file);
  return bytes;
}

void WriteFile(const std::wstring& path, const std::string& bytes, const wchar_t* mode = L"wb") {
  std::FILE* file = _wfopen(path.c_str(), mode);
  if (!file) throw std::runtime_error("cannot write " + FromWide(path));
  std::fwrite(bytes.data(), 1, bytes.size(), file);
  std::fclose(file);
}

bool Has(int count, wchar_t** words, int first, const wchar_t* word) {
  for (int i = first; i < count; ++i) {
    if (_wcsicmp(words[i], word) == 0) return true;
  }
  return false;
}

// Returns the word after `word`; empty if `word` is the last or is missing.
std::wstring After(int count, wchar_t** words, int first, const wchar_t* word) {
  for (int i = first; i + 1 < count; ++i) {
    if (_wcsicmp(words[i], word) == 0) return words[i + 1];
  }
  return L"";
}

// A program that was ended has not restored it.
void RestoreSetting() {
  if (!machine::RestoreSignedLibraries()) return;
  std::printf("  restored the setting %s, which interrupted tests had changed\n", machine::kSignedSetting);
}

// Takes the passwords of the server's account out of all logs in `folder`: a program that was ended has left
// the last one as it was.
void HidePasswords(const std::wstring& folder) {
  WIN32_FIND_DATAW entry;
  HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
    const std::wstring path = folder + L"\\" + entry.cFileName;
    if (!machine::HidePasswordsInFile(path))
      std::printf("  %s is still in use and may have a password in it: do not send it back\n",
                  FromWide(path).c_str());
  } while (FindNextFileW(search, &entry));
  FindClose(search);
}

int Check(int count, wchar_t** words) {
  const std::string processor = FromWide(words[2]);
  RestoreSetting();
  const acceptance::Facts facts = acceptance::Gather(words[3], After(count, words, 4, L"/report"));
  const auto refusals = acceptance::Refusals(facts, processor, Has(count, words, 4, L"/in-use"),
                                             !Has(count, words, 4, L"/no-install"));
  for (const std::string& line : acceptance::Lines(facts)) std::printf("  %s\n", line.c_str());
  for (const std::string& line : acceptance::Remarks(facts, processor))
    std::printf("  remark: %s\n", line.c_str());
  for (const std::string& line : refusals) std::printf("  refused: %s\n", line.c_str());
  return refusals.empty() ? 0 : kRefused;
}

int Run(int count, wchar_t** words) {
  const std::wstring report = words[2], level = words[3], folder = report + L"\\" + level;
  CreateDirectoryW(folder.c_str(), nullptr);
  SetEnvironmentVariableW(L"HX_ARTIFACTS", folder.c_str());
  std::wstring command =
      L"\"" + std::wstring(words[5]) + L"\" --gtest_output=xml:\"" + folder + L"\\results.xml\"";
  if (count > 6) command += L" --gtest_filter=\"" + std::wstring(words[6]) + L"\"";
  const ULONGLONG start = GetTickCount64();
  const DWORD status =
      acceptance::RunLimited(command, folder + L"\\output.txt", static_cast<DWORD>(_wtoi(words[4])));
  const auto seconds = static_cast<unsigned>((GetTickCount64() - start) / 1000);
  WriteFile(report + L"\\runs.txt",
            FromWide(level) + "\t" + std::to_string(status) + "\t" + std::to_string(seconds) + "\n", L"ab");
  std::printf("  ended with status %lu after %u s\n", status, seconds);
  HidePasswords(folder);
  return 0;
}

int Report(int count, wchar_t** words) {
  RestoreSetting();
  const std::wstring report = words[2];
  acceptance::Run run;
  run.processor = FromWide(words[3]);
  const acceptance::Facts facts = acceptance::Gather(words[4]);
  run.isMicrosofts = facts.engine.rfind("Microsoft", 0) == 0;
  run.facts = acceptance::Lines(facts);
  run.remarks = acceptance::Remarks(facts, run.processor);
  run.leavesInstall = Has(count, words, 5, L"/no-install");
  run.filter = FromWide(After(count, words, 5, L"/filter"));
  const std::string runs = ReadFile(report + L"\\runs.txt");
  std::string failed;
  for (size_t start = 0, end; (end = runs.find('\n', start)) != std::string::npos; start = end + 1) {
    const size_t first = runs.find('\t', start), second = runs.find('\t', first + 1);
    acceptance::LevelResult level;
    level.name = runs.substr(start, first - start);
    level.status = static_cast<unsigned>(std::strtoul(runs.c_str() + first + 1, nullptr, 10));
    level.seconds = static_cast<unsigned>(std::strtoul(runs.c_str() + second + 1, nullptr, 10));
    const std::wstring folder = report + L"\\" + ToWide(level.name);
    const std::string results = ReadFile(folder + L"\\results.xml");
    level.hasResults = results.find("</testsuites>") != std::string::npos;
    if (level.hasResults) level.tests = acceptance::TestsOf(results);
    level.lastStarted = acceptance::LastStarted(ReadFile(folder + L"\\output.txt"));
    const std::string differences = ReadFile(folder + L"\\differences.txt");
    if (!differences.empty()) run.differences = acceptance::RowsOf(differences);
    if (const std::string names = acceptance::FailedFilter(level); !names.empty())
      failed += level.name + "\t" + names + "\n";
    run.levels.push_back(std::move(level));
  }
  std::vector<std::string> levels = {"unit", "unit-checked", "actions"};
  if (!run.leavesInstall) levels.push_back("install");
  acceptance::AddMissingLevels(run, levels);
  WriteFile(report + L"\\report.txt", acceptance::ReportOf(run));
  WriteFile(report + L"\\failed.txt", failed);
  const acceptance::Verdict verdict = acceptance::VerdictOf(run);
  std::printf("\n%s\n", verdict.line.c_str());
  return verdict.code;
}

}  // namespace

// Without wmain, which not every C library here has.
int main() {
  int count = 0;
  wchar_t** words = CommandLineToArgvW(GetCommandLineW(), &count);
  try {
    const std::wstring what = count > 1 ? words[1] : L"";
    if (what == L"check" && count >= 4) return Check(count, words);
    if (what == L"run" && count >= 6) return Run(count, words);
    if (what == L"report" && count >= 5) return Report(count, words);
    std::fprintf(stderr, "accept.exe: start accept.cmd instead; docs\\acceptance.md describes it\n");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "accept.exe: %s\n", error.what());
  }
  return kRefused;
}
