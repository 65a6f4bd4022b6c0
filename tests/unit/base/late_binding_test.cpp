// Functions bound by name: the rules of finding a module, the cache, the error mode.

#include "base/late_binding.h"

#include "rig/action_test.h"
#include "rig/internals.h"

namespace late_binding_test {

HX_INTERNAL(BindKept);
HX_INTERNAL(BindLate);
HX_INTERNAL(LoadLate);

class LateBindingTest : public rig::RiggedInternalsTest {};

LateEntry Entry(const char* module, const char* name, BindingRule rule) {
  return {module, name, rule, nullptr, false};
}

TEST_F(LateBindingTest, AFunctionOfALoadedModuleIsFoundWithoutLoading) {
  for (BindingRule rule : {BindingRule::kAlreadyLoaded, BindingRule::kAlreadyLoadedOnce}) {
    TheRig().trace.Clear();
    LateEntry entry = Entry("KERNEL32", "GetVersion", rule);
    FARPROC function = BindLate(&entry);
    EXPECT_NE(function, nullptr);
    EXPECT_EQ(entry.function, function);
    EXPECT_TRACE({
        "SetErrorMode(0x8001) = 16384",
        R"(GetModuleHandleA("KERNEL32") = KERNEL32)",
        R"(GetProcAddress(KERNEL32, "GetVersion") = *)",
        "SetErrorMode(0x4000) = 32769",
    });
  }
}

TEST_F(LateBindingTest, AModuleThatIsNotLoadedIsNotLoadedWhereTheRuleSaysSo) {
  LateEntry kept = Entry("OLE32", "CoInitializeEx", BindingRule::kAlreadyLoaded);
  EXPECT_EQ(BindLate(&kept), nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleA("OLE32") = null)",
      "SetErrorMode(0x4000) = 32769",
  });
}

TEST_F(LateBindingTest, ABoundFunctionIsNotLookedUpAgain) {
  LateEntry entry = Entry("KERNEL32", "GetVersion", BindingRule::kAlreadyLoaded);
  FARPROC function = BindLate(&entry);
  TheRig().trace.Clear();
  EXPECT_EQ(BindLate(&entry), function);
  EXPECT_TRACE({});
}

TEST_F(LateBindingTest, AMissingFunctionIsNullAndLookedForAgain) {
  TheModules().MissingFunction("KERNEL32", "GetVersion");
  LateEntry entry = Entry("KERNEL32", "GetVersion", BindingRule::kAlreadyLoaded);
  EXPECT_EQ(BindLate(&entry), nullptr);
  size_t calls = TheRig().trace.Lines().size();
  EXPECT_EQ(BindLate(&entry), nullptr);
  EXPECT_EQ(TheRig().trace.Lines().size(), 2 * calls);
}

TEST_F(LateBindingTest, AMissingModuleIsNull) {
  TheModules().Missing("OLE32");
  for (BindingRule rule : {BindingRule::kAlreadyLoaded, BindingRule::kLoadOnce}) {
    LateEntry entry = Entry("OLE32", "CoInitializeEx", rule);
    EXPECT_EQ(BindLate(&entry), nullptr);
  }
}

TEST_F(LateBindingTest, AFunctionIsLookedForOnceWhereTheRuleSaysSo) {
  TheModules().MissingFunction("KERNEL32", "GetVersion");
  LateEntry entry = Entry("KERNEL32", "GetVersion", BindingRule::kAlreadyLoadedOnce);
  EXPECT_EQ(BindLate(&entry), nullptr);
  EXPECT_EQ(BindLate(&entry), nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleA("KERNEL32") = KERNEL32)",
      R"(GetProcAddress(KERNEL32, "GetVersion") = null)",
      "SetErrorMode(0x4000) = 32769",
  });
  TheRig().trace.Clear();
  LateEntry notLoaded = Entry("OLE32", "CoInitializeEx", BindingRule::kAlreadyLoadedOnce);
  EXPECT_EQ(BindLate(&notLoaded), nullptr);
  EXPECT_EQ(BindLate(&notLoaded), nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleA("OLE32") = null)",
      "SetErrorMode(0x4000) = 32769",
  });
}

