// Tries a package: installs it, removes it, and prints what each of the two changed on this machine. For ./hx
// try, in a Windows of its own.
//
//   trial.exe FILE
//
// FILE has a line for each word, in UTF-8: the path of the package, its product code, the folder for the two
// verbose logs, and then the properties, each NAME=VALUE. Prints for the installation, and for the removal if
// the product is installed then:
//
//   run install CODE      the engine's result
//   + NAME ...            the changes of the run, as machine::State::Since lists them
//
// and after a removal, in the same form, "run rest" with what it left. The product code reads "{product}".
// The exit status is 0 if the runs took place, whatever their results, and 2 if FILE is wrong.
#include <windows.h>
// After windows.h, which it needs.
#include <msi.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "machine/state.h"

namespace {

using machine::State;
using machine::ToWide;

// Prints the result of a run and the changes.
void Show(const char* run, UINT code, const std::vector<std::string>& changes) {
  std::printf("run %s %u\n%s", run, code, machine::Joined(changes).c_str());
  std::fflush(stdout);
}

// The properties as the engine's command line. Quotation marks are doubled; a backslash has no special
// meaning.
std::wstring CommandLine(const std::vector<std::string>& words, size_t first) {
  std::string line;
  for (size_t i = first; i < words.size(); ++i) {
    const size_t at = words[i].find('=');
    if (at == std::string::npos) throw std::runtime_error("not NAME=VALUE: " + words[i]);
    line += words[i].substr(0, at) + "=\"" + machine::Replaced(words[i].substr(at + 1), "\"", "\"\"") + "\" ";
  }
  return ToWide(line);
}

void Log(const std::string& folder, const char* name) {
  // All kinds of lines, and all of the verbose mode.
  const DWORD everything = 0x7FFF;
  const std::wstring path = ToWide(folder + "\\" + name);
  if (MsiEnableLogW(everything, path.c_str(), 0) != ERROR_SUCCESS)
    throw std::runtime_error("cannot log to " + folder + "\\" + name);
}

void Try(const std::vector<std::string>& words) {
  if (words.size() < 3) throw std::runtime_error("the package, its product code or the folder is missing");
  const machine::Names names = {{words[1], "{product}"}};
  const std::wstring package = ToWide(words[0]), product = ToWide(words[1]);
  const std::wstring properties = CommandLine(words, 3);
  MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);

  const State before = State::Now(names);
  Log(words[2], "install.log");
  const UINT installed = MsiInstallProductW(package.c_str(), properties.c_str());
  const State then = State::Now(names);
  Show("install", installed, then.Since(before));
  if (MsiQueryProductStateW(product.c_str()) != INSTALLSTATE_DEFAULT) return;

  Log(words[2], "remove.log");
  const UINT removed =
      MsiConfigureProductExW(product.c_str(), INSTALLLEVEL_DEFAULT, INSTALLSTATE_ABSENT, nullptr);
  const State after = State::Now(names);
  Show("remove", removed, after.Since(then));
  Show("rest", 0, after.Since(before));
}

}  // namespace

int main(int count, char** arguments) {
  try {
    std::ifstream file(count == 2 ? arguments[1] : "", std::ios::binary);
    if (!file) throw std::runtime_error("usage: trial.exe FILE");
    std::vector<std::string> words;
    for (std::string line; std::getline(file, line);) words.push_back(line);
    Try(words);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "trial: %s\n", error.what());
    return 2;
  }
  return 0;
}
