// Shared by the tests of the client agent: the agent's programs, its service, and the list of libraries that
// Windows loads. Used by tests/install/agent_*_test.cpp. The tasks are in agent_scheduler.h.
//
// The agent's programs are one stand-in. Its file name decides which program it plays, and it records what is
// done to it. Its file is agent.exe in the folder that HX_LIBRARY_DIR names.
#pragma once

#include <functional>

#include "install/server_rig.h"

namespace install {

/// Ordered texts: lines of a log or of the record, names.
using Texts = std::vector<std::string>;

/// The folder into which the client package installs the agent's programs; no backslash at the end.
extern const wchar_t kClientFolder[];
/// A folder for programs that are not the package's.
extern const wchar_t kOtherFolder[];
/// The folder in which the installer keeps what it runs from a package.
extern const wchar_t kInstallerCache[];
/// The folder into which Microsoft's engine moves files that are in use.
extern const wchar_t kMovedFiles[];

/// Limit in milliseconds for what a program or the service manager does at once, even on an emulated
/// processor.
constexpr DWORD kPatience = 30 * 1000;

/// Waits until `isTrue` returns true. After kPatience the test fails and names `what`.
void WaitUntil(const std::string& what, const std::function<bool()>& isTrue);

// ---- the record

/// Returns the lines that the agent's programs have recorded since the last ClearRecord.
Texts Record();
/// Returns the lines of the record that begin with `head`.
Texts RecordOf(const std::string& head);
void ClearRecord();

// ---- programs

/// Copies the agent's stand-in to `path`; the file name decides which program it plays. Creates the folder if
/// it is missing.
void LayDownProgram(const std::wstring& path);

/// A process of a program. The destructor ends it.
class Process {
 public:
  Process(const std::wstring& path, const std::wstring& arguments);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  DWORD Id() const { return information_.dwProcessId; }
  bool IsRunning() const;
  void End();

 private:
  PROCESS_INFORMATION information_ = {};
};

/// Starts the program, laid down before, as an agent of this session, and waits until it has recorded its
/// start.
std::unique_ptr<Process> StartAgent(const std::wstring& path);
/// Ends the processes of "osua.exe" whose program is in `folder` or below it. On Windows the client's task
/// has started them, and they would be in the next test's log. Does nothing on Wine.
void EndAgentsIn(const std::wstring& folder);
/// Opens a tool's window, which refuses the first `refusals` requests to close, and closes `delay`
/// milliseconds after the next one. Waits until the window exists.
std::unique_ptr<Process> OpenTool(const std::string& windowClass, const std::string& title, int refusals = 0,
                                  int delay = 0);

// ---- the service

/// Returns the state of the service "Ostrel" (SERVICE_RUNNING ...); 0 if there is no such service.
DWORD ServiceState();
/// Creates the service "Ostrel", which runs the program `path`, laid down before; does not start it.
void MakeService(const std::wstring& path);
/// Sets the service's command line for its next start. "stubborn" after the program makes a service that
/// ignores the control "stop".
void SetServiceCommand(const std::wstring& command);
std::wstring ServiceCommand();
/// Ends the service's process without a control, so that the service can neither record nor refuse it.
void StopAgentService();
/// Stops and deletes the service, if it exists.
void DeleteAgentService();
/// True if the service of this name runs.
bool IsServiceRunning(const char* name);
/// Starts the service of this name, and waits until it runs.
void RunService(const char* name);
/// Stops the service of this name, if it runs, and waits until it has stopped.
void StopService(const char* name);

// ---- the list of libraries that Windows loads, and the audit file

/// The registry key's values "AppInit_DLLs" and "LoadAppInit_DLLs"; a missing value is empty.
struct LibraryList {
  bool hasKey = true;
  std::optional<std::string> list;
  std::optional<DWORD> isOn;
};
LibraryList GetLibraryList();
/// Makes the key match `list`, whatever it contained.
void SetLibraryList(const LibraryList& list);
bool operator==(const LibraryList& left, const LibraryList& right);
void PrintTo(const LibraryList& list, std::ostream* stream);

std::wstring AuditFile();
/// Returns the bytes of the audit file; empty if there is none.
std::optional<std::string> AuditBytes();
void WriteAuditFile(const std::string& bytes);

/// Lets Windows load no library of the list that is not signed, from the first test to the last one: the
/// stand-in for the tracking library would be in use in every program. Does nothing on Wine, which loads
/// none.
class OnlySignedLibraries : public testing::Environment {
 public:
  void SetUp() override;
  void TearDown() override;
};

/// The account of the audit's task, "auditor". Microsoft's scheduler accepts only an account that exists, so
/// it is made there, and deleted at the end. Wine's does not check it.
class AuditAccount {
 public:
  explicit AuditAccount(const std::wstring& password);
  ~AuditAccount();
  AuditAccount(const AuditAccount&) = delete;
  AuditAccount& operator=(const AuditAccount&) = delete;
};

// ---- the machine

/// Everything of the agent that a run of the installer has left, and the record of that run.
struct AgentState {
  InstallerRun run;
  Texts record;
  DWORD service = 0;      ///< as ServiceState returns it
  Texts tasks, workItem;  ///< as the Scheduler returns them
  LibraryList libraries;
  std::optional<std::string> audit;
  /// The names in the client folder, each with a comma and its version if the package marks the file with
  /// one.
  Texts programs;
  bool hasClient = false, hasNewerClient = false;  ///< which packages the engine knows as installed
};

/// A machine without an agent: no program, process, service, task, record or audit file, and no value in the
/// list of libraries.
class AgentMachine {
 public:
  void Take();
  /// Removes every agent and its packages, and restores the list. The test fails if anything else of a
  /// package is left.
  void GiveBack();

 private:
  static void Clear();
  static std::string Describe();

  LibraryList libraries_;
  std::string before_;
};

/// Runs msiexec, with a log named `name`, and collects the result. Clears the record first.
AgentState RunAndLook(const std::string& name, const std::wstring& arguments);

/// Places for a failure: right after CustomAction9; and after StopServices, before any file is touched.
constexpr int kBehindTheHook = 6440, kBehindStopServices = 1950;
/// Returns statements for ChangePackage that make a copy of a client package fail in its script, at this
/// place of the sequence.
std::vector<std::string> FailInScript(int sequence);

/// Tests that begin and end on a machine without an agent. The product is removed if a test leaves it
/// installed.
class AgentTest : public InstallTest {
 protected:
  void SetUp() override;
  void TearDown() override;

 private:
  AgentMachine machine_;
};

}  // namespace install
