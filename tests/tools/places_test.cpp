// The comparison of a machine that other programs change too: only the places of the tests count.

#include "machine/places.h"

#include <gtest/gtest.h>

#include "install/agent_rig.h"
#include "machine/state.h"

namespace machine {
namespace {

using Texts = std::vector<std::string>;

const char kService[] = "SYSTEM\\CurrentControlSet\\Services\\Gauge";
const char kProduct[] = "{11111111-2222-3333-4444-555555555555}";

class PlacesTest : public testing::Test {
 protected:
  void SetUp() override { Clear(); }
  void TearDown() override { Clear(); }

  static State Now() { return State::Now({{kProduct, "{product}"}}, Scope::kPlaces); }
  static std::string Entry(const std::string& product) {
    return "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\" + product;
  }
  static void Set(const std::string& key, const std::string& name, const std::string& value) {
    install::SetRegistryText(HKEY_LOCAL_MACHINE, key, name, value);
  }

 private:
  static void Clear() {
    for (const wchar_t* folder : {L"C:\\Metering", L"C:\\Program Files\\Someone else", L"C:\\$WinREAgent"})
      install::DeleteTree(folder);
    DeleteFileW(L"C:\\windows\\ostrel.ini");
    DeleteFileW(L"C:\\windows\\somebody.ini");
    for (const std::string& key : {std::string("SOFTWARE\\Brackwell"), std::string("SOFTWARE\\Somebody"),
                                   std::string(kService), Entry(kProduct), Entry("{another}")})
      install::DeleteRegistryTree(HKEY_LOCAL_MACHINE, key);
    install::DeleteRegistryTree(HKEY_CURRENT_USER, "Software\\Quillfern");
    install::SetLibraryList({});
  }
};

TEST_F(PlacesTest, WhatTheTestsChangeIsFoundAndNothingElse) {
  const State before = Now();
  install::WriteTree(L"C:\\Metering\\Ostrel", {{"a.txt", "1"}, {"Empty\\", ""}});
  install::WriteTree(L"C:\\windows", {{"ostrel.ini", "[options]"}});
  Set("SOFTWARE\\Brackwell\\Gauge", "Product", kProduct);
  install::SetRegistryText(HKEY_CURRENT_USER, "Software\\Quillfern", "host", "h");
  install::SetLibraryList({true, "OSTRACK.DLL", 1});
  Set(Entry(kProduct), "DisplayName", "Gauge");
  Set(Entry(kProduct), "InstallDate", "20261122");
  // What only one of the engines writes, and what only the service manager writes.
  Set(kService, "DisplayName", "Gauge");
  Set(kService, "ImagePath", "\"C:\\Metering\\gauge.exe\"");
  Set(kService, "PreshutdownTimeout", "180000");
  Set(std::string(kService) + "\\Security", "Security", "x");
  Set(std::string(kService) + "\\Settings", "vtdf", "C:\\Data\\");
  // Other programs.
  install::WriteTree(L"C:\\Program Files\\Someone else", {{"b.txt", "2"}});
  install::WriteTree(L"C:\\windows", {{"somebody.ini", "x"}});
  install::WriteTree(L"C:\\$WinREAgent", {});
  Set("SOFTWARE\\Somebody", "Name", "x");
  Set(Entry("{another}"), "DisplayName", "Another");

  const State after = Now();
  const std::string entry = "HKLM\\" + Entry("{product}") + "\\",
                    service = "HKLM\\" + std::string(kService) + "\\",
                    windows = "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows\\";
  EXPECT_EQ(after.Since(before),
            (Texts{"+ C:\\Metering\\", "+ C:\\Metering\\Ostrel\\", "+ C:\\Metering\\Ostrel\\Empty\\",
                   "+ C:\\Metering\\Ostrel\\a.txt", "+ C:\\windows\\ostrel.ini",
                   "+ HKCU\\Software\\Quillfern\\", "+ HKCU\\Software\\Quillfern\\host = \"h\"",
                   "+ HKLM\\SOFTWARE\\Brackwell\\", "+ HKLM\\SOFTWARE\\Brackwell\\Gauge\\",
                   "+ HKLM\\SOFTWARE\\Brackwell\\Gauge\\Product = \"{product}\"",
                   "+ " + windows + "AppInit_DLLs = \"OSTRACK.DLL\"", "+ " + windows + "LoadAppInit_DLLs = 1",
                   "+ " + entry, "+ " + entry + "DisplayName = \"Gauge\"", "+ " + service,
                   "+ " + service + "DisplayName = \"Gauge\"",
                   "+ " + service + "ImagePath = \"C:\\Metering\\gauge.exe\"", "+ " + service + "Settings\\",
                   "+ " + service + "Settings\\vtdf = \"C:\\Data\\\""}));

  // Changed content counts, and so does a changed access list.
  install::WriteTree(L"C:\\Metering\\Ostrel", {{"a.txt", "2"}});
  EXPECT_EQ(Now().Since(after), Texts{"~ C:\\Metering\\Ostrel\\a.txt"});
}

TEST_F(PlacesTest, AnEntryThatIsNotInheritedIsFound) {
  EXPECT_TRUE(HasOwnEntry("D:(A;OICI;FA;;;SY)"));
  EXPECT_TRUE(HasOwnEntry("D:PAI(A;OICIID;FA;;;SY)(A;;FR;;;WD)"));
  EXPECT_TRUE(HasOwnEntry("D:(A;;FR;;;WD)"));
  EXPECT_FALSE(HasOwnEntry("D:AI(A;OICIID;FA;;;SY)(A;ID;FR;;;WD)"));
  EXPECT_FALSE(HasOwnEntry("D:"));
  EXPECT_FALSE(HasOwnEntry("(unreadable)"));
}

// Other programs make and delete names in the same folders at any time.
TEST_F(PlacesTest, OnlyNamesThatTheTestsCanHaveMadeCount) {
  struct Case {
    const wchar_t *folder, *name;
    bool isOurs;
  };
  for (const Case& entry : {Case{L"C:", L"Metering", true},
                            {L"C:", L"METERING", true},
                            {L"C:", L"Ostrel elsewhere", true},
                            {L"C:", L"Program Files", true},
                            {L"C:", L"Vantor Store", true},
                            {L"C:", L"Meter", false},
                            {L"C:", L"Metering more", false},
                            {L"C:", L"$WinREAgent", false},
                            {L"C:", L"Program Files (x86)", false},
                            {L"C:\\ProgramData", L"Ostrel Audit", true},
                            {L"C:\\ProgramData", L"Ostrel record.txt", true},
                            {L"C:\\ProgramData", L"Brackwell", true},
                            {L"C:\\Program Files\\Halvorstead", L"Another", true},
                            {L"C:\\Program Files\\Brackwell\\Probe", L"probe.exe", true},
                            {L"C:\\Program Files", L"Another", false},
                            {L"C:\\ProgramData", L"Microsoft", false},
                            {L"C:\\ProgramData", L"Another Ostrel", false}}) {
    EXPECT_EQ(CanBeOurs(entry.folder, entry.name), entry.isOurs) << FromWide(entry.name);
  }
}

// Otherwise a change there would be lost on a machine that other programs change.
TEST_F(PlacesTest, EachPlaceIsOfDriveCOrOfOneOfTheTwoKeys) {
  for (const auto* places : {&kFolders, &kFiles}) {
    for (const std::wstring& path : *places) EXPECT_EQ(path.rfind(L"C:\\", 0), 0u) << FromWide(path);
  }
  for (const auto* keys : {&kKeys, &kValues}) {
    for (const std::string& key : *keys) {
      EXPECT_TRUE(key.rfind("HKLM\\", 0) == 0 || key.rfind("HKCU\\", 0) == 0) << key;
      EXPECT_NE(key.back(), '\\') << key;
    }
  }
}

}  // namespace
}  // namespace machine