TEST_F(LateBindingTest, AModuleThatIsLoadedOnceStaysForItsFunction) {
  LateEntry entry = Entry("OLE32", "CoInitializeEx", BindingRule::kLoadOnce);
  FARPROC function = BindLate(&entry);
  EXPECT_NE(function, nullptr);
  EXPECT_EQ(BindLate(&entry), function);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(LoadLibraryA("OLE32") = OLE32)",
      "SetErrorMode(0x4000) = 32769",
      R"(GetProcAddress(OLE32, "CoInitializeEx") = *)",
  });
  // Kept for the life of the process.
  TheRig().ledger.Deliberate(rig::kModule, "OLE32");
}

TEST_F(LateBindingTest, AModuleThatIsLoadedOnceIsFreedWithoutItsFunction) {
  TheModules().MissingFunction("OLE32", "CoInitializeEx");
  LateEntry entry = Entry("OLE32", "CoInitializeEx", BindingRule::kLoadOnce);
  EXPECT_EQ(BindLate(&entry), nullptr);
  EXPECT_EQ(BindLate(&entry), nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(LoadLibraryA("OLE32") = OLE32)",
      "SetErrorMode(0x4000) = 32769",
      R"(GetProcAddress(OLE32, "CoInitializeEx") = null)",
      "FreeLibrary(OLE32) = 1",
  });
}

TEST_F(LateBindingTest, AModuleThatCannotBeLoadedIsTriedOnce) {
  TheModules().Missing("OLE32");
  LateEntry entry = Entry("OLE32", "CoInitializeEx", BindingRule::kLoadOnce);
  EXPECT_EQ(BindLate(&entry), nullptr);
  EXPECT_EQ(BindLate(&entry), nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(LoadLibraryA("OLE32") = null)",
      "SetErrorMode(0x4000) = 32769",
  });
}

TEST_F(LateBindingTest, LoadingForOneJobHandsTheModuleOver) {
  HMODULE module = LoadLate("SHLWAPI.DLL");
  EXPECT_NE(module, nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(LoadLibraryA("SHLWAPI.DLL") = SHLWAPI)",
      "SetErrorMode(0x4000) = 32769",
  });
  TheRig().ledger.Deliberate(rig::kModule);
}

// ---- functions of a module that is kept with them

class KeptBindingTest : public rig::RiggedInternalsTest {
 protected:
  FARPROC Bind(const char* name, FARPROC* function) { return BindKept(&module_, name, function); }
  KeptModule module_ = {L"NETAPI32", nullptr};
  FARPROC first_ = nullptr;
  FARPROC second_ = nullptr;
};

TEST_F(KeptBindingTest, AModuleThatIsThereIsNotLoaded) {
  TheModules().Loaded("NETAPI32");
  EXPECT_NE(Bind("NetUserAdd", &first_), nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleW("NETAPI32") = NETAPI32)",
      R"(GetProcAddress(NETAPI32, "NetUserAdd") = *)",
      "SetErrorMode(0x4000) = 32769",
  });
}

TEST_F(KeptBindingTest, AModuleThatIsNotThereIsLoadedOnceForAllItsFunctions) {
  FARPROC found = Bind("NetUserAdd", &first_);
  EXPECT_NE(found, nullptr);
  EXPECT_EQ(first_, found);
  EXPECT_NE(module_.handle, nullptr);
  EXPECT_NE(Bind("NetUserDel", &second_), nullptr);
  EXPECT_NE(first_, second_);
  EXPECT_EQ(Bind("NetUserAdd", &first_), found);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleW("NETAPI32") = null)",
      R"(LoadLibraryW("NETAPI32") = NETAPI32)",
      R"(GetProcAddress(NETAPI32, "NetUserAdd") = *)",
      "SetErrorMode(0x4000) = 32769",
      "SetErrorMode(0x8001) = 16384",
      R"(GetProcAddress(NETAPI32, "NetUserDel") = *)",
      "SetErrorMode(0x4000) = 32769",
  });
  // Kept for the life of the process.
  TheRig().ledger.Deliberate(rig::kModule, "NETAPI32");
}

