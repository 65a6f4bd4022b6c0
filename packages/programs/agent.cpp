// The stand-in for the programs of client and server. The packages of this project install it, and tests and
// the demonstration start it. It does no work: it can be stopped, closed and started, and records what is
// done to it.
//
// Its file name decides what it is:
//
//   ostrel.exe, vt.exe, gauge.exe
//                            the services "Ostrel", "Vantor" and "Gauge"; with the argument "stubborn" they
//                            ignore the stop control
//   osua.exe                 the agent of a session: waits until it is ended
//   osau.exe, ostrel32.exe   end at once
//   any other                a tool with a window: CLASS TITLE [REFUSALS [DELAY]] on its command line. It
//                            refuses the first REFUSALS requests to close, and closes DELAY milliseconds
//                            after the next one.
//
// Each event is one line of the record (record.h).
#include "record.h"

namespace {

// The programs that are services.
struct ServiceProgram {
  const char* file;
  const char* service;
};
constexpr ServiceProgram kServicePrograms[] = {
    {"ostrel.exe", "Ostrel"}, {"vt.exe", "Vantor"}, {"gauge.exe", "Gauge"}};

// What the network tools understand besides WM_CLOSE: a private message, and a command of their menu.
constexpr UINT kShutdownMessage = 2024;
constexpr WPARAM kShutdownCommand = 1001;
constexpr UINT_PTR kClosingTimer = 1;

bool IsName(const char* text, const char* name) {
  return CompareStringA(LOCALE_USER_DEFAULT, NORM_IGNORECASE, text, -1, name, -1) == CSTR_EQUAL;
}

// Returns the next word of a command line, terminated in place, and moves `rest` past it and the blanks after
// it. A quoted text is one word, without the quotation marks.
char* TakeWord(char*& rest) {
  while (*rest == ' ') ++rest;
  char end = ' ';
  if (*rest == '"') {
    end = '"';
    ++rest;
  }
  char* word = rest;
  while (*rest && *rest != end) ++rest;
  if (*rest) *rest++ = 0;
  while (*rest == ' ') ++rest;
  return word;
}

DWORD ToNumber(const char* digits) {
  DWORD number = 0;
  for (; *digits >= '0' && *digits <= '9'; ++digits) number = number * 10 + static_cast<DWORD>(*digits - '0');
  return number;
}

// ---- the service

SERVICE_STATUS_HANDLE serviceHandle;
const ServiceProgram* serviceProgram;
bool isStubborn;

void RecordService(const Line& event) {
  Record(Line() << serviceProgram->file << ": " << event.text);
}

void Report(DWORD state) {
  SERVICE_STATUS status = {};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
  SetServiceStatus(serviceHandle, &status);
}

void WINAPI HandleControl(DWORD control) {
  if (control == SERVICE_CONTROL_INTERROGATE) return Report(SERVICE_RUNNING);
  RecordService(Line() << "control " << control);
  if (control != SERVICE_CONTROL_STOP || isStubborn) return Report(SERVICE_RUNNING);
  RecordService(Line() << "stopped");
  Report(SERVICE_STOPPED);
}

void WINAPI ServeControls(DWORD, char**) {
  serviceHandle = RegisterServiceCtrlHandlerA(serviceProgram->service, HandleControl);
  RecordService(Line() << "started");
  Report(SERVICE_RUNNING);
}

void RunService(const ServiceProgram* program, bool stubborn) {
  serviceProgram = program;
  isStubborn = stubborn;
  char name[16];
  lstrcpyA(name, program->service);
  SERVICE_TABLE_ENTRYA services[] = {{name, ServeControls}, {nullptr, nullptr}};
  StartServiceCtrlDispatcherA(services);
}

// ---- a tool

// The functions of USER32 that a tool calls. Bound at run time, because the other programs do not need
// USER32, and it takes longer to load than they run.
struct Windows {
  decltype(&RegisterClassA) registerClass;
  decltype(&CreateWindowExA) createWindow;
  decltype(&DefWindowProcA) defaultProcedure;
  decltype(&DestroyWindow) destroyWindow;
  decltype(&GetMessageA) getMessage;
  decltype(&DispatchMessageA) dispatchMessage;
  decltype(&PostQuitMessage) postQuitMessage;
  decltype(&SetTimer) setTimer;

