// Functions bound by name: the rules of finding a module, the cache, the error mode.

#include "base/late_binding.h"

#include "rig/action_test.h"
#include "rig/internals.h"

namespace late_binding_test {

HX_INTERNAL(BindLate);
HX_INTERNAL(LoadLate);

class LateBindingTest : public rig::RiggedInternalsTest {};

TEST_F(LateBindingTest, AFunctionOfALoadedModuleIsFoundWithoutLoading) {
  for (LateRule rule : {LateRule::kLoaded, LateRule::kLoadedOnce}) {
    TheRig().trace.Clear();
    LateModule kernel("KERNEL32", rule);
    LateEntry entry(&kernel, "GetVersion");
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

TEST_F(LateBindingTest, AModuleThatIsNotLoadedIsNotLoadedIfTheRuleSaysSo) {
  LateModule ole("OLE32", LateRule::kLoaded);
  LateEntry entry(&ole, "CoInitializeEx");
  EXPECT_EQ(BindLate(&entry), nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleA("OLE32") = null)",
      "SetErrorMode(0x4000) = 32769",
  });
}

TEST_F(LateBindingTest, ABoundFunctionIsNotLookedUpAgain) {
  LateModule kernel("KERNEL32", LateRule::kLoaded);
  LateEntry entry(&kernel, "GetVersion");
  FARPROC function = BindLate(&entry);
  TheRig().trace.Clear();
  EXPECT_EQ(BindLate(&entry), function);
  EXPECT_TRACE({});
}

TEST_F(LateBindingTest, AMissingFunctionIsNullAndLookedUpAgain) {
  TheModules().MissingFunction("KERNEL32", "GetVersion");
  LateModule kernel("KERNEL32", LateRule::kLoaded);
  LateEntry entry(&kernel, "GetVersion");
  EXPECT_EQ(BindLate(&entry), nullptr);
  size_t calls = TheRig().trace.Lines().size();
  EXPECT_EQ(BindLate(&entry), nullptr);
  EXPECT_EQ(TheRig().trace.Lines().size(), 2 * calls);
}

TEST_F(LateBindingTest, AMissingModuleIsNull) {
  TheModules().Missing("OLE32");
  for (LateRule rule : {LateRule::kLoaded, LateRule::kLoadOnce}) {
    LateModule ole("OLE32", rule);
    LateEntry entry(&ole, "CoInitializeEx");
    EXPECT_EQ(BindLate(&entry), nullptr);
  }
}

TEST_F(LateBindingTest, AFunctionIsLookedUpOnceIfTheRuleSaysSo) {
  TheModules().MissingFunction("KERNEL32", "GetVersion");
  LateModule kernel("KERNEL32", LateRule::kLoadedOnce);
  LateEntry entry(&kernel, "GetVersion");
  EXPECT_EQ(BindLate(&entry), nullptr);
  EXPECT_EQ(BindLate(&entry), nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleA("KERNEL32") = KERNEL32)",
      R"(GetProcAddress(KERNEL32, "GetVersion") = null)",
      "SetErrorMode(0x4000) = 32769",
  });
  TheRig().trace.Clear();
  LateModule ole("OLE32", LateRule::kLoadedOnce);
  LateEntry notLoaded(&ole, "CoInitializeEx");
  EXPECT_EQ(BindLate(&notLoaded), nullptr);
  EXPECT_EQ(BindLate(&notLoaded), nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleA("OLE32") = null)",
      "SetErrorMode(0x4000) = 32769",
  });
}

TEST_F(LateBindingTest, AModuleThatIsLoadedOnceStaysForItsFunction) {
  LateModule ole("OLE32", LateRule::kLoadOnce);
  LateEntry entry(&ole, "CoInitializeEx");
  FARPROC function = BindLate(&entry);
  EXPECT_NE(function, nullptr);
  EXPECT_EQ(BindLate(&entry), function);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(LoadLibraryA("OLE32") = OLE32)",
      "SetErrorMode(0x4000) = 32769",
      R"(GetProcAddress(OLE32, "CoInitializeEx") = *)",
  });
  // Kept until the process ends.
  TheRig().ledger.Deliberate(rig::kModule, "OLE32");
}

TEST_F(LateBindingTest, AModuleThatIsLoadedOnceIsFreedWithoutItsFunction) {
  TheModules().MissingFunction("OLE32", "CoInitializeEx");
  LateModule ole("OLE32", LateRule::kLoadOnce);
  LateEntry entry(&ole, "CoInitializeEx");
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
  LateModule ole("OLE32", LateRule::kLoadOnce);
  LateEntry entry(&ole, "CoInitializeEx");
  EXPECT_EQ(BindLate(&entry), nullptr);
  EXPECT_EQ(BindLate(&entry), nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(LoadLibraryA("OLE32") = null)",
      "SetErrorMode(0x4000) = 32769",
  });
}

TEST_F(LateBindingTest, AModuleForOneJobBelongsToTheCaller) {
  HMODULE module = LoadLate("SHLWAPI.DLL");
  EXPECT_NE(module, nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(LoadLibraryA("SHLWAPI.DLL") = SHLWAPI)",
      "SetErrorMode(0x4000) = 32769",
  });
  TheRig().ledger.Deliberate(rig::kModule);
}

