// The calls that all actions make in the same way, as a test expects them in the trace. The base class for
// the call lists of each folder's tests. Used by tests/actions/*_support.h.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "rig/print.h"

namespace expected {

/// Returns the text quoted as in the trace.
inline std::string Quoted(const std::string& text) {
  return rig::Quote(std::string_view(text));
}

/// The calls that a test expects, with the numbers of the handles in them. `Derived` adds its own calls.
template <typename Derived>
class CallList {
 public:
  /// The lines so far.
  std::vector<std::string> lines;

  /// Adds a line.
  Derived& Add(const std::string& line) {
    lines.push_back(line);
    return static_cast<Derived&>(*this);
  }
  /// Reads a property as wide text.
  Derived& Read(const std::string& name, const std::string& result = "0") {
    return Add("MsiGetPropertyW(session, \"" + name + "\", *, *) = " + result);
  }
  /// Writes a line to the log.
  Derived& Log(const std::string& text) {
    std::string record = NewRecord();
    return Add("MsiCreateRecord(2) = " + record)
        .Add("MsiRecordSetStringA(" + record + ", 0, \"Hx Setup Log: [1]\") = 0")
        .Add("MsiRecordSetStringA(" + record + ", 1, " + Quoted(text) + ") = 0")
        .Add("MsiProcessMessage(session, 0x4000000, " + record + ") = 1")
        .Add("MsiCloseHandle(" + record + ") = 0");
  }
  /// Looks up a function of a module by name, unless it has been found before.
  Derived& Bind(const std::string& module, const std::string& function) {
    if (!functions_.insert(function).second) return static_cast<Derived&>(*this);
    return LookFor(module, function, "*");
  }
  /// Looks up a function that is missing from its module.
  Derived& LackFunction(const std::string& module, const std::string& function) {
    return LookFor(module, function, "null");
  }
  /// Looks up a function whose module is missing.
  Derived& LackModule(const std::string& module) {
    return Add("SetErrorMode(0x8001) = 16384")
        .Add("GetModuleHandleW(\"" + module + "\") = null")
        .Add("LoadLibraryW(\"" + module + "\") = null")
        .Add("SetErrorMode(0x4000) = 32769");
  }
  /// Calls a function of a module, after looking it up if this is its first call; `call` is the whole line.
  Derived& Late(const std::string& module, const std::string& call) {
    return Bind(module, call.substr(0, call.find('('))).Add(call);
  }

 protected:
  /// Returns the name of the next record.
  std::string NewRecord() { return "record#" + std::to_string(++records_); }

 private:
  // One look-up of a function; the first one in a module also finds the module.
  Derived& LookFor(const std::string& module, const std::string& function, const std::string& result) {
    Add("SetErrorMode(0x8001) = 16384");
    if (modules_.insert(module).second) {
      bool isThere = module == "ADVAPI32";
      Add("GetModuleHandleW(\"" + module + "\") = " + (isThere ? module : "null"));
      if (!isThere) Add("LoadLibraryW(\"" + module + "\") = " + module);
    }
    return Add("GetProcAddress(" + module + ", \"" + function + "\") = " + result)
        .Add("SetErrorMode(0x4000) = 32769");
  }

  std::set<std::string> modules_;
  std::set<std::string> functions_;
  int records_ = 0;
};

}  // namespace expected
