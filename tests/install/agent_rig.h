// What the tests of the client agent share: the agent's programs, its service, and the list of libraries that
// Windows loads. Used by tests/install/agent_*_test.cpp. The tasks are in agent_scheduler.h.
//
// The agent's programs are one stand-in, which is what its file name says and records what is done to it. Its
// file is agent.exe in the folder that HX_LIBRARY_DIR names.
#pragma once

#include <functional>

#include "install/server_rig.h"

namespace install {

/// Texts in order: lines of a log or of the record, names.
using Texts = std::vector<std::string>;

/// Where the client package installs the agent's programs; no backslash at the end.
extern const wchar_t kClientFolder[];
/// A place for programs that are not the package's.
extern const wchar_t kOtherFolder[];
/// Where the installer keeps what it runs out of a package.
extern const wchar_t kInstallerCache[];

/// What a program or the service manager does at once takes no longer than this (milliseconds), even where
/// the processor is emulated.
constexpr DWORD kPatience = 30 * 1000;

/// Waits until `isTrue` is; the test fails, naming `what`, where it does not become so.
void WaitUntil(const std::string& what, const std::function<bool()>& isTrue);

// ---- the record

/// What the agent's programs have recorded since the record was cleared last.
Texts Record();
/// The lines of the record that begin with `head`.
Texts RecordOf(const std::string& head);
void ClearRecord();

// ---- programs

/// The agent's stand-in under a name of its own, which says what it is. Makes the folder where that lacks.
void LayDownProgram(const std::wstring& path);

/// A process of a program. It is ended with its owner.
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

/// Starts the program, laid down before, as an agent of this session, and waits until it has recorded that.
std::unique_ptr<Process> StartAgent(const std::wstring& path);
/// Opens a tool's window, which refuses the first `refusals` requests to close and closes `delay`
/// milliseconds behind the next one. Waits until the window is there.
std::unique_ptr<Process> OpenTool(const std::string& windowClass, const std::string& title, int refusals = 0,
                                  int delay = 0);

// ---- the service

/// The state of the service "Ostrel" (SERVICE_RUNNING ...); 0 when there is no such service.
DWORD ServiceState();
/// Makes the service "Ostrel", which runs the program `path`, laid down before; it is not started.
void MakeService(const std::wstring& path);
/// Has the service run another command line from its next start on; "stubborn" behind its program makes it
/// one that does not stop when it is told to.
void SetServiceCommand(const std::wstring& command);
std::wstring ServiceCommand();
/// Ends the service's process, which is no control that it could record or refuse.
void StopAgentService();
/// Takes the service away, whatever it does.
void DeleteAgentService();
/// Whether the service of this name runs.
bool IsServiceRunning(const char* name);
/// Starts the service of this name, and waits until it runs.
void RunService(const char* name);
/// Tells the service of this name, where it runs, to stop, and waits until it has.
void StopService(const char* name);

// ---- the list of libraries that Windows loads, and the audit file

/// The registry key's values "AppInit_DLLs" and "LoadAppInit_DLLs"; nothing where there is no such value.
struct LibraryList {
  bool hasKey = true;
  std::optional<std::string> list;
  std::optional<DWORD> isOn;
};
LibraryList GetLibraryList();
/// Makes the key what `list` says, whatever it was.
void SetLibraryList(const LibraryList& list);
bool operator==(const LibraryList& left, const LibraryList& right);
void PrintTo(const LibraryList& list, std::ostream* stream);

std::wstring AuditFile();
/// The bytes of the audit file; nothing when there is none.
std::optional<std::string> AuditBytes();
void WriteAuditFile(const std::string& bytes);

// ---- the machine

/// All of the agent that a run of the installer has left, and the record of what happened meanwhile.
struct AgentState {
  InstallerRun run;
  Texts record;
  DWORD service = 0;      ///< as ServiceState tells it
  Texts tasks, workItem;  ///< as the Scheduler tells them
  LibraryList libraries;
  std::optional<std::string> audit;
  /// The names in the client folder, with the version behind a comma where the package marks a file with it.
  Texts programs;
  bool hasClient = false, hasNewerClient = false;  ///< which packages the engine knows as installed
};

/// The machine without an agent: no program, process, service, task, record or audit file, and the list of
/// libraries with no value.
class AgentMachine {
 public:
  void Take();
  /// Leaves the machine without an agent or its packages, and with the list that it had. The test fails where
  /// something else of a package is left.
  void GiveBack();

 private:
  static void Clear();
  static std::string Describe();

  LibraryList libraries_;
  std::string before_;
};

/// Runs msiexec, with a log named `name`, and looks around. The record begins anew with the run.
AgentState RunAndLook(const std::string& name, const std::wstring& arguments);

/// Places for a failure: directly behind CustomAction9 to CustomAction11; and where the service has been
/// stopped, but no file been touched.
constexpr int kBehindTheHook = 6440, kBehindStopServices = 1950;
/// What makes a copy of a client package one that fails in its script, at this place of the sequence:
/// statements for ChangePackage.
std::vector<std::string> FailInScript(int sequence);

/// Tests that begin and end with a machine without an agent. The product is removed where a test leaves it.
class AgentTest : public InstallTest {
 protected:
  void SetUp() override;
  void TearDown() override;

 private:
  AgentMachine machine_;
};

}  // namespace install
