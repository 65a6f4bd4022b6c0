// The rig's own tests: terminal sessions, processes and privileges.
#include <wtsapi32.h>

#include <array>

#include "rig-subject/subject_sessions.h"
#include "unit/rig/rig_subject.h"

namespace rig_test {

HX_INTERNAL(SubjectListProcesses);
HX_INTERNAL(SubjectListSessions);
HX_INTERNAL(SubjectSessionUser);
HX_INTERNAL(SubjectImageOf);
HX_INTERNAL(SubjectEndProcess);
HX_INTERNAL(SubjectTakePrivilege);

class RigSessionsTest : public RigTest {
 protected:
  static constexpr size_t kRoom = 8;
  static constexpr DWORD kAllAccess = PROCESS_TERMINATE | SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION;

  void Arrange(rig::World& world) override {
    world.sessions.sessions = {{0, WTSDisconnected, ""}, {3, WTSActive, "Mercer"}, {65537, WTSIdle, "Żur"}};
    world.sessions.processes = {
        {4, 0, "", ""}, {120, 3, "tool.exe", "C:\\Tools\\tool.exe"}, {124, 3, "Ż.exe", "C:\\Ż.exe"}};
  }
  rig::Sessions& World() { return TheWorld().sessions; }
  rig::Process& Tool() { return World().processes.at(1); }

