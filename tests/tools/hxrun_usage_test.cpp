// The command line of hxrun: how its words are read, and the message for each mistake.
#include <gtest/gtest.h>

#include "hxrun/entry_points.h"
#include "hxrun/machine.h"
#include "hxrun/options.h"
#include "tools/hxrun_rig.h"

namespace hxrun_test {
namespace {

using hxrun::SplitCommandLine;
using Words = std::vector<std::wstring>;

TEST(HxRunWordsTest, APropertysValueIsReadAsTheInstallerReadsIt) {
  EXPECT_EQ(SplitCommandLine(L"hxrun A=\"C:\\Program Files\\V\\\" B=c"),
            (Words{L"A=C:\\Program Files\\V\\", L"B=c"}));
  EXPECT_EQ(SplitCommandLine(L"\"C:\\my tools\\hxrun.exe\"  A=\"say \"\"x\"\"\"\tB=\"\""),
            (Words{L"A=say \"x\"", L"B="}));
}

TEST(HxRunWordsTest, OtherWordsAreReadAsProgramsReadThem) {
  EXPECT_EQ(SplitCommandLine(L"hxrun --data \"-mob \\\"C:\\A\\.\\\" \\\"C:\\B\\.\\\"\" x\\\\y \"C:\\A\\\\\""),
            (Words{L"--data", L"-mob \"C:\\A\\.\" \"C:\\B\\.\"", L"x\\\\y", L"C:\\A\\"}));
  EXPECT_EQ(SplitCommandLine(L"hxrun \"a \"\"b\"\" c\" \"\""), (Words{L"a \"b\" c", L""}));
}

// Windows PowerShell 5.1 makes "NAME=VALUE" of NAME="VALUE" and leaves a backslash before the last mark as it
// is. PowerShell 7 doubles it.
TEST(HxRunWordsTest, APropertyThatAShellPutsInQuotationMarks) {
  const Words plain = {L"A=C:\\P F\\V\\", L"B=c"};
  EXPECT_EQ(SplitCommandLine(L"hxrun \"A=C:\\P F\\V\\\" B=c"), plain);
  EXPECT_EQ(SplitCommandLine(L"hxrun \"A=C:\\P F\\V\\\"\tB=c"), plain);
  EXPECT_EQ(SplitCommandLine(L"hxrun \"A=C:\\P F\\V\\\\\" B=c"), plain);
  EXPECT_EQ(SplitCommandLine(L"hxrun B=c \"A=C:\\P F\\V\\\""), (Words{L"B=c", L"A=C:\\P F\\V\\"}));
  EXPECT_EQ(SplitCommandLine(L"hxrun B=c \"A=C:\\P F\\V\\\\\""), (Words{L"B=c", L"A=C:\\P F\\V\\"}));
  EXPECT_EQ(SplitCommandLine(L"hxrun \"A=\\\\server\\V F\" B=c"), (Words{L"A=\\\\server\\V F", L"B=c"}));
  // Marks of the text.
  const Words marked = {L"A=say \"x\" y", L"B=c"};
  EXPECT_EQ(SplitCommandLine(L"hxrun \"A=say \\\"x\\\" y\" B=c"), marked);
  EXPECT_EQ(SplitCommandLine(L"hxrun \"A=say \"\"x\"\" y\" B=c"), marked);
  EXPECT_EQ(SplitCommandLine(L"hxrun --data \"A=\\\"C:\\A\\.\\\" \\\"C:\\B\\.\\\"\" x"),
            (Words{L"--data", L"A=\"C:\\A\\.\" \"C:\\B\\.\"", L"x"}));
}

TEST(HxRunWordsTest, TheFirstExampleWorksInPowerShell) {
  LayDownHxRun();
  const Words lines = {L"\"DIR_SERVER=C:\\hxrun given\\V\\\"", L"\"DIR_SERVER=C:\\hxrun given\\V\\\\\""};
  for (const std::wstring& server : lines) {
    const HxRun run = RunHxRun(L"CustomAction20 " + server + L" \"DIR_UPG=Older one\"");
    EXPECT_EQ(run.status, 0u) << run.errors;
    EXPECT_EQ(run.Lines("set: DIR_UPG = "),
              std::vector<std::string>{"\"C:\\hxrun given\\Older one\\\" (was \"Older one\")"});
  }
}

struct Mistake {
  const wchar_t* arguments;
  const char* message;
};

TEST(HxRunUsageTest, EachMistakeIsNamedWithWhatToDo) {
  const Mistake mistakes[] = {
      {L"", "an entry point is missing, such as CustomAction20. hxrun --list lists them."},
      {L"CustomActon15",
       "there is no entry point 'CustomActon15'. Did you mean CustomAction15? hxrun --list "
       "lists them."},
      {L"CustomAction18",
       "there is no entry point 'CustomAction18'. Did you mean CustomAction1? hxrun --list "
       "lists them."},
      {L"--dry-rum CustomAction12",
       "there is no option '--dry-rum'. Did you mean --dry-run? hxrun --help lists "
       "the options."},
      {L"--dry-run=yes CustomAction12", "--dry-run takes no value: write only --dry-run."},
      {L"--data=x CustomAction15", "--data takes the next word as its value: write --data VALUE."},
      {L"--from-log:a.log CustomAction20",
       "--from-log takes the next word as its value: write --from-log VALUE."},
      {L"PROP_TASKPASS=my --data=secret CustomAction6",
       "--data takes the next word as its value: write --data VALUE."},
      {L"--dat=x CustomAction15",
       "there is no option '--dat'. Did you mean --data? hxrun --help lists the options."},
      {L"--zzzzzzzz CustomAction12", "there is no option '--zzzzzzzz'. hxrun --help lists the options."},
      {L"CustomAction12 CustomAction14",
       "'CustomAction14' is one action too many: hxrun runs one, here "
       "CustomAction12. A property is given as NAME=VALUE, or NAME=\"VALUE\" if the value has blanks."},
      {L"CustomAction12 1A=b", "'1A' is not the name of a property. A property is given as NAME=VALUE."},
      {L"CustomAction12 --data", "--data needs the text of CustomActionData after it."},
      {L"CustomAction12 --properties", "--properties needs a file with lines NAME=VALUE after it."},
      {L"CustomAction12 --from-log \"\"", "--from-log needs a verbose log of the installer after it."},
      {L"--data a --data b CustomAction15", "--data is given twice."},
      {L"--from-log a.log --from-log b.log CustomAction20", "--from-log is given twice."},
      {L"--properties a --properties b CustomAction20", "--properties is given twice."},
      {L"CustomAction15 --data --trace",
       "--data needs the text of CustomActionData after it, and --trace is an option."},
      {L"--from-log --dry-run CustomAction15",
       "--from-log needs a verbose log of the installer after it, and --dry-run is an option."},
      {L"--list --dry-run --yes", "--list runs nothing: give it alone."},
      {L"--list --trace", "--list runs nothing: give it alone."},
      {L"--list --from-log a.log", "--list runs nothing: give it alone."},
      {L"--data x CustomAction20",
       "CustomAction20 is immediate: it reads properties, not CustomActionData. Give them as NAME=VALUE."},
      {L"--data x CustomAction23",
       "CustomAction23 is immediate: it reads properties, not CustomActionData. Give them as NAME=VALUE, or "
       "give "
       "--rollback."},
      {L"--rollback CustomAction20",
       "CustomAction20 is immediate: a rollback never runs it. Leave out --rollback."},
      {L"--rollback CustomAction23 PROP_ACCOUNTID=a",
       "CustomAction23 in a rollback is deferred: it sees only CustomActionData. Give that with --data, or a "
       "log with "
       "--from-log."},
      {L"CustomAction20.Server DIR_SERVER=a",
       "'CustomAction20.Server' is the name of an action in a package, which only a log knows. Give "
       "CustomAction20, or "
       "the log with --from-log."},
      {L"CustomAction6 PROP_TASKUSER=me you",
       "'you' is one action too many: hxrun runs one, here CustomAction6. A property is given as NAME=VALUE, "
       "or "
       "NAME=\"VALUE\" if the value has blanks."},
      // The value after a name that is written wrongly may be a password.
      {L"CustomAction6 /PROP_TASKPASS=secret",
       "there is no option '/PROP_TASKPASS'. hxrun --help lists the options."},
      {L"CustomAction6 PROP_TASKPASS:secret",
       "'PROP_TASKPASS' is one action too many: hxrun runs one, here CustomAction6. A property is given as "
       "NAME=VALUE, "
       "or NAME=\"VALUE\" if the value has blanks."},
      {L"PROP_TASKPASS:secret CustomAction6",
       "there is no entry point 'PROP_TASKPASS'. hxrun --list lists them."},
      // The rest of a password with a blank is not shown.
      {L"CustomAction6 PROP_TASKPASS=my secret",
       "a word after PROP_TASKPASS is neither an option nor an entry point nor NAME=VALUE. If the value has "
       "blanks, "
       "write PROP_TASKPASS=\"VALUE\"."},
      {L"PROP_TASKPASS=my secret CustomAction6",
       "a word after PROP_TASKPASS is neither an option nor an entry point nor NAME=VALUE. If the value has "
       "blanks, "
       "write PROP_TASKPASS=\"VALUE\"."},
      {L"CustomAction6 PROP_TASKPAS=my -secret",
       "a word after PROP_TASKPAS is neither an option nor an entry point nor NAME=VALUE. If the value has "
       "blanks, "
       "write PROP_TASKPAS=\"VALUE\"."},
      {L"CustomAction6 PROP_TASKPASS=my 1secret=x",
       "a word after PROP_TASKPASS is neither an option nor an entry point nor NAME=VALUE. If the value has "
       "blanks, "
       "write PROP_TASKPASS=\"VALUE\"."},
      // A value is not shown where a file is expected, nor if its word is not known.
      {L"CustomAction6 --properties PROP_TASKPASS=Geheim-123",
       "--properties needs a file with lines NAME=VALUE after it, and PROP_TASKPASS is a property."},
      {L"--from-log \"PROP_TASKPASS=Geheim 123\" CustomAction6",
       "--from-log needs a verbose log of the installer after it, and PROP_TASKPASS is a property."},
      {L"--properties PROP_TASKPASS=\"Geheim 123\" CustomAction6",
       "--properties needs a file with lines NAME=VALUE after it, and PROP_TASKPASS is a property."},
      {L"CustomAction6 --properties PROP_TASKPASS:Geheim-123",
       "--properties needs a file with lines NAME=VALUE after it, and there is no file 'PROP_TASKPASS:...'."},
      {L"CustomAction6 --from-log C:\\1PASS=Geheim-123",
       "--from-log needs a verbose log of the installer after it, and there is no file 'C:\\1PASS=...'."},
      {L"\"--data Geheim-123\" CustomAction15",
       "--data takes the next word as its value: write --data VALUE."},
      {L"\"--dat Geheim-123\" CustomAction15",
       "there is no option '--dat ...'. Did you mean --data? hxrun --help lists the options."},
      {L"\"CustomAction6 Geheim-123\"",
       "there is no entry point 'CustomAction6 ...'. Did you mean CustomAction6? hxrun --list lists them."},
      {L"CustomAction12 \"PROP_TASKPASS Geheim-123\"",
       "'PROP_TASKPASS ...' is one action too many: hxrun runs one, here CustomAction12. A property is given "
       "as NAME=VALUE, or NAME=\"VALUE\" if the value has blanks."},
      {L"\"CustomAction6 PROP_TASKPASS=Geheim-123\"",
       "'CustomAction6 PROP_TASKPASS' is not the name of a property. A property is given as NAME=VALUE."},
      {L"--dry-run --yes CustomAction12",
       "--yes allows changes, and --dry-run makes none: give one of them."},
      {L"--list CustomAction12", "--list runs nothing: give it alone."},
      {L"CustomAction15",
       "CustomAction15 is deferred: it sees only CustomActionData. Give that with --data, or a "
       "log with --from-log."},
      {L"--data x CustomAction15 DIR_SERVER=a",
       "a deferred action sees only CustomActionData, ProductCode and "
       "UserSID, not DIR_SERVER. Give the data with --data."},
      {L"--properties C:\\missing.txt CustomAction12", "cannot read C:\\missing.txt: there is no such file."},
      {L"--from-log C:\\missing.log CustomAction12", "cannot read C:\\missing.log: there is no such file."},
  };
  LayDownHxRun();
  for (const Mistake& mistake : mistakes) {
    const HxRun run = RunHxRun(mistake.arguments);
    EXPECT_EQ(run.errors, std::string("hxrun: ") + mistake.message + "\n");
    EXPECT_EQ(run.status, 2u);
    EXPECT_EQ(run.output, "");
  }
}

// A file may have such a name. Files of the command line are in the user's folder.
TEST(HxRunUsageTest, AFileWithTheNameOfAProperty) {
  LayDownHxRun();
  const std::wstring file = std::wstring(kRunFolder) + L"\\A=b";
  WriteBytes(file, "DIR_UPG=Older\nDIR_SERVER=C:\\hxrun-given\\V\\\n");
  const HxRun run = RunHxRun(L"CustomAction20 --properties A=b");
  EXPECT_EQ(run.status, 0u) << run.errors;
  EXPECT_EQ(run.Lines("set: DIR_UPG = "),
            std::vector<std::string>{"\"C:\\hxrun-given\\Older\\\" (was \"Older\")"});
  DeleteFileW(file.c_str());
}

TEST(HxRunUsageTest, HelpAndListNeedNoLibrary) {
  LayDownHxRun();
  DeleteFileW((std::wstring(kRunFolder) + L"\\hxsetup.dll").c_str());
  const HxRun help = RunHxRun(L"--help"), list = RunHxRun(L"--list");
  EXPECT_EQ(help.status, 0u);
  EXPECT_EQ(help.output, std::string(hxrun::kHelp) + "\n");
  EXPECT_EQ(list.status, 0u);
  EXPECT_EQ(list.Lines("CustomAction").size(), 36u);
  EXPECT_EQ(list.Lines("CustomAction34 "),
            std::vector<std::string>{"(immediate): finds the previous server's data folder"});
  EXPECT_NE(list.output.find("\n    reads DIR_SERVER, DIR_UPG, PROP_PRE75SERVER\n    sets PROP_PREVVTDF\n"),
            std::string::npos);
}

TEST(HxRunUsageTest, AChangeNeedsAYes) {
  LayDownHxRun();
  WriteBytes(L"C:\\hxrun-given\\A\\f.txt", "x");
  const std::wstring action =
      L"CustomAction15 --data \"hxsetup -mo \\\"C:\\hxrun-given\\A\\.\\\" "
      L"\\\"C:\\hxrun-given\\B\\.\\\"\"";
  const HxRun refused = RunHxRun(action);
  EXPECT_EQ(refused.status, 2u);
  EXPECT_EQ(
      refused.errors,
      "hxrun: this action would move C:\\hxrun-given\\A to C:\\hxrun-given\\B. Nothing was changed. Give "
      "--yes to allow it, or --dry-run to see all changes.\n");
  EXPECT_EQ(ReadBytes(L"C:\\hxrun-given\\A\\f.txt"), "x");
  const HxRun allowed = RunHxRun(L"--yes " + action);
  EXPECT_EQ(allowed.status, 0u);
  EXPECT_EQ(allowed.Story(), "returned 0: success\n");
  EXPECT_EQ(ReadBytes(L"C:\\hxrun-given\\B\\f.txt"), "x");
  // Its source is missing now.
  const HxRun failed = RunHxRun(L"--yes " + action);
  EXPECT_EQ(failed.status, 3u);
  EXPECT_EQ(failed.Story(), "returned 1603: ends the installation with an error\n");
  DeleteFolder(L"C:\\hxrun-given");
}

// The standard output may be a file, in which nobody would see the question.
TEST(HxRunUsageTest, TheQuestionGoesToTheErrorOutput) {
  wchar_t folder[MAX_PATH];
  GetTempPathW(MAX_PATH, folder);
  const std::wstring files[] = {std::wstring(folder) + L"hxrun-out", std::wstring(folder) + L"hxrun-err"};
  HANDLE opened[2];
  for (int index = 0; index < 2; ++index) {
    opened[index] =
        CreateFileW(files[index].c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(opened[index], INVALID_HANDLE_VALUE);
  }
  HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE), errors = GetStdHandle(STD_ERROR_HANDLE),
         input = GetStdHandle(STD_INPUT_HANDLE);
  SetStdHandle(STD_OUTPUT_HANDLE, opened[0]);
  SetStdHandle(STD_ERROR_HANDLE, opened[1]);
  SetStdHandle(STD_INPUT_HANDLE, opened[0]);
  const bool isAllowed = hxrun::AskPerson("May I?");
  SetStdHandle(STD_OUTPUT_HANDLE, output);
  SetStdHandle(STD_ERROR_HANDLE, errors);
  SetStdHandle(STD_INPUT_HANDLE, input);
  for (HANDLE file : opened) CloseHandle(file);
  // Nobody sits at a file.
  EXPECT_FALSE(isAllowed);
  EXPECT_EQ(ReadBytes(files[0]), "");
  EXPECT_EQ(ReadBytes(files[1]), "May I?\r\n");
  for (const std::wstring& file : files) DeleteFileW(file.c_str());
}

}  // namespace
}  // namespace hxrun_test
