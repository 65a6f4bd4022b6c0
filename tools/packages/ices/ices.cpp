// Runs validation actions (ICEs) on an installer package into which their library is merged. A program for
// Windows on x64; ices.py starts it and reads its output:
//
//   ices.exe PACKAGE SECONDS ACTION...
//
// Prints these lines, in UTF-8:
//
//   open STATUS          the package was opened; with a status other than 0, the program ends
//   run ACTION           the action starts
//   said MESSAGE         the action's message: fields with tabs between them; "\" is written as "\\", a line
//   end as "\n" end ACTION STATUS    the action has ended, with the engine's status late ACTION          the
//   action has not ended in SECONDS; the program ends done                 all actions have ended
//
// An action that goes on after kMessageLimit messages is "late" too.
//
// If the last line is "run", "said" or "end", the last action that started has ended the program.
#include <windows.h>
// After windows.h, which it needs.
#include <msi.h>
#include <msiquery.h>

namespace {

// The characters of the longest message; a longer one is cut off.
constexpr DWORD kMessageSize = 32768;
// The bytes of a line of the output: each character can take three, and two more if it is escaped.
constexpr DWORD kLineSize = 4 * kMessageSize;
constexpr DWORD kMillisecondsPerSecond = 1000;
// More messages than any action needs: some repeat theirs without an end if they cannot read a table.
constexpr DWORD kMessageLimit = 5000;

enum ExitCode : UINT { kDone = 0, kWrongArguments = 1, kNotOpened = 2, kLate = 3 };

wchar_t message[kMessageSize];
char line[kLineSize];
DWORD lineLength;

// The action that runs, the time that it may take in milliseconds, the number of its messages, and the events
// that say that it has started and ended.
const wchar_t* runningAction;
DWORD timeLimit;
DWORD messageCount;
HANDLE actionStarted;
HANDLE actionEnded;

void Put(char byte) {
  if (lineLength < kLineSize) line[lineLength++] = byte;
}

void Put(const char* text) {
  while (*text) Put(*text++);
}

// Appends a text in UTF-8, escaped so that it stays on its line.
void Put(const wchar_t* text) {
  static char bytes[3 * kMessageSize];
  int count = WideCharToMultiByte(CP_UTF8, 0, text, -1, bytes, sizeof bytes, nullptr, nullptr);
  for (int i = 0; i + 1 < count; ++i) {
    switch (bytes[i]) {
      case '\\':
        Put("\\\\");
        break;
      case '\n':
        Put("\\n");
        break;
      case '\r':
        break;
      default:
        Put(bytes[i]);
    }
  }
}

void PutNumber(UINT number) {
  char digits[11];
  char* digit = digits + sizeof digits - 1;
  *digit = 0;
  do {
    *--digit = static_cast<char>('0' + number % 10);
  } while (number /= 10);
  Put(digit);
}

// Writes the line at once, so that the reader has it even if the action ends the program.
void EndLine() {
  if (lineLength == kLineSize) --lineLength;
  Put('\n');
  DWORD written;
  WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), line, lineLength, &written, nullptr);
  lineLength = 0;
}

// Ends the program because the action does not end: the engine has no way to end an action.
[[noreturn]] void GiveUp() {
  // Not through the line: another thread may be writing there.
  char text[64] = "\nlate ";
  DWORD length = 6;
  for (const wchar_t* name = runningAction; *name && length + 1 < sizeof text; ++name) {
    text[length++] = static_cast<char>(*name);
  }
  text[length++] = '\n';
  DWORD written;
  WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text, length, &written, nullptr);
  ExitProcess(kLate);
}

// Called by the engine with the messages of the actions.
int WINAPI TakeMessage(void*, UINT, MSIHANDLE record) {
  if (++messageCount > kMessageLimit) GiveUp();
  DWORD size = kMessageSize;
  UINT status = MsiFormatRecordW(0, record, message, &size);
  if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA) return 0;
  Put("said ");
  Put(message);
  EndLine();
  return IDOK;
}

// Watches the time of each action.
DWORD WINAPI WatchTime(void*) {
  for (;;) {
    WaitForSingleObject(actionStarted, INFINITE);
    if (WaitForSingleObject(actionEnded, timeLimit) == WAIT_TIMEOUT) GiveUp();
  }
}

void Run(MSIHANDLE session, const wchar_t* action) {
  Put("run ");
  Put(action);
  EndLine();
  runningAction = action;
  messageCount = 0;
  SetEvent(actionStarted);
  UINT status = MsiDoActionW(session, action);
  SetEvent(actionEnded);
  Put("end ");
  Put(action);
  Put(" ");
  PutNumber(status);
  EndLine();
}

// Returns the next word of the command line, ended in place, and moves `rest` past it. A quoted text is one
// word, without the quotation marks.
const wchar_t* TakeWord(wchar_t*& rest) {
  while (*rest == L' ') ++rest;
  wchar_t end = L' ';
  if (*rest == L'"') {
    end = L'"';
    ++rest;
  }
  const wchar_t* word = rest;
  while (*rest && *rest != end) ++rest;
  if (*rest) *rest++ = L'\0';
  return word;
}

DWORD ToNumber(const wchar_t* digits) {
  DWORD number = 0;
  for (; *digits >= L'0' && *digits <= L'9'; ++digits)
    number = number * 10 + static_cast<DWORD>(*digits - L'0');
  return number;
}

}  // namespace

extern "C" void Main() {
  wchar_t* rest = GetCommandLineW();
  TakeWord(rest);
  const wchar_t* package = TakeWord(rest);
  timeLimit = ToNumber(TakeWord(rest)) * kMillisecondsPerSecond;
  if (!timeLimit) ExitProcess(kWrongArguments);

  MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);
  MSIHANDLE session = 0;
  UINT status = MsiOpenPackageExW(package, MSIOPENPACKAGEFLAGS_IGNOREMACHINESTATE, &session);
  Put("open ");
  PutNumber(status);
  EndLine();
  if (status != ERROR_SUCCESS) ExitProcess(kNotOpened);
  // Only now: the messages of opening are not wanted.
  MsiSetExternalUIRecord(TakeMessage, INSTALLLOGMODE_USER, nullptr, nullptr);

  actionStarted = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  actionEnded = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  CreateThread(nullptr, 0, WatchTime, nullptr, 0, nullptr);
  while (const wchar_t* action = TakeWord(rest)) {
    if (!*action) break;
    Run(session, action);
  }
  MsiCloseHandle(session);
  Put("done");
  EndLine();
  ExitProcess(kDone);
}