  // Returns the entries of a list as lines: "id session state name".
  template <class Function>
  std::vector<std::string> List(Function&& enumerate) {
    std::array<SubjectEntry, kRoom> entries;
    DWORD count = kRoom;
    EXPECT_EQ(enumerate(entries.data(), &count, kSubjectListSound), 0U);
    std::vector<std::string> lines;
    for (size_t index = 0; index < count; ++index) {
      const SubjectEntry& entry = entries.at(index);
      lines.push_back(std::to_string(entry.id) + " " + std::to_string(entry.session) + " " +
                      std::to_string(entry.state) + " " +
                      (entry.hasText ? rig::ToUtf8(entry.text) : std::string("-")));
    }
    return lines;
  }
  template <class Function>
  std::string Treated(Function&& enumerate, SubjectListFault fault) {
    return Reported([&] {
      std::array<SubjectEntry, kRoom> entries;
      DWORD count = kRoom;
      enumerate(entries.data(), &count, fault);
    });
  }
  std::string Image(DWORD id, DWORD access, DWORD size, DWORD error) {
    std::array<wchar_t, MAX_PATH> image = {};
    EXPECT_EQ(SubjectImageOf(id, access, image.data(), size), error);
    return rig::ToUtf8(image.data());
  }
};

TEST_F(RigSessionsTest, ProcessesAreListedInOrder) {
  EXPECT_EQ(List(SubjectListProcesses),
            (std::vector<std::string>{"4 0 0 -", "120 3 0 tool.exe", "124 3 0 Ż.exe"}));
  World().processes.clear();
  EXPECT_TRUE(List(SubjectListProcesses).empty());
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigSessionsTest, SessionsAreListedInOrder) {
  EXPECT_EQ(List(SubjectListSessions),
            (std::vector<std::string>{"0 0 4 Console", "3 0 0 Console", "65537 0 5 Console"}));
  World().sessions.clear();
  EXPECT_TRUE(List(SubjectListSessions).empty());
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigSessionsTest, ListsCanFail) {
  SubjectEntry entry;
  DWORD count = 1;
  World().processesError = ERROR_ACCESS_DENIED;
  World().sessionsError = RPC_S_SERVER_UNAVAILABLE;
  EXPECT_EQ(SubjectListProcesses(&entry, &count, kSubjectListSound), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(SubjectListSessions(&entry, &count, kSubjectListSound), DWORD{RPC_S_SERVER_UNAVAILABLE});
  EXPECT_EQ(count, 1U);
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigSessionsTest, ASessionHasAUser) {
  std::array<wchar_t, 32> user = {L'?'};
  EXPECT_EQ(SubjectSessionUser(3, user.data(), kSubjectListSound), 0U);
  EXPECT_EQ(rig::ToUtf8(user.data()), "Mercer");
  EXPECT_EQ(SubjectSessionUser(65537, user.data(), kSubjectListSound), 0U);
  EXPECT_EQ(rig::ToUtf8(user.data()), "Żur");
  // For a session without a user the name is empty.
  EXPECT_EQ(SubjectSessionUser(0, user.data(), kSubjectListSound), 0U);
  EXPECT_EQ(rig::ToUtf8(user.data()), "");
  EXPECT_NE(SubjectSessionUser(4, user.data(), kSubjectListSound), 0U);
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigSessionsTest, QueryingAUserCanFailOrReturnNothing) {
  std::array<wchar_t, 32> user = {L'?'};
  World().sessions.at(1).asking = rig::TerminalSession::Asking::kFails;
  EXPECT_EQ(SubjectSessionUser(3, user.data(), kSubjectListSound), DWORD{ERROR_ACCESS_DENIED});
  World().sessions.at(1).asking = rig::TerminalSession::Asking::kGivesNothing;
  EXPECT_EQ(SubjectSessionUser(3, user.data(), kSubjectListSound), 0U);
  EXPECT_EQ(rig::ToUtf8(user.data()), "?");
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigSessionsTest, ListsAndTextsMustBeFreed) {
  EXPECT_EQ(Treated(SubjectListProcesses, kSubjectListKept), "");
  EXPECT_TRUE(Has(EndOfAction(), "session-memory#1 was not released"));
  EXPECT_EQ(Treated(SubjectListSessions, kSubjectListKept), "");
  EXPECT_TRUE(Has(EndOfAction(), "session-memory#2 was not released"));
  std::array<wchar_t, 32> user;
  EXPECT_EQ(SubjectSessionUser(3, user.data(), kSubjectListKept), 0U);
  EXPECT_TRUE(Has(EndOfAction(), "session-memory#3 was not released"));
}

TEST_F(RigSessionsTest, FreeingTwiceIsFound) {
  EXPECT_TRUE(Has(Treated(SubjectListProcesses, kSubjectListFreedTwice),
                  "WTSFreeMemory releases a session-memory ("));
}

TEST_F(RigSessionsTest, ReadingPastAListIsFound) {
  EXPECT_TRUE(Has(Treated(SubjectListProcesses, kSubjectListReadBehind), "past the end of a block"));
  EndOfAction();  // Forgets what the crash kept the subject from freeing.
}

TEST_F(RigSessionsTest, ReadingAFreedListIsFound) {
  EXPECT_TRUE(Has(Treated(SubjectListSessions, kSubjectListReadFreed), "freed block"));
  EndOfAction();
}

TEST_F(RigSessionsTest, AProcessIsEndedAndAwaited) {
  DWORD wait = ~0U;
  EXPECT_EQ(SubjectEndProcess(120, kAllAccess, FALSE, &wait, kSubjectProcessSound), 0U);
  EXPECT_EQ(wait, DWORD{WAIT_OBJECT_0});
  EXPECT_TRUE(Tool().ended);
  EXPECT_FALSE(World().processes.at(2).ended);
  EXPECT_TRACE({
      "OpenProcess(0x101001, 0, 120) = handle#1",
      "TerminateProcess(handle#1, 0) = 1",
      "WaitForSingleObject(handle#1, 1000) = 0",
      "CloseHandle(handle#1) = 1",
  });
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigSessionsTest, AProcessThatNobodyEndsGoesOnRunning) {
  DWORD wait = ~0U;
  EXPECT_EQ(SubjectEndProcess(120, kAllAccess, TRUE, &wait, kSubjectProcessSound), 0U);
  EXPECT_EQ(wait, DWORD{WAIT_TIMEOUT});
  EXPECT_FALSE(Tool().ended);
  Tool().waitResult = WAIT_TIMEOUT;
  EXPECT_EQ(SubjectEndProcess(120, kAllAccess, FALSE, &wait, kSubjectProcessSound), 0U);
  EXPECT_EQ(wait, DWORD{WAIT_TIMEOUT});
  EXPECT_TRUE(Tool().ended);
}

TEST_F(RigSessionsTest, ProcessesCanRefuse) {
  DWORD wait = ~0U;
  EXPECT_EQ(SubjectEndProcess(999, kAllAccess, FALSE, &wait, kSubjectProcessSound),
            DWORD{ERROR_INVALID_PARAMETER});
  Tool().terminateError = ERROR_NOT_SUPPORTED;
  EXPECT_EQ(SubjectEndProcess(120, kAllAccess, FALSE, &wait, kSubjectProcessSound),
            DWORD{ERROR_NOT_SUPPORTED});
  Tool().openError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(SubjectEndProcess(120, kAllAccess, FALSE, &wait, kSubjectProcessSound),
            DWORD{ERROR_ACCESS_DENIED});
  EXPECT_FALSE(Tool().ended);
  EXPECT_EQ(wait, ~0U);
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigSessionsTest, AProcessHandleAllowsWhatItWasOpenedFor) {
  DWORD wait = ~0U;
  EXPECT_EQ(
      SubjectEndProcess(120, kAllAccess & ~DWORD{PROCESS_TERMINATE}, FALSE, &wait, kSubjectProcessSound),
      DWORD{ERROR_ACCESS_DENIED});
  EXPECT_FALSE(Tool().ended);
  EXPECT_EQ(SubjectEndProcess(120, PROCESS_TERMINATE, FALSE, &wait, kSubjectProcessSound),
            DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(wait, DWORD{WAIT_FAILED});
  EXPECT_EQ(Image(120, PROCESS_TERMINATE | SYNCHRONIZE, MAX_PATH, ERROR_ACCESS_DENIED), "");
}

TEST_F(RigSessionsTest, AProcessHasAnImage) {
  EXPECT_EQ(Image(120, kAllAccess, MAX_PATH, ERROR_SUCCESS), "C:\\Tools\\tool.exe");
  EXPECT_EQ(Image(124, kAllAccess, MAX_PATH, ERROR_SUCCESS), "C:\\Ż.exe");
  // 17 characters and the terminator.
  EXPECT_EQ(Image(120, kAllAccess, 18, ERROR_SUCCESS), "C:\\Tools\\tool.exe");
  EXPECT_EQ(Image(120, kAllAccess, 17, ERROR_INSUFFICIENT_BUFFER), "");
  EXPECT_EQ(Image(4, kAllAccess, MAX_PATH, ERROR_GEN_FAILURE), "");
}

TEST_F(RigSessionsTest, AProcessHandleThatIsKeptOrUsedAfterClosingIsFound) {
  DWORD wait;
  SubjectEndProcess(120, kAllAccess, FALSE, &wait, kSubjectProcessKept);
  EXPECT_TRUE(Has(EndOfAction(), "handle#1 was not released"));
  EXPECT_TRUE(
      Has(Reported([&] { SubjectEndProcess(120, kAllAccess, FALSE, &wait, kSubjectProcessUsedBehind); }),
          "TerminateProcess is given a handle ("));
}

TEST_F(RigSessionsTest, ThePrivilegeIsSwitchedOn) {
  EXPECT_EQ(SubjectTakePrivilege("SeDebugPrivilege", ERROR_SUCCESS, FALSE), 0U);
  EXPECT_EQ(World().enabled, (std::vector<DWORD>{SE_PRIVILEGE_ENABLED}));
  // A success leaves the last error unchanged.
  EXPECT_EQ(SubjectTakePrivilege("SeDebugPrivilege", ERROR_FILE_NOT_FOUND, FALSE),
            DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigSessionsTest, ThePrivilegeCanBeRefusedOrUnknown) {
  World().privilegeError = ERROR_NOT_ALL_ASSIGNED;
  EXPECT_EQ(SubjectTakePrivilege("SeDebugPrivilege", ERROR_SUCCESS, FALSE), DWORD{ERROR_NOT_ALL_ASSIGNED});
  World().tokenError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(SubjectTakePrivilege("SeDebugPrivilege", ERROR_SUCCESS, FALSE), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(SubjectTakePrivilege("SeOtherPrivilege", ERROR_SUCCESS, FALSE), DWORD{ERROR_NO_SUCH_PRIVILEGE});
  World().hasDebugPrivilege = false;
  EXPECT_EQ(SubjectTakePrivilege("SeDebugPrivilege", ERROR_SUCCESS, FALSE), DWORD{ERROR_NO_SUCH_PRIVILEGE});
  EXPECT_TRUE(World().enabled.empty());
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigSessionsTest, ATokenMustBeClosed) {
  SubjectTakePrivilege("SeDebugPrivilege", ERROR_SUCCESS, TRUE);
  EXPECT_TRUE(Has(EndOfAction(), "handle#1 was not released"));
}

}  // namespace rig_test
