// The table of effects: every function that the library can call is in it.
#include <gtest/gtest.h>

#include <memory>

#include "hxrun/com_objects.h"
#include "hxrun/effects.h"
#include "hxrun/run.h"
#include "rig/declaration.h"

namespace hxrun_test {
namespace {

using hxrun::CheckEffects;
using hxrun::Effect;
using hxrun::FindRow;

void NeverEnds(hxrun::ExitStatus, const std::string& text) {
  ADD_FAILURE() << text;
}

TEST(HxRunEffectsTest, EachFunctionAndMethodHasItsRow) {
  EXPECT_EQ(CheckEffects(), "");
  rig::Rig rig(rig::Policy::kReal);
  hxrun::RunWatcher watcher(hxrun::ChangeRule::kRefuse, {}, {}, NeverEnds);
  EXPECT_EQ(hxrun::CheckMethods(rig, watcher), "");
}

TEST(HxRunEffectsTest, TheFunctionsThatChangeTheMachine) {
  std::string changes;
  rig::declarations::ForEach([&](const rig::Declaration& declaration) {
    const hxrun::Row* row = FindRow(declaration.Name());
    if (row != nullptr && row->effect == Effect::kChanges) changes += declaration.Name() + " ";
  });
  for (const char* name :
       {"CreateDirectoryW",   "RemoveDirectoryW",    "DeleteFileW",           "MoveFileW",
        "MoveFileExW",        "CopyFileW",           "SetFileAttributesW",    "CreateFileW",
        "CreateFileA",        "WriteFile",           "SetEndOfFile",          "RegSetValueExA",
        "RegSetValueExW",     "RegDeleteKeyA",       "RegDeleteKeyW",         "RegDeleteValueA",
        "SHDeleteKey",        "ControlService",      "StartServiceA",         "ChangeServiceConfig2A",
        "SendMessageA",       "PostMessageA",        "TerminateProcess",      "NetUserAdd",
        "NetUserDel",         "LsaAddAccountRights", "SetNamedSecurityInfoW", "DsWriteAccountSpnW",
        "InstallHinfSectionA"}) {
    const std::string word = std::string(name) + " ";
    const size_t at = changes.find(word);
    EXPECT_NE(at, std::string::npos) << name;
    if (at != std::string::npos) changes.erase(at, word.size());
  }
  EXPECT_EQ(changes, "");
}

TEST(HxRunEffectsTest, TheMethodsThatChangeTheMachine) {
  for (const char* name : {"ITaskFolder.CreateFolder",
                           "ITaskFolder.DeleteFolder",
                           "ITaskFolder.DeleteTask",
                           "ITaskFolder.RegisterTaskDefinition",
                           "new ITaskFolder.RegisterTaskDefinition",
                           "IRegisteredTask.RunEx",
                           "ITaskScheduler.Delete",
                           "IPersistFile.Save",
                           "INetFwRules.Add",
                           "INetFwRules.Remove",
                           "existing INetFwRule.put_Name",
                           "existing INetFwRule.put_ApplicationName",
                           "existing INetFwRule.put_Grouping",
                           "existing INetFwRule.put_Description",
                           "INetFwAuthorizedApplications.Add",
                           "INetFwAuthorizedApplications.Remove",
                           "existing INetFwAuthorizedApplication.put_ProcessImageFileName",
                           "existing INetFwAuthorizedApplication.put_Name",
                           "IADsContainer.Delete",
                           "IADsUser.SetPassword",
                           "IADsUser.SetInfo"}) {
    const hxrun::Row* row = FindRow(name);
    ASSERT_NE(row, nullptr) << name;
    EXPECT_EQ(row->effect, Effect::kChanges) << name;
  }
}

TEST(HxRunEffectsTest, AFunctionWithoutARowIsRefused) {
  // A declaration stays for the life of the program, so only this test declares one.
  rig::declarations::Add(new rig::Declaration("KERNEL32", "SetVolumeLabelW", rig::Returns(0), nullptr));
  EXPECT_EQ(CheckEffects(), "SetVolumeLabelW: nothing says whether it changes the machine\n");
}

}  // namespace
}  // namespace hxrun_test
