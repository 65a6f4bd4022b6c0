// Properties from files: lists of NAME=VALUE, and verbose logs of Microsoft's engine in both encodings.
#include <gtest/gtest.h>

#include "hxrun/options.h"
#include "hxrun/properties.h"
#include "rig/print.h"
#include "tools/hxrun_rig.h"

namespace hxrun_test {
namespace {

using hxrun::LinesOf;
using hxrun::LoggedAction;
using hxrun::Properties;
using hxrun::ReadLog;
using hxrun::UsageError;

// A log of an installation, as Microsoft's engine writes it. The package calls the entry points by names of
// its own.
constexpr char kLog[] =
    "=== Verbose logging started: 11/22/2026  12:00:00  Build type: SHIP UNICODE 5.00.10011.00 ===\r\n"
    "MSI (c) (A8:5C) [12:00:00:123]: PROPERTY CHANGE: Adding DIR_SERVER property. Its value is 'C:\\Client "
    "side\\'.\r\n"
    "Action start 12:00:00: FindData.\r\n"
    "MSI (c) (A8:5C) [12:00:00:200]: Invoking remote custom action. DLL: C:\\Temp\\MSI1.tmp, Entrypoint: "
    "CustomAction34\r\n"
    "Property(C): DIR_SERVER = C:\\Client side\\\r\n"
    "MSI (s) (E0:64) [12:00:01:000]: PROPERTY CHANGE: Adding DIR_SERVER property. Its value is "
    "'C:\\Vantor\\'.\r\n"
    "MSI (s) (E0:64) [12:00:01:001]: PROPERTY CHANGE: Modifying DIR_UPG property. Its current value is "
    "'Old'. Its "
    "new value: 'Prévious'.\r\n"
    "MSI (s) (E0:64) [12:00:01:002]: Doing action: FindData\r\n"
    "Action start 12:00:01: FindData.\r\n"
    "MSI (s) (E0:38) [12:00:01:003]: Invoking remote custom action. DLL: C:\\Windows\\Installer\\MSI2.tmp, "
    "Entrypoint: CustomAction34\r\n"
    "MSI (s) (E0!40) [12:00:01:004]: PROPERTY CHANGE: Adding PROP_PREVVTDF property. Its value is "
    "'C:\\Data\\'.\r\n"
    "Action ended 12:00:01: FindData. Return value 1.\r\n"
    "MSI (s) (E0:64) [12:00:01:005]: PROPERTY CHANGE: Modifying DIR_UPG property. Its current value is "
    "'Prévious'. "
    "Its new value: 'C:\\Prévious\\'.\r\n"
    "MSI (s) (E0:64) [12:00:01:006]: PROPERTY CHANGE: Deleting PROP_PRE75SERVER property. Its current value "
    "is "
    "'it's 1'.\r\n"
    "MSI (s) (E0:64) [12:00:01:007]: PROPERTY CHANGE: Adding TwoLines property. Its value is 'one\r\n"
    "two'.\r\n"
    "MSI (s) (E0:64) [12:00:02:000]: Executing op: CustomActionSchedule(Action=MoveAside,ActionType=3073,"
    "Source=BinaryData,Target=CustomAction15,CustomActionData=hxsetup -mobl \"C:\\A (1)\\.\" \"C:\\B, "
    "C\\.\")\r\n"
    "Property(S): DIR_SERVER = C:\\Vantor\\\r\n"
    "Property(S): DIR_UPG = C:\\Prévious\\\r\n"
    "Property(S): PROP_PREVVTDF = C:\\Data\\\r\n"
    "Property(S): PROP_TASKPASS = **********\r\n"
    "Property(S): FromTheTable = as = written\r\n"
    "Property(S): TwoLines = one\r\n"
    "two\r\n";

const Properties kAtThePlace = {{"DIR_SERVER", "C:\\Vantor\\"},
                                {"DIR_UPG", "Prévious"},
                                {"PROP_PRE75SERVER", "it's 1"},
                                {"FromTheTable", "as = written"}};

std::string InCodePage(const std::string& text) {
  const std::wstring wide = rig::ToWide(text);
  std::string bytes(wide.size(), '\0');
  WideCharToMultiByte(CP_ACP, 0, wide.data(), static_cast<int>(wide.size()), bytes.data(),
                      static_cast<int>(bytes.size()), nullptr, nullptr);
  return bytes;
}

TEST(HxRunLogTest, TheValuesWhereTheActionRanInEachEncoding) {
  for (const std::string& bytes :
       {AsUtf16(kLog), InCodePage(kLog), std::string(kLog), "\xEF\xBB\xBF" + std::string(kLog)}) {
    const LoggedAction action = ReadLog(LinesOf(bytes), "CustomAction34", false, "a.log");
    EXPECT_EQ(action.values, kAtThePlace);
    EXPECT_EQ(action.hidden, std::vector<std::string>{"PROP_TASKPASS"});
    EXPECT_EQ(action.notes,
              std::vector<std::string>{"a.log has 2 runs of CustomAction34; this is the last, in line 10"});
  }
  // By the package's own name of the action.
  EXPECT_EQ(ReadLog(LinesOf(kLog), "FindData", false, "a.log").values, kAtThePlace);
}

// A package can give an action the name of another entry point.
TEST(HxRunLogTest, TheEntryPointCountsMoreThanTheActionsName) {
  const std::string log =
      "MSI (s) (E0:64) [12:00:01:000]: PROPERTY CHANGE: Adding DIR_UPG property. Its value is 'early'.\n"
      "MSI (s) (E0:38) [12:00:01:001]: Invoking remote custom action. DLL: C:\\MSI1.tmp, Entrypoint: "
      "CustomAction34\n"
      "MSI (s) (E0:64) [12:00:01:002]: PROPERTY CHANGE: Modifying DIR_UPG property. Its current value is "
      "'early'. Its new value: 'late'.\n"
      "Action start 12:00:02: CustomAction34.\n"
      "MSI (s) (E0:38) [12:00:02:001]: Invoking remote custom action. DLL: C:\\MSI2.tmp, Entrypoint: "
      "CustomAction20\n"
      "Property(S): DIR_UPG = late\n";
  EXPECT_EQ(ReadLog(LinesOf(log), "CustomAction34", false, "a.log").values,
            (Properties{{"DIR_UPG", "early"}}));
}

TEST(HxRunLogTest, TheDataOfADeferredAction) {
  const LoggedAction action = ReadLog(LinesOf(kLog), "CustomAction15", true, "a.log");
  EXPECT_EQ(action.data, "hxsetup -mobl \"C:\\A (1)\\.\" \"C:\\B, C\\.\"");
}

TEST(HxRunLogTest, ALogThatBreaksOffHasOnlyChanges) {
  std::string start = kLog;
  start.resize(start.find("Property(S)"));
  const LoggedAction action = ReadLog(LinesOf(start), "FindData", false, "a.log");
  EXPECT_EQ(action.values, (Properties{{"DIR_SERVER", "C:\\Vantor\\"}, {"DIR_UPG", "Prévious"}}));
  EXPECT_EQ(action.notes.back(),
            "a.log has no list of properties at its end: only those that changed are known");
}

// What is read from the first bytes of the log, as text.
std::string ReadingOf(size_t length) {
  std::string text;
  try {
    const LoggedAction action =
        ReadLog(LinesOf(AsUtf16(std::string(kLog, length))), "CustomAction34", false, "a.log");
    for (const auto& [name, value] : action.values) text += name + "=" + value + "\n";
    for (const std::string& note : action.notes) text += note + "\n";
  } catch (const UsageError& mistake) {
    text = mistake.what();
  }
  return text;
}

TEST(HxRunLogTest, ALogThatBreaksOffAnywhereIsReadTheSameEachTime) {
  const std::string log = kLog;
  const size_t firstRun = log.find("Entrypoint: CustomAction34") + 26;
  const size_t lastRun = log.find("Entrypoint: CustomAction34", firstRun) + 26;
  const size_t list = log.find("Property(S)");
  const std::string none = "a.log has no run of CustomAction34.";
  const std::string changed =
      "DIR_SERVER=C:\\Vantor\\\nDIR_UPG=Prévious\na.log has 2 runs of CustomAction34; this is the "
      "last, in line 10\na.log has no list of properties at its end: only those that changed "
      "are known\n";
  for (size_t length = 0; length <= log.size(); ++length) {
    const std::string reading = ReadingOf(length);
    EXPECT_EQ(reading, ReadingOf(length)) << length;
    if (length < firstRun) EXPECT_EQ(reading, none) << length;
    if (length >= lastRun && length < list) EXPECT_EQ(reading, changed) << length;
    EXPECT_EQ(reading.find("****"), std::string::npos) << length;
  }
}

TEST(HxRunLogTest, ALogWithoutChangesGivesTheValuesOfItsEnd) {
  const std::string log =
      "Action start 12:00:01: CustomAction34.\nAction start 12:00:02: CustomAction15.Server.\n"
      "Action start 12:00:03: CustomAction15.Server.\nAction start 12:00:03: CustomAction15.Data.\n"
      "Property(S): DIR_UPG = x\nProperty(S): CustomAction15.Server = one\nProperty(S): CustomAction15.Data "
      "= two\n";
  EXPECT_EQ(ReadLog(LinesOf(log), "CustomAction34", false, "a.log").values.at("DIR_UPG"), "x");
  EXPECT_EQ(ReadLog(LinesOf(log), "CustomAction34", false, "a.log").notes,
            std::vector<std::string>{
                "a.log does not say when properties changed: the values are those of its end"});
  EXPECT_EQ(ReadLog(LinesOf(log), "CustomAction15.Data", true, "a.log").data, "two");
  try {
    ReadLog(LinesOf(log), "CustomAction15", true, "a.log");
    FAIL() << "nothing was refused";
  } catch (const UsageError& mistake) {
    EXPECT_STREQ(mistake.what(),
                 "a.log has the data of more than one action with this entry point. Name one of "
                 "them: CustomAction15.Data, CustomAction15.Server.");
  }
}

// An upgrade: the removal of the older product is an installation inside the upgrade, with lines and a list
// of its own.
constexpr char kInside[] =
    "MSI (s) (E0:64) [12:00:00:000]: ******* RunEngine:\r\n"
    "           ******* Product: C:\\new.msi\r\n"
    "MSI (s) (E0:64) [12:00:01:000]: PROPERTY CHANGE: Adding DIR_SERVER property. Its value is "
    "'C:\\New\\'.\r\n"
    "Action start 12:00:01: CustomAction20.\r\n"
    "MSI (s) (E0:64) [12:00:02:000]: Executing op: "
    "CustomActionSchedule(Action=CustomAction15,ActionType=3073,"
    "Source=BinaryData,Target=CustomAction15,CustomActionData=of the new product)\r\n"
    "%s ******* RunEngine:\r\n"
    "           ******* Product: {OLD}\r\n"
    "%s PROPERTY CHANGE: Adding DIR_SERVER property. Its value is 'C:\\Old\\'.\r\n"
    "%s Executing op: CustomActionSchedule(Action=CustomAction15,ActionType=3073,"
    "Source=BinaryData,Target=CustomAction15,CustomActionData=of the old product)\r\n"
    "Action start 12:00:03: CustomAction20.\r\n"
    "Action start 12:00:03: CustomAction34.\r\n"
    "Property(N): DIR_SERVER = C:\\Old\\\r\n"
    "Property(N): ProductCode = {OLD}\r\n"
    "Property(N): ONLY_OLD = 1\r\n"
    "MSI (s) (E0:64) [12:00:05:000]: PROPERTY CHANGE: Adding LATER property. Its value is '1'.\r\n"
    "Action start 12:00:05: CustomAction35.\r\n"
    "Property(S): DIR_SERVER = C:\\New\\\r\n"
    "Property(S): LATER = 1\r\n"
    "Property(S): ProductCode = {NEW}\r\n";

// Returns that log; the lines of the installation inside have the letter of the other process, or their own.
std::vector<std::string> InsideWith(const std::string& head) {
  std::string text = kInside;
  for (size_t at = text.find("%s"); at != std::string::npos; at = text.find("%s")) text.replace(at, 2, head);
  return LinesOf(text);
}

TEST(HxRunLogTest, AnInstallationInsideAnotherOneIsKeptApart) {
  for (const char* head : {"MSI (N) (E0:70) [12:00:03:000]:", "MSI (s) (E0:64) [12:00:03:000]:"}) {
    SCOPED_TRACE(head);
    const std::vector<std::string> lines = InsideWith(head);
    EXPECT_EQ(ReadLog(lines, "CustomAction34", false, "a.log").values,
              (Properties{{"DIR_SERVER", "C:\\Old\\"}, {"ProductCode", "{OLD}"}, {"ONLY_OLD", "1"}}));
    const Properties ofNew = {{"DIR_SERVER", "C:\\New\\"}, {"ProductCode", "{NEW}"}};
    const LoggedAction last = ReadLog(lines, "CustomAction20", false, "a.log");
    EXPECT_EQ(last.values.at("DIR_SERVER"), "C:\\Old\\");
    EXPECT_EQ(last.notes,
              std::vector<std::string>{
                  "a.log has 2 runs of CustomAction20; this is the last, in line 10, of the product "
                  "{OLD}. ProductCode=CODE takes that of another: {NEW}, {OLD}"});
    const LoggedAction first = ReadLog(lines, "CustomAction20", false, "a.log", "{NEW}");
    EXPECT_EQ(first.values, ofNew);
    EXPECT_EQ(first.notes, std::vector<std::string>{});
    Properties withLater = ofNew;
    withLater["LATER"] = "1";
    EXPECT_EQ(ReadLog(lines, "CustomAction35", false, "a.log").values, withLater);
    EXPECT_EQ(ReadLog(lines, "CustomAction15", true, "a.log").data, "of the old product");
    EXPECT_EQ(ReadLog(lines, "CustomAction15", true, "a.log", "{NEW}").data, "of the new product");
  }
}

TEST(HxRunLogTest, SeveralLogsInOneFileAreKeptApart) {
  const auto log = [](const std::string& product, const std::string& folder) {
    return "=== Verbose logging started: 11/22/2026 ===\nAction start 12:00:01: CustomAction20.\n"
           "Property(S): DIR_UPG = " +
           folder + "\nProperty(S): ProductCode = " + product + "\n";
  };
  const std::vector<std::string> lines = LinesOf(log("{A}", "a") + log("{B}", "b"));
  EXPECT_EQ(ReadLog(lines, "CustomAction20", false, "a.log").values.at("DIR_UPG"), "b");
  EXPECT_EQ(ReadLog(lines, "CustomAction20", false, "a.log", "{A}").values.at("DIR_UPG"), "a");
}

TEST(HxRunLogTest, ALogThatDoesNotSayWhichProductRanTheActionIsRefused) {
  const std::vector<std::string> lines = LinesOf(
      "Action start 12:00:01: CustomAction20.\nProperty(S): ProductCode = {A}\nProperty(S): DIR_UPG = a\n"
      "Action start 12:00:02: Other.\nProperty(S): ProductCode = {B}\nProperty(S): DIR_UPG = b\n");
  try {
    ReadLog(lines, "CustomAction20", false, "a.log");
    FAIL() << "nothing was refused";
  } catch (const UsageError& mistake) {
    EXPECT_STREQ(mistake.what(),
                 "a.log has the properties of more than one product, and does not say with which of them "
                 "CustomAction20 ran: {A}, {B}. Name one of them with ProductCode=CODE.");
  }
  EXPECT_EQ(ReadLog(lines, "CustomAction20", false, "a.log", "{A}").values.at("DIR_UPG"), "a");
  EXPECT_EQ(ReadLog(lines, "CustomAction20", false, "a.log", "{B}").values.at("DIR_UPG"), "b");
}

TEST(HxRunLogTest, OfSeveralSchedulesTheLastIsTakenAndNoted) {
  const std::string line =
      "MSI (s) (E0:64) [12:00:02:000]: Executing op: CustomActionSchedule(Action=Move,ActionType=3073,"
      "Source=BinaryData,Target=CustomAction15,CustomActionData=";
  const LoggedAction action =
      ReadLog(LinesOf(line + "one)\n" + line + "two)\n"), "CustomAction15", true, "a.log");
  EXPECT_EQ(action.data, "two");
  EXPECT_EQ(action.notes, std::vector<std::string>{
                              "a.log has 2 CustomActionSchedule lines of Move; this is the last, in line 2"});
}

// The engine of these tests does not log the data where the action is scheduled.
TEST(HxRunLogTest, TheNotesOfADeferredActionAreThoseOfItsData) {
  const std::string run = "Action start 12:00:01: CustomAction15.Server.\n";
  const std::string ofB = "Property(S): CustomAction15.Server = two\nProperty(S): ProductCode = {B}\n";
  const std::string ofTheEnd = "a.log does not say when properties changed: the values are those of its end";
  const LoggedAction one = ReadLog(LinesOf(run + ofB), "CustomAction15", true, "a.log");
  EXPECT_EQ(one.data, "two");
  EXPECT_EQ(one.notes, std::vector<std::string>{ofTheEnd});
  // Two products, each with its log.
  const std::string start = "=== Verbose logging started: 11/22/2026 ===\n" + run;
  const std::string ofA = "Property(S): CustomAction15.Server = one\nProperty(S): ProductCode = {A}\n";
  const LoggedAction two = ReadLog(LinesOf(start + ofA + start + ofB), "CustomAction15", true, "a.log");
  EXPECT_EQ(two.data, "two");
  EXPECT_EQ(two.notes, (std::vector<std::string>{
                           "a.log has 2 runs of CustomAction15; this is the last, in line 6, of the "
                           "product {B}. ProductCode=CODE takes that of another: {A}, {B}",
                           ofTheEnd}));
  EXPECT_EQ(ReadLog(LinesOf(start + ofA + start + ofB), "CustomAction15", true, "a.log", "{A}").notes,
            std::vector<std::string>{ofTheEnd});
  // Where the log says when the action was scheduled, the data are those of that time.
  EXPECT_EQ(ReadLog(LinesOf(kLog), "CustomAction15", true, "a.log").notes, std::vector<std::string>{});
}

std::string MistakeIn(const std::string& log, const std::string& action, bool isDeferred) {
  try {
    ReadLog(LinesOf(log), action, isDeferred, "a.log");
  } catch (const UsageError& mistake) {
    return mistake.what();
  }
  return {};
}

TEST(HxRunLogTest, WhatALogDoesNotHave) {
  EXPECT_EQ(MistakeIn(kLog, "CustomAction3", false), "a.log has no run of CustomAction3.");
  EXPECT_EQ(MistakeIn("", "CustomAction3", false), "a.log has no run of CustomAction3.");
  // The name of an action can be mistyped, too.
  const std::string names =
      "Action start 12:00:01: CustomAction15.Server.\nAction start 12:00:02: CustomAction15.Data.\n"
      "Action start 12:00:02: CustomAction16.Servr.\n";
  EXPECT_EQ(MistakeIn(names, "CustomAction15.Servr", true),
            "a.log has no run of CustomAction15.Servr. Did you mean CustomAction15.Server?");
  EXPECT_EQ(MistakeIn(names, "CustomAction15.LookAtOlder", true),
            "a.log has no run of CustomAction15.LookAtOlder.");
  EXPECT_EQ(MistakeIn(names, "CustomAction17", true), "a.log has no run of CustomAction17.");
  EXPECT_EQ(MistakeIn("Action start 12:00:01: CustomAction15.\n", "CustomAction15", true),
            "a.log does not show the CustomActionData of CustomAction15.");
  const char* const hidden = "a.log hides the CustomActionData of CustomAction15: give it with --data.";
  EXPECT_EQ(
      MistakeIn(
          "MSI (s) (E0:64) [12:00:02:000]: Executing op: CustomActionSchedule(Action=Move,ActionType=3073,"
          "Source=BinaryData,Target=CustomAction15,CustomActionData=**********)\n",
          "CustomAction15", true),
      hidden);
  EXPECT_EQ(MistakeIn("Action start 12:00:01: CustomAction15.\nProperty(S): CustomAction15 = **********\n",
                      "CustomAction15", true),
            hidden);
}

// A head of a line of Microsoft's log.
constexpr char kHead[] = "MSI (s) (E0:64) [12:00:02:000]: ";

TEST(HxRunLogTest, AValueWithLineEndsIsReadWhole) {
  const std::string head = kHead;
  const std::string log =
      "Action start 12:00:01: CustomAction34.\r\n" + head +
      "PROPERTY CHANGE: Modifying LIST property. Its current value is 'one\r\nzwéi'. Its new value: "
      "'three\r\nvier'.\r\n" +
      head +
      "Executing op: CustomActionSchedule(Action=Move,ActionType=3073,Source=BinaryData,"
      "Target=CustomAction15,CustomActionData=hxsetup -mob \"C:\\A (1)\r\né\\.\"\r\n \"C:\\B (2)\\.\")\r\n" +
      head +
      "Creating MSIHANDLE (1)\r\nProperty(S): FIRST = a = b\r\n\r\nc é\r\nProperty(S): LIST = "
      "three\r\nvier\r\n"
      "Property(S): LAST = x\r\ny\r\n" +
      head + "Note: 1: 1729\r\nnothing of the list\r\n=== Logging stopped: 11/22/2026 ===\r\n";
  for (const std::string& bytes : {AsUtf16(log), InCodePage(log)}) {
    EXPECT_EQ(ReadLog(LinesOf(bytes), "CustomAction34", false, "a.log").values,
              (Properties{{"FIRST", "a = b\n\nc é"}, {"LIST", "one\nzwéi"}, {"LAST", "x\ny"}}));
    EXPECT_EQ(ReadLog(LinesOf(bytes), "CustomAction15", true, "a.log").data,
              "hxsetup -mob \"C:\\A (1)\né\\.\"\n \"C:\\B (2)\\.\"");
  }
}

TEST(HxRunLogTest, ALineOfTheLogEndsAValue) {
  const std::string run = "Action start 12:00:01: CustomAction34.\n";
  const auto values = [&](const std::string& log) {
    return ReadLog(LinesOf(run + log), "CustomAction34", false, "a.log").values;
  };
  for (const char* next : {"Property(S): B = 1\n", "MSI (s) (E0:64) [12:00:02:000]: text\nmore\n",
                           "Action ended 12:00:02: INSTALL. Return value 1.\nmore\n",
                           "=== Logging stopped: 11/22/2026 ===\nmore\n", "\n\n", ""}) {
    EXPECT_EQ(values(std::string("Property(S): A = x\ny\n") + next)["A"], "x\ny") << next;
  }
  // A change of which the log does not show the end.
  const std::string head = kHead;
  EXPECT_EQ(ReadLog(LinesOf(head + "PROPERTY CHANGE: Adding A property. Its value is 'x\n" + head +
                            "Another 'text'.\n" + run),
                    "CustomAction34", false, "a.log")
                .values,
            Properties{});
  EXPECT_EQ(ReadLog(LinesOf("Action start 12:00:01: CustomAction15.Server.\nProperty(S): "
                            "CustomAction15.Server = one\ntwo\n"),
                    "CustomAction15", true, "a.log")
                .data,
            "one\ntwo");
}

// A package can hide what an action calls and its data; then the log hides both.
TEST(HxRunLogTest, AnActionWithAHiddenTarget) {
  const std::string head = kHead;
  const std::string hidden = head +
                             "Executing op: CustomActionSchedule(Action=MoveAside,ActionType=11265,"
                             "Source=BinaryData,Target=**********,CustomActionData=**********)\n";
  const std::string call =
      head + "Invoking remote custom action. DLL: C:\\MSI2.tmp, Entrypoint: CustomAction15\n";
  const std::string list = "Property(S): CustomAction15.Other = of another action\n";
  const std::string give = "a.log hides the CustomActionData of CustomAction15: give it with --data.";
  EXPECT_EQ(MistakeIn(hidden + call, "CustomAction15", true), give);
  EXPECT_EQ(MistakeIn(hidden + call + list, "CustomAction15", true), give);
  EXPECT_EQ(
      MistakeIn(hidden, "CustomAction15", true),
      "a.log shows no run of CustomAction15, and hides what these actions call: MoveAside. Give the data "
      "with --data.");
  EXPECT_EQ(MistakeIn(hidden, "CustomAction34", false), "a.log has no run of CustomAction34.");
  // By its name, it is known.
  EXPECT_EQ(MistakeIn(hidden, "MoveAside", true),
            "a.log hides the CustomActionData of MoveAside: give it with --data.");
  // An action whose target is shown is taken.
  const std::string shown =
      head +
      "Executing op: CustomActionSchedule(Action=Move,ActionType=3073,Source=BinaryData,"
      "Target=CustomAction15,CustomActionData=x)\n";
  EXPECT_EQ(ReadLog(LinesOf(shown + hidden + call), "CustomAction15", true, "a.log").data, "x");
}

// A line of Microsoft's log in which an action with this name is scheduled.
std::string ScheduleOf(const std::string& name, const std::string& data) {
  return "MSI (s) (E0:64) [12:00:02:000]: Executing op: CustomActionSchedule(Action=" + name +
         ",ActionType=3073,Source=BinaryData,Target=CustomAction15,CustomActionData=" + data + ")\n";
}

// Whatever a message offers must work.
TEST(HxRunLogTest, WhatAMessageOffersIsAccepted) {
  LayDownHxRun();
  const std::wstring log = L"C:\\hxrun-given\\a.log";
  const std::wstring from = L"--dry-run --from-log " + log + L" ";
  const std::string path = "C:\\hxrun-given\\a.log";
  const auto data = [](const std::string& name) {
    return "hxsetup -m \"C:\\hxrun-given\\none\\.\" \"C:\\hxrun-given\\" + name + "\\.\"";
  };
  const auto moves = [](const std::string& name) {
    return std::vector<std::string>{"  would fail to move C:\\hxrun-given\\none to C:\\hxrun-given\\" + name +
                                    " (error 2)"};
  };
  const auto failing = [](const HxRun& run) {
    std::vector<std::string> lines;
    for (const std::string& line : run.Lines("  would fail")) lines.push_back("  would fail" + line);
    return lines;
  };
  const std::wstring given =
      L" --data \"hxsetup -m \\\"C:\\hxrun-given\\none\\.\\\" "
      L"\\\"C:\\hxrun-given\\three\\.\\\"\"";
  const std::string several =
      "hxrun: " + path + " has the data of more than one action with this entry point";

  // Names that the command line takes.
  WriteBytes(log,
             ScheduleOf("CustomAction15.One", data("one")) + ScheduleOf("CustomAction15.Two", data("two")));
  HxRun run = RunHxRun(from + L"CustomAction15");
  EXPECT_EQ(run.status, 2u);
  EXPECT_EQ(run.errors, several + ". Name one of them: CustomAction15.One, CustomAction15.Two.\n");
  EXPECT_EQ(failing(RunHxRun(from + L"CustomAction15.One")), moves("one"));
  EXPECT_EQ(failing(RunHxRun(from + L"CustomAction15.Two")), moves("two"));

  // Names that the package chose freely.
  WriteBytes(log, ScheduleOf("MoveAside", data("one")) + ScheduleOf("MoveBack", data("two")));
  run = RunHxRun(from + L"CustomAction15");
  EXPECT_EQ(run.status, 2u);
  EXPECT_EQ(run.errors, several + ": MoveAside, MoveBack. Give the data of one of them with --data.\n");
  EXPECT_EQ(failing(RunHxRun(from + L"CustomAction15" + given)), moves("three"));

  // Both.
  WriteBytes(log, ScheduleOf("MoveAside", data("one")) + ScheduleOf("CustomAction15.Two", data("two")));
  run = RunHxRun(from + L"CustomAction15");
  EXPECT_EQ(run.status, 2u);
  EXPECT_EQ(
      run.errors,
      several +
          ". Name one of them: CustomAction15.Two. For another, give the data with --data: MoveAside.\n");
  EXPECT_EQ(failing(RunHxRun(from + L"CustomAction15.Two")), moves("two"));
  EXPECT_EQ(failing(RunHxRun(from + L"CustomAction15" + given)), moves("three"));

  // Hidden data.
  WriteBytes(log, ScheduleOf("MoveAside", "**********"));
  run = RunHxRun(from + L"CustomAction15");
  EXPECT_EQ(run.status, 2u);
  EXPECT_EQ(run.errors,
            "hxrun: " + path + " hides the CustomActionData of CustomAction15: give it with --data.\n");
  EXPECT_EQ(failing(RunHxRun(from + L"CustomAction15" + given)), moves("three"));

  // A hidden target.
  WriteBytes(log,
             "MSI (s) (E0:64) [12:00:02:000]: Executing op: CustomActionSchedule(Action=MoveAside,"
             "ActionType=11265,Source=BinaryData,Target=**********,CustomActionData=**********)\n");
  run = RunHxRun(from + L"CustomAction15");
  EXPECT_EQ(run.status, 2u);
  EXPECT_EQ(run.errors,
            "hxrun: " + path +
                " shows no run of CustomAction15, and hides what these actions call: MoveAside. Give "
                "the data with --data.\n");
  EXPECT_EQ(failing(RunHxRun(from + L"CustomAction15" + given)), moves("three"));

  // Another product.
  WriteBytes(log,
             "MSI (s) (E0:64) [12:00:00:000]: PROPERTY CHANGE: Adding ProductCode property. Its value is "
             "'{A}'.\n" +
                 ScheduleOf("MoveAside", data("one")) +
                 "Property(S): ProductCode = {A}\n"
                 "=== Verbose logging started: 11/22/2026 ===\n"
                 "MSI (s) (E0:64) [12:00:00:000]: PROPERTY CHANGE: Adding ProductCode property. Its value is "
                 "'{B}'.\n" +
                 ScheduleOf("MoveAside", data("two")) + "Property(S): ProductCode = {B}\n");
  run = RunHxRun(from + L"CustomAction15");
  EXPECT_EQ(failing(run), moves("two"));
  EXPECT_EQ(
      run.Lines("note: "),
      std::vector<std::string>{path + " has 2 CustomActionSchedule lines of MoveAside; this is the last, in "
                                      "line 6, of the product {B}. ProductCode=CODE takes that of another: "
                                      "{A}, {B}"});
  EXPECT_EQ(failing(RunHxRun(from + L"CustomAction15 ProductCode={A}")), moves("one"));
  DeleteFolder(L"C:\\hxrun-given");
}

TEST(HxRunPropertiesTest, LinesOfNamesAndValues) {
  const std::string file = "# a comment\r\nDIR_SERVER=C:\\V\\\r\n\r\n; another\r\nEMPTY=\r\nA.B=x = y \r\n";
  for (const std::string& bytes : {file, AsUtf16(file)}) {
    EXPECT_EQ(hxrun::ReadProperties(LinesOf(bytes), "p.txt"),
              (Properties{{"DIR_SERVER", "C:\\V\\"}, {"EMPTY", ""}, {"A.B", "x = y "}}));
  }
  for (const char* wrong : {"A=b\nno assignment", "A=b\n=c", "A=b\nTWO WORDS=c"}) {
    EXPECT_THROW(
        {
          try {
            hxrun::ReadProperties(LinesOf(wrong), "p.txt");
          } catch (const UsageError& mistake) {
            EXPECT_STREQ(mistake.what(), "p.txt, line 2: a line must read NAME=VALUE.");
            throw;
          }
        },
        UsageError)
        << wrong;
  }
}

TEST(HxRunPropertiesTest, TheCommandLineComesBeforeTheFileAndTheFileBeforeTheLog) {
  LayDownHxRun();
  WriteBytes(L"C:\\hxrun-given\\p.txt", "DIR_SERVER=C:\\File\\\nDIR_UPG=File\n");
  const std::wstring file = L"--properties C:\\hxrun-given\\p.txt ";
  WriteBytes(L"C:\\hxrun-given\\b.log",
             "Action start 12:00:01: CustomAction20.\nProperty(S): DIR_SERVER = C:\\Log\\\n"
             "Property(S): DIR_UPG = Log\nProperty(S): DIR_UPG_DATA = Data\n");
  const HxRun run = RunHxRun(L"--from-log C:\\hxrun-given\\b.log " + file + L"CustomAction20 DIR_UPG=Line");
  EXPECT_EQ(run.status, 0u);
  EXPECT_EQ(
      run.Story(),
      "note: C:\\hxrun-given\\b.log does not say when properties changed: the values are those of its end\n"
      "set: DIR_EXSERVER = \"C:\\File\\\" (was not set)\n"
      "set: DIR_EXDATA = \"\" (was not set)\n"
      "set: DIR_UPG = \"C:\\Line\\\" (was \"Line\")\n"
      "set: DIR_UPG_DATA = \"C:\\Line\\Data\\\" (was \"Data\")\n"
      "set: DIR_UPG_HELPERDATA = \"C:\\Line\\Data\\\" (was not set)\n"
      "set: DIR_UPG_VRDF = \"C:\\Line\\Data\\\" (was not set)\n"
      "set: DIR_UPG_VRDF_PREFS = \"C:\\Line\\Data\\\" (was not set)\n"
      "returned 0: success\n");
  DeleteFolder(L"C:\\hxrun-given");
}

TEST(HxRunPropertiesTest, AHiddenValueThatTheActionReadsIsAskedFor) {
  LayDownHxRun();
  WriteBytes(L"C:\\hxrun-given\\b.log",
             "Action start 12:00:01: CustomAction6.\nAction start 12:00:02: CustomAction12.\n"
             "Property(S): PROP_TASKUSER = auditor\nProperty(S): PROP_TASKPASS = **********\n"
             "Property(S): OTHER = **********\n");
  const auto notes = [](const std::wstring& action) {
    return RunHxRun(L"--dry-run --from-log C:\\hxrun-given\\b.log " + action).Lines("note: ");
  };
  const std::string ofTheEnd =
      "C:\\hxrun-given\\b.log does not say when properties changed: the values are those of its end";
  EXPECT_EQ(notes(L"CustomAction6"),
            (std::vector<std::string>{
                ofTheEnd, "the log hides the value of PROP_TASKPASS: give it as PROP_TASKPASS=VALUE"}));
  EXPECT_EQ(notes(L"CustomAction6 PROP_TASKPASS=Secret-1"), std::vector<std::string>{ofTheEnd});
  EXPECT_EQ(notes(L"CustomAction12"), std::vector<std::string>{ofTheEnd});
  DeleteFolder(L"C:\\hxrun-given");
}

TEST(HxRunPropertiesTest, ADeferredActionSeesOnlyItsData) {
  LayDownHxRun();
  // With PROP_SILENCE=-1 the failure would send a notice.
  WriteBytes(L"C:\\hxrun-given\\b.log",
             "Action start 12:00:01: CustomAction15.\nProperty(S): PROP_SILENCE = -1\n"
             "Property(S): CustomAction15 = hxsetup -m \"C:\\hxrun-given\\none\\.\" "
             "\"C:\\hxrun-given\\x\\.\"\n");
  const HxRun run = RunHxRun(L"--yes --from-log C:\\hxrun-given\\b.log CustomAction15");
  EXPECT_EQ(run.status, 3u);
  EXPECT_EQ(
      run.Story(),
      "note: C:\\hxrun-given\\b.log does not say when properties changed: the values are those of its end\n"
      "returned 1603: ends the installation with an error\n");
  DeleteFolder(L"C:\\hxrun-given");
}

TEST(HxRunPropertiesTest, RollbackIsTheModeOfTheSession) {
  LayDownHxRun();
  // In a rollback CustomAction25 does nothing, and it says nothing.
  const std::wstring action = L"--dry-run CustomAction25 --data Users*C:\\hxrun-given";
  EXPECT_EQ(RunHxRun(action).Log().size(), 2u);
  const HxRun back = RunHxRun(L"--rollback " + action);
  EXPECT_EQ(back.Story(), "nothing would be changed\nreturned 0: success\n");
  EXPECT_NE(back.output.find(", deferred, in rollback, dry run: nothing is changed\n"), std::string::npos)
      << back.output;
}

// With these properties CustomAction23 would delete the account; in a rollback it does not see them.
TEST(HxRunPropertiesTest, ARollbackSeesOnlyItsData) {
  LayDownHxRun();
  WriteBytes(L"C:\\hxrun-given\\p.txt",
             "PROP_ACCOUNTTYPE=1\nPROP_ACCOUNTID=hxmeter\nPROP_ACCOUNTNAME=hxmeter\n");
  const HxRun back =
      RunHxRun(L"--dry-run --rollback --properties C:\\hxrun-given\\p.txt --data x CustomAction23");
  EXPECT_EQ(back.Story(), "nothing would be changed\nreturned 0: success\n");
  DeleteFolder(L"C:\\hxrun-given");
}

TEST(HxRunPropertiesTest, APropertyThatTheActionDoesNotReadIsNamed) {
  LayDownHxRun();
  WriteBytes(L"C:\\hxrun-given\\p.txt", "DIR_UPGR=x\nSOMETHING_ELSE=y\n");
  const HxRun run = RunHxRun(
      L"--properties C:\\hxrun-given\\p.txt CustomAction20 DIR_SERVR=C:\\V\\ dir_server=x OTHER=y "
      L"ProductCode={1}");
  EXPECT_EQ(run.Lines("note: "),
            (std::vector<std::string>{"CustomAction20 does not read DIR_SERVR. Did you mean DIR_SERVER?",
                                      "CustomAction20 does not read dir_server. Did you mean DIR_SERVER?",
                                      "CustomAction20 does not read OTHER.",
                                      "CustomAction20 does not read DIR_UPGR. Did you mean DIR_UPG?"}));
  DeleteFolder(L"C:\\hxrun-given");
}

}  // namespace
}  // namespace hxrun_test
