// The rig's own tests: declarations, trace, world, and the ledger of everything except the heap.
#include <cstring>

#include "unit/rig/rig_subject.h"

namespace rig_test {

using rig::GuardedBuffer;
using rig::View;

constexpr char kKey[] = "HKEY_CURRENT_USER\\Software\\Subject";

// ---- The library.

TEST_F(RigTest, EveryTestGetsAFreshLibrary) {
  EXPECT_EQ(SubjectCount(), 1);
}
TEST_F(RigTest, EveryTestReallyGetsAFreshLibrary) {
  EXPECT_EQ(SubjectCount(), 1);
}

TEST_F(RigTest, VariadicOperationsCanBeCalled) {
  EXPECT_EQ(SubjectSum(3, 1, 20, 300), 321);
}

TEST_F(RigTest, TheEntryCanBeCalledAgain) {
  EXPECT_EQ(TheLibrary().CallEntry(DLL_PROCESS_ATTACH), TRUE);
  EXPECT_EQ(TheLibrary().CallEntry(DLL_PROCESS_DETACH), TRUE);
  EXPECT_TRUE(Has(TheRig().trace.Lines().at(0), "DisableThreadLibraryCalls("));
  EXPECT_EQ(TheRig().trace.Lines().size(), 1U);
}

TEST_F(RigTest, AMissingEntryPointFails) {
  EXPECT_TRUE(Has(Reported([&] { Run(99); }), "rigsubject.dll does not export CustomAction99"));
}

TEST_F(RigTest, AMissingInternalThrows) {
  rig::Internal<void (*)()> missing("SubjectMissing");
  EXPECT_THROW(missing(), std::runtime_error);
}

TEST_F(RigTest, AnUndeclaredImportFails) {
  rig::declarations::Hidden hidden("RegDeleteKeyA");
  EXPECT_TRUE(Has(Reported([&] { TheRig().Attach(TheLibrary()); }), "ADVAPI32.dll!RegDeleteKeyA"));
}

TEST_F(RigTest, AnUndeclaredImportByNumberFails) {
  rig::declarations::Hidden hidden("MsiCreateRecord");
  EXPECT_TRUE(Has(Reported([&] { TheRig().Attach(TheLibrary()); }), "msi.dll!#17"));
}

// ---- Answers and the trace.

TEST_F(RigTest, AnUnansweredCallFails) {
  std::string text = Reported([] { SubjectStray(); });
  EXPECT_TRUE(
      Has(text, "unexpected call (neither the test nor the world answers KERNEL32!GetModuleFileNameW)"));
  EXPECT_TRUE(Has(text, "GetModuleFileNameW(null, *, 260)"));
}

TEST_F(RigTest, TheTestAnswersACall) {
  TheRig().On<::GetModuleFileNameW>([](HMODULE, wchar_t*, DWORD size) { return size + 1; });
  EXPECT_EQ(SubjectStray(), 261U);
}

TEST_F(RigTest, TheRealFunctionAnswersACall) {
  TheWorld().UseReal("GetModuleFileNameW");
  EXPECT_GT(SubjectStray(), 3U);
}

TEST_F(RigRealTest, TheRealFunctionAnswersWhatNobodyElseDoes) {
  EXPECT_EQ(SubjectVersion(), GetVersion());
  TheRig().On<::GetVersion>([] { return DWORD{6}; });
  EXPECT_EQ(SubjectVersion(), 6U);
}

TEST_F(RigTest, AnAnswerEndsWithItsTest) {
  EXPECT_EQ(SubjectVersion(), TheWorld().clock.version);
}

TEST_F(RigTest, TheTraceHoldsCallsInOrder) {
  TheRegistry().SetText(kKey, "value", "v\xC3\xA4lue\n");
  EXPECT_EQ(SubjectAction(TheRig().session, kSubjectSound), 0U);
  EXPECT_TRACE({
      "RegOpenKeyExA(HKEY_CURRENT_USER, \"Software\\\\Subject\", 0, 0x1, *) = 0",
      "RegQueryValueExA(key#1, \"value\", null, null, *, *) = 0",
      "RegCloseKey(key#1) = 0",
      "MsiSetPropertyA(session, \"PROP_SUBJECT\", \"v\xE4lue\\n\") = 0",
  });
}

TEST_F(RigTest, QuietFunctionsCanBeMadeLoud) {
  TheRig().MakeLoud("HeapAlloc");
  SubjectFree(SubjectLeak(70000));
  EXPECT_TRACE({"HeapAlloc(*, 8, 0x11170) = block#1"});
}

TEST_F(RigTest, ADifferentTraceFailsWithTheDifference) {
  Run(1);
  std::string text = Reported([] { EXPECT_TRACE({"MsiCreateRecord(2) = record#1"}); });
  EXPECT_TRUE(Has(text, "\n- MsiCreateRecord(2) = record#1"));
  EXPECT_TRUE(Has(text, "\n+ RegOpenKeyExA("));
}

TEST(RigTrace, EqualLinesStayTogetherInTheDifference) {
  EXPECT_EQ(rig::DescribeDifference({"a", "b", "c"}, {"a", "x", "c"}), "\n  a\n- b\n+ x\n  c");
  EXPECT_EQ(rig::DescribeDifference({"a"}, {"a"}), "");
}

// ---- The installer.

TEST_F(RigTest, PropertiesAreReadByTheInstallersRule) {
  Installer().Set("NAME", "12345");
  char buffer[8];
  DWORD count = 6;
  EXPECT_EQ(SubjectGetPropertyA(TheRig().session, "NAME", buffer, &count), 0U);
  EXPECT_STREQ(buffer, "12345");
  EXPECT_EQ(count, 5U);
  count = 5;
  EXPECT_EQ(SubjectGetPropertyA(TheRig().session, "NAME", buffer, &count), UINT{ERROR_MORE_DATA});
  EXPECT_STREQ(buffer, "1234");
  EXPECT_EQ(count, 5U);
  wchar_t wide[8];
  count = 8;
  EXPECT_EQ(SubjectGetPropertyW(TheRig().session, L"UNSET", wide, &count), 0U);
  EXPECT_STREQ(wide, L"");
  EXPECT_EQ(count, 0U);
  count = 0;
  EXPECT_EQ(SubjectGetPropertyW(TheRig().session, L"NAME", wide, &count), UINT{ERROR_MORE_DATA});
  EXPECT_EQ(count, 5U);
}

TEST_F(RigTest, EightBitPropertiesPassThroughTheCodePage) {
  Installer().Set("NAME", "\xC3\xA4");
  char buffer[8];
  DWORD count = sizeof buffer;
  SubjectGetPropertyA(TheRig().session, "NAME", buffer, &count);
  EXPECT_STREQ(buffer, "\xE4");
  Installer().codePage = CP_UTF8;
  count = sizeof buffer;
  SubjectGetPropertyA(TheRig().session, "NAME", buffer, &count);
  EXPECT_STREQ(buffer, "\xC3\xA4");
  EXPECT_EQ(count, 2U);
  SubjectSetPropertyA(TheRig().session, "OTHER", buffer);
  EXPECT_PUBLISHED({"OTHER = \xC3\xA4"});
}

TEST_F(RigTest, PropertiesCanFail) {
  Installer().FailReading("NAME");
  Installer().FailSetting("NAME", ERROR_INVALID_HANDLE);
  char buffer[8];
  DWORD count = sizeof buffer;
  EXPECT_EQ(SubjectGetPropertyA(TheRig().session, "NAME", buffer, &count), UINT{ERROR_FUNCTION_FAILED});
  EXPECT_EQ(SubjectSetPropertyA(TheRig().session, "NAME", "x"), UINT{ERROR_INVALID_HANDLE});
  EXPECT_PUBLISHED({});
}

TEST_F(RigTest, AWrongSessionIsFound) {
  EXPECT_TRUE(
      Has(Reported([] { SubjectSetPropertyA(1, "NAME", "x"); }), "is given 1 instead of the session"));
}

TEST_F(RigTest, MessagesBecomeLogLines) {
  SubjectSend(TheRig().session, INSTALLMESSAGE_INFO, "Hx Setup Log: [1]", "a [2] b");
  SubjectSend(TheRig().session, INSTALLMESSAGE_WARNING, "[1], [2] and [3", "x");
  EXPECT_LOG({"Hx Setup Log: a [2] b"});
  ASSERT_EQ(Installer().Messages().size(), 2U);
  EXPECT_EQ(Installer().Messages()[1].type, 0x02000000U);
  EXPECT_EQ(Installer().Messages()[1].text, "x,  and [3");
  EXPECT_EQ(Installer().Messages()[1].fields[1], "x");
  EXPECT_EQ(TheRig().trace.Lines()[3], "MsiProcessMessage(session, 0x4000000, record#1) = 1");
}

TEST_F(RigTest, RecordsCanBeRefused) {
  Installer().refusesRecords = true;
  EXPECT_EQ(SubjectSend(TheRig().session, INSTALLMESSAGE_INFO, "a", "b"), -2);
}

TEST_F(RigTest, AKeptRecordIsFound) {
  SubjectKeepRecord();
  EXPECT_TRUE(Has(EndOfAction(), "record#1 was not released"));
}

TEST_F(RigTest, BoxesAreNoted) {
  EXPECT_EQ(SubjectBox("text", "title"), IDOK);
  ASSERT_EQ(TheWorld().desktop.boxes.size(), 1U);
  EXPECT_EQ(TheWorld().desktop.boxes[0], (rig::Desktop::Box{"text", "title", MB_OK}));
}

// ---- The registry.

TEST_F(RigTest, KeysMustBeClosedOnce) {
  TheRegistry().Create(kKey);
  EXPECT_EQ(SubjectKey(1, FALSE), 0);
  EXPECT_EQ(EndOfAction(), "");
  SubjectKey(0, FALSE);
  EXPECT_TRUE(Has(EndOfAction(), "key#2 was not released, taken at rigsubject.dll+0x"));
  EXPECT_TRUE(Has(Reported([] { SubjectKey(2, FALSE); }), "RegCloseKey releases a key"));
  EXPECT_TRUE(Has(Reported([] { SubjectCloseLeftover(); }), "RegCloseKey releases a key (0xbadbad0)"));
  EXPECT_TRUE(Has(Reported([] { SubjectKey(1, TRUE); }), "RegQueryValueExA is given a key"));
}

TEST_F(RigTest, ValuesAreReadByTheRegistrysRule) {
  TheRegistry().SetText(kKey, "Name", "12345");
  TheRegistry().SetNumber(kKey, "Number", 7);
  GuardedBuffer data(6);
  DWORD type = 0;
  DWORD size = 6;
  auto read = [&](const char* name) {
    return SubjectReadValue(HKEY_CURRENT_USER, "software\\SUBJECT", KEY_QUERY_VALUE, name, &type,
                            data.As<BYTE>(), &size);
  };
  EXPECT_EQ(read("NAME"), 0);
  EXPECT_STREQ(data.Data(), "12345");
  EXPECT_EQ(size, 6U);
  EXPECT_EQ(type, DWORD{REG_SZ});
  size = 5;
  EXPECT_EQ(read("name"), ERROR_MORE_DATA);
  EXPECT_EQ(size, 6U);
  EXPECT_EQ(read("number"), 0);
  EXPECT_EQ(size, 4U);
  EXPECT_EQ(type, DWORD{REG_DWORD});
  EXPECT_EQ(*data.As<DWORD>(), 7U);
  EXPECT_EQ(read("other"), ERROR_FILE_NOT_FOUND);
}

TEST_F(RigTest, ExactBytesStayExact) {
  TheRegistry().SetBytes(kKey, "value", REG_SZ, "ab");
  GuardedBuffer data(3);
  DWORD size = 3;
  EXPECT_EQ(SubjectReadValue(HKEY_CURRENT_USER, "Software\\Subject", KEY_QUERY_VALUE, "value", nullptr,
                             data.As<BYTE>(), &size),
            0);
  EXPECT_EQ(size, 2U);
  EXPECT_EQ(std::string(data.Data(), 2), "ab");
  EXPECT_EQ(static_cast<unsigned char>(data.Data()[2]), rig::GuardedHeap::kRubbish);
}

TEST_F(RigTest, TheViewsOfSoftwareAreSeparate) {
  TheRegistry().Create("HKEY_LOCAL_MACHINE\\SOFTWARE\\Subject", View::k32);
  auto write = [](REGSAM view) {
    return SubjectWriteValue(HKEY_LOCAL_MACHINE, "SOFTWARE\\Subject", KEY_SET_VALUE | view, "v", REG_SZ,
                             reinterpret_cast<const BYTE*>("x\xE4"), 3);
  };
  EXPECT_EQ(write(0), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(write(KEY_WOW64_64KEY), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(write(KEY_WOW64_32KEY), 0);
  EXPECT_EQ(TheRegistry().Bytes("HKEY_LOCAL_MACHINE\\Software\\Subject", "v", View::k32),
            std::string("x\xC3\xA4\0", 4));
  EXPECT_FALSE(TheRegistry().Exists("HKEY_LOCAL_MACHINE\\Software\\Subject"));
  EXPECT_EQ(TheRig().trace.Lines().at(3), "RegSetValueExA(key#1, \"v\", 0, 1, \"x\xE4\\0\", 3) = 0");
}

TEST_F(RigTest, KeysCanBeDenied) {
  TheRegistry().Create(kKey);
  TheRegistry().Deny(kKey);
  EXPECT_EQ(SubjectKey(0, FALSE), ERROR_ACCESS_DENIED);
  EXPECT_EQ(SubjectDeleteKey(HKEY_CURRENT_USER, "Software\\Subject"), ERROR_ACCESS_DENIED);
}

TEST_F(RigTest, AccessIsNeeded) {
  TheRegistry().Create(kKey);
  EXPECT_EQ(
      SubjectWriteValue(HKEY_CURRENT_USER, "Software\\Subject", KEY_QUERY_VALUE, "v", REG_SZ, nullptr, 0),
      ERROR_ACCESS_DENIED);
}

TEST_F(RigTest, OnlyKeysWithoutSubkeysAreDeleted) {
  TheRegistry().SetText("HKEY_CURRENT_USER\\Software\\Subject\\options", "a", "b");
  EXPECT_EQ(SubjectDeleteKey(HKEY_CURRENT_USER, "Software\\Subject"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(SubjectDeleteKey(HKEY_CURRENT_USER, "Software\\Subject\\options"), 0);
  EXPECT_EQ(SubjectDeleteKey(HKEY_CURRENT_USER, "Software\\Subject"), 0);
  EXPECT_EQ(SubjectDeleteKey(HKEY_CURRENT_USER, "Software\\Subject"), ERROR_FILE_NOT_FOUND);
}

// ---- Modules and functions found by name.

TEST_F(RigTest, ADeclaredFunctionIsFoundByName) {
  TheRig().On<::GetSystemWindowsDirectoryW>([](wchar_t*, UINT size) { return size * 2; });
  EXPECT_EQ(SubjectWindowsDirectory(nullptr, 21), 42U);
  EXPECT_TRACE({
      "GetModuleHandleA(\"KERNEL32\") = KERNEL32",
      "GetProcAddress(KERNEL32, \"GetSystemWindowsDirectoryW\") = *",
      "GetSystemWindowsDirectoryW(null, 21) = 42",
  });
}

TEST_F(RigTest, AFunctionCanBeMissing) {
  TheModules().MissingFunction("KERNEL32.dll", "GetSystemWindowsDirectoryW");
  EXPECT_EQ(SubjectWindowsDirectory(nullptr, 21), ~0U);
}

TEST_F(RigTest, AModuleCanBeMissing) {
  TheModules().Missing("shlwapi");
  EXPECT_EQ(SubjectDeleteTree("Software", FALSE), 1);
}

TEST_F(RigTest, AnAbsentFunctionMustBeProvided) {
  TheRegistry().SetText("HKEY_CURRENT_USER\\Software\\Subject\\options", "a", "b");
  EXPECT_EQ(SubjectDeleteTree("Software\\Subject", FALSE), 2);
  TheModules().Provide("SHLWAPI", "SHDeleteKey");
  EXPECT_EQ(SubjectDeleteTree("Software\\Subject", FALSE), 0);
  EXPECT_FALSE(TheRegistry().Exists(kKey));
  EXPECT_EQ(TheRig().trace.Lines().at(5), "SHDeleteKey(HKEY_CURRENT_USER, \"Software\\\\Subject\") = 0");
}

TEST_F(RigTest, AKeptModuleIsFound) {
  SubjectDeleteTree("Software\\Subject", TRUE);
  EXPECT_TRUE(Has(EndOfAction(), "SHLWAPI was not released"));
  TheRig().ledger.Deliberate(rig::kModule, "SHLWAPI");
  SubjectDeleteTree("Software\\Subject", TRUE);
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigTest, AnUndeclaredFunctionFails) {
  EXPECT_TRUE(Has(Reported([] { SubjectFindUnknown(); }), "KERNEL32!SubjectUnknown, which no line"));
}

TEST_F(RigTest, TheErrorModeMustBeRestored) {
  SubjectErrorMode(TRUE);
  EXPECT_EQ(EndOfAction(), "");
  SubjectErrorMode(FALSE);
  EXPECT_TRUE(Has(EndOfAction(), "the error mode of the process was not restored: it is 0x1"));
  TheWorld().errorMode.mode = 0x4000;
}

// ---- Profile files and the clock.

TEST_F(RigTest, ProfileFilesAreReadByTheirRule) {
  Profile().Set("ostrel.ini", "options", "registry", " 12x");
  Profile().Set("ostrel.ini", "options", "site", " \"a b\" ");
  EXPECT_EQ(SubjectProfileInt("OPTIONS", "Registry", 5, "OSTREL.INI"), 12U);
  EXPECT_EQ(SubjectProfileInt("options", "other", 5, "ostrel.ini"), 5U);
  GuardedBuffer buffer(4);
  EXPECT_EQ(SubjectProfileString("options", "site", "", buffer.Data(), 4, "ostrel.ini"), 3U);
  EXPECT_STREQ(buffer.Data(), "a b");
  EXPECT_EQ(SubjectProfileString("options", "site", "", buffer.Data(), 3, "ostrel.ini"), 2U);
  EXPECT_STREQ(buffer.Data(), "a ");
  EXPECT_EQ(SubjectProfileString("options", "other", "zz", buffer.Data(), 4, "ostrel.ini"), 2U);
}

TEST_F(RigTest, TheClockStandsStill) {
  EXPECT_EQ(SubjectTicks(), 1000000U);
  TheWorld().clock.ticks = 7;
  EXPECT_EQ(SubjectTicks(), 7U);
}

}  // namespace rig_test