TEST_F(LateBindingTest, AFunctionIsFoundInAModuleThatTheCallerHolds) {
  EXPECT_EQ(FindFunction<decltype(GetVersion)>(nullptr, "GetVersion"), nullptr);
  const HMODULE module = GetModuleHandleA("KERNEL32");
  EXPECT_NE(module, nullptr);
  EXPECT_NE(FindFunction<decltype(GetVersion)>(module, "GetVersion"), nullptr);
  EXPECT_EQ(FindFunction<decltype(GetVersion)>(module, "NoSuchFunction"), nullptr);
}

// ---- functions of a module that is kept

class KeptBindingTest : public rig::RiggedInternalsTest {
 protected:
  LateModule module_{L"NETAPI32"};
  LateEntry first_{&module_, "NetUserAdd"};
  LateEntry second_{&module_, "NetUserDel"};
};

TEST_F(KeptBindingTest, AModuleThatTheProcessHasIsNotLoaded) {
  TheModules().Loaded("NETAPI32");
  EXPECT_NE(BindLate(&first_), nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleW("NETAPI32") = NETAPI32)",
      R"(GetProcAddress(NETAPI32, "NetUserAdd") = *)",
      "SetErrorMode(0x4000) = 32769",
  });
}

TEST_F(KeptBindingTest, AModuleThatTheProcessDoesNotHaveIsLoadedOnceForAllItsFunctions) {
  FARPROC found = BindLate(&first_);
  EXPECT_NE(found, nullptr);
  EXPECT_EQ(first_.function, found);
  EXPECT_NE(module_.handle, nullptr);
  EXPECT_NE(BindLate(&second_), nullptr);
  EXPECT_NE(first_.function, second_.function);
  EXPECT_EQ(BindLate(&first_), found);
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
  // Kept until the process ends.
  TheRig().ledger.Deliberate(rig::kModule, "NETAPI32");
}

TEST_F(KeptBindingTest, AModuleThatCannotBeLoadedIsTriedAgain) {
  TheModules().Missing("NETAPI32");
  for (int time = 0; time < 2; ++time) {
    TheRig().trace.Clear();
    EXPECT_EQ(BindLate(&first_), nullptr);
    EXPECT_EQ(first_.function, nullptr);
    EXPECT_EQ(module_.handle, nullptr);
    EXPECT_TRACE({
        "SetErrorMode(0x8001) = 16384",
        R"(GetModuleHandleW("NETAPI32") = null)",
        R"(LoadLibraryW("NETAPI32") = null)",
        "SetErrorMode(0x4000) = 32769",
    });
  }
}

TEST_F(KeptBindingTest, AMissingFunctionIsLookedUpAgainInTheKeptModule) {
  TheModules().MissingFunction("NETAPI32", "NetUserAdd");
  EXPECT_EQ(BindLate(&first_), nullptr);
  EXPECT_NE(module_.handle, nullptr);
  TheRig().trace.Clear();
  EXPECT_EQ(BindLate(&first_), nullptr);
  EXPECT_EQ(first_.function, nullptr);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetProcAddress(NETAPI32, "NetUserAdd") = null)",
      "SetErrorMode(0x4000) = 32769",
  });
  EXPECT_NE(BindLate(&second_), nullptr);
  TheRig().ledger.Deliberate(rig::kModule, "NETAPI32");
}

// The templates are compiled into their callers, here into the test; they call the library's functions
// (below).

class LateFunctionTest : public rig::RiggedInternalsTest {
 protected:
  LateModule loaded_{"KERNEL32", LateRule::kLoaded};
  LateModule kept_{L"KERNEL32"};
  LateFunction<decltype(GetVersion)> loadedVersion_{&loaded_, "GetVersion", 77};
  LateFunction<decltype(GetVersion)> keptVersion_{&kept_, "GetVersion", 77};
};

TEST_F(LateFunctionTest, CallsTheFunctionThatWasFound) {
  EXPECT_TRUE(loadedVersion_.IsAvailable());
  EXPECT_EQ(loadedVersion_(), TheWorld().clock.version);
}

TEST_F(LateFunctionTest, ReturnsItsDeclaredValueIfTheFunctionIsMissing) {
  TheModules().MissingFunction("KERNEL32", "GetVersion");
  EXPECT_FALSE(loadedVersion_.IsAvailable());
  EXPECT_EQ(loadedVersion_(), 77u);
  EXPECT_EQ(keptVersion_(), 77u);
}

TEST_F(LateFunctionTest, AFunctionOfAKeptModuleIsLookedUpOnce) {
  EXPECT_EQ(keptVersion_(), TheWorld().clock.version);
  EXPECT_EQ(keptVersion_(), TheWorld().clock.version);
  size_t found = 0;
  for (const std::string& line : TheRig().trace.Lines()) {
    found += line.rfind("GetProcAddress", 0) == 0 ? 1 : 0;
  }
  EXPECT_EQ(found, 1u);
}

TEST_F(LateFunctionTest, ACallWithoutAResultDoesNothingIfTheFunctionIsMissing) {
  LateFunction<decltype(Sleep)> sleep(&loaded_, "Sleep");
  sleep(5);
  EXPECT_EQ(TheRig().trace.Lines().back(), "Sleep(5)");
  TheModules().MissingFunction("KERNEL32", "Sleep");
  LateFunction<decltype(Sleep)> missing(&loaded_, "Sleep");
  TheRig().trace.Clear();
  missing(5);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleA("KERNEL32") = KERNEL32)",
      R"(GetProcAddress(KERNEL32, "Sleep") = null)",
      "SetErrorMode(0x4000) = 32769",
  });
}

}  // namespace late_binding_test

extern "C" FARPROC BindLate(LateEntry* entry) {
  return late_binding_test::BindLate(entry);
}