  Windows() {
    HMODULE module = LoadLibraryA("USER32");
    Find(module, "RegisterClassA", &registerClass);
    Find(module, "CreateWindowExA", &createWindow);
    Find(module, "DefWindowProcA", &defaultProcedure);
    Find(module, "DestroyWindow", &destroyWindow);
    Find(module, "GetMessageA", &getMessage);
    Find(module, "DispatchMessageA", &dispatchMessage);
    Find(module, "PostQuitMessage", &postQuitMessage);
    Find(module, "SetTimer", &setTimer);
  }
  template <typename F>
  static void Find(HMODULE module, const char* name, F* function) {
    *function = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(module, name)));
  }
};

struct Tool {
  const Windows* windows;
  const char* windowClass;
  DWORD refusals;
  DWORD delay;
  bool isClosing;
} tool;

// Handles a request to close; `request` is its name in the record.
void RequestClose(HWND window, const char* request) {
  Line line;
  line << tool.windowClass << ": " << request;
  bool refuses = tool.refusals > 0;
  if (refuses) {
    --tool.refusals;
    line << " refused";
  }
  Record(line);
  if (refuses || tool.isClosing) return;
  tool.isClosing = true;
  if (tool.delay) {
    tool.windows->setTimer(window, kClosingTimer, tool.delay, nullptr);
  } else {
    tool.windows->destroyWindow(window);
  }
}

LRESULT CALLBACK HandleMessage(HWND window, UINT message, WPARAM wide, LPARAM lng) {
  if (message == WM_CLOSE) {
    RequestClose(window, "WM_CLOSE");
  } else if (message == kShutdownMessage) {
    RequestClose(window, "2024");
  } else if (message == WM_ENDSESSION && wide) {
    RequestClose(window, "WM_ENDSESSION");
  } else if (message == WM_COMMAND && wide == kShutdownCommand) {
    RequestClose(window, "WM_COMMAND 1001");
  } else if (message == WM_TIMER && wide == kClosingTimer) {
    tool.windows->destroyWindow(window);
  } else if (message == WM_DESTROY) {
    Record(Line() << tool.windowClass << ": closed");
    tool.windows->postQuitMessage(0);
  } else {
    return tool.windows->defaultProcedure(window, message, wide, lng);
  }
  return 0;
}

void RunTool(char* arguments) {
  Windows windows;
  const char* windowClass = TakeWord(arguments);
  const char* title = TakeWord(arguments);
  DWORD refusals = ToNumber(TakeWord(arguments));
  tool = {&windows, windowClass, refusals, ToNumber(TakeWord(arguments)), false};
  WNDCLASSA description = {};
  description.lpfnWndProc = HandleMessage;
  description.lpszClassName = windowClass;
  description.hInstance = GetModuleHandleA(nullptr);
  windows.registerClass(&description);
  if (!windows.createWindow(0, windowClass, title, WS_OVERLAPPEDWINDOW, 0, 0, 100, 100, nullptr, nullptr,
                            description.hInstance, nullptr)) {
    ExitProcess(1);
  }
  Record(Line() << windowClass << ": opened");
  for (MSG message; windows.getMessage(&message, nullptr, 0, 0) > 0;) windows.dispatchMessage(&message);
}

}  // namespace

extern "C" void Main() {
  char path[MAX_PATH];
  DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
  const char* name = path + length;
  while (name > path && name[-1] != '\\') --name;
  char* arguments = GetCommandLineA();
  TakeWord(arguments);
  for (const ServiceProgram& program : kServicePrograms) {
    if (!IsName(name, program.file)) continue;
    RunService(&program, IsName(TakeWord(arguments), "stubborn"));
    ExitProcess(0);
  }
  if (IsName(name, "osua.exe")) {
    Record(Line() << "osua.exe: started");
    Sleep(INFINITE);
  } else if (IsName(name, "osau.exe") || IsName(name, "ostrel32.exe")) {
    Record(Line() << name << ": started " << arguments);
  } else {
    RunTool(arguments);
  }
  ExitProcess(0);
}