TEST_F(KeptBindingTest, AMissingModuleIsLookedForAgain) {
  TheModules().Missing("NETAPI32");
  for (int time = 0; time < 2; ++time) {
    TheRig().trace.Clear();
    EXPECT_EQ(Bind("NetUserAdd", &first_), nullptr);
    EXPECT_EQ(first_, nullptr);
    EXPECT_EQ(module_.handle, nullptr);
    EXPECT_TRACE({
        "SetErrorMode(0x8001) = 16384",
        R"(GetModuleHandleW("NETAPI32") = null)",
        R"(LoadLibraryW("NETAPI32") = null)",
        "SetErrorMode(0x4000) = 32769",
    });
  }
}

TEST_F(KeptBindingTest, AMissingFunctionIsLookedForAgainInTheModuleThatIsKept) {
  TheModules().MissingFunction("NETAPI32", "NetUserAdd");
  EXPECT_EQ(Bind("NetUserAdd", &first_), nullptr);
  EXPECT_NE(module_.handle, nullptr);
  TheRig().trace.Clear();
  EXPECT_EQ(Bind("NetUserAdd", &first_), nullptr);
  EXPECT_EQ(first_, nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetProcAddress(NETAPI32, "NetUserAdd") = null)",
      "SetErrorMode(0x4000) = 32769",
  });
  EXPECT_NE(Bind("NetUserDel", &second_), nullptr);
  TheRig().ledger.Deliberate(rig::kModule, "NETAPI32");
}

// The templates are compiled into their callers, here into the test: what they call is the library's (below).

class LateFunctionTest : public rig::RiggedInternalsTest {
 protected:
  LateFunction<decltype(GetVersion)> version_{"KERNEL32", "GetVersion", BindingRule::kAlreadyLoaded, 77};
};

TEST_F(LateFunctionTest, CallsTheFunctionThatWasFound) {
  EXPECT_TRUE(version_.IsAvailable());
  EXPECT_EQ(version_(), TheWorld().clock.version);
}

TEST_F(LateFunctionTest, YieldsItsDeclaredValueWhereTheFunctionIsMissing) {
  TheModules().MissingFunction("KERNEL32", "GetVersion");
  EXPECT_FALSE(version_.IsAvailable());
  EXPECT_EQ(version_(), 77u);
}

class KeptFunctionTest : public rig::RiggedInternalsTest {
 protected:
  KeptModule kernel_ = {L"KERNEL32", nullptr};
  KeptFunction<decltype(GetVersion)> version_{&kernel_, "GetVersion", 77};
};

TEST_F(KeptFunctionTest, CallsTheFunctionThatWasFound) {
  EXPECT_EQ(version_(), TheWorld().clock.version);
  EXPECT_EQ(version_(), TheWorld().clock.version);
  size_t found = 0;
  for (const std::string& line : TheRig().trace.Lines()) {
    found += line.rfind("GetProcAddress", 0) == 0 ? 1 : 0;
  }
  EXPECT_EQ(found, 1u);
}

TEST_F(KeptFunctionTest, YieldsItsDeclaredValueWhereTheFunctionIsMissing) {
  TheModules().MissingFunction("KERNEL32", "GetVersion");
  EXPECT_EQ(version_(), 77u);
}

}  // namespace late_binding_test

extern "C" FARPROC BindKept(KeptModule* module, const char* name, FARPROC* function) {
  return late_binding_test::BindKept(module, name, function);
}

extern "C" FARPROC BindLate(LateEntry* entry) {
  return late_binding_test::BindLate(entry);
}
