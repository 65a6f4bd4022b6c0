// CustomAction1 and CustomAction29: the client service.

#include <algorithm>

#include "rig/action_test.h"

namespace closing_tools_service_test {

using Lines = std::vector<std::string>;

constexpr char kText[] =
    "Halvorstead Client is running as a service on this computer.  Setup will try\n"
    "to stop the service now so that all files can be copied successfully.";
constexpr char kFallbackTitle[] = "Halvorstead Vantor Platform Component";
// INSTALLMESSAGE_USER with the information icon.
constexpr unsigned kNoticeType = 0x03000040;

// The number of calls that look for the eight tools.
constexpr size_t kToolCalls = 8;

class ClientServiceTest : public rig::ActionTest {
 protected:
  rig::Service& TheService() { return TheWorld().services.Of("Ostrel"); }
  // Returns the calls after those that look for the tools.
  static Lines Calls() {
    const Lines& lines = rig::Rig::Current()->trace.Lines();
    if (lines.size() < kToolCalls) return {"too few calls"};
    return {lines.begin() + kToolCalls, lines.end()};
  }
  static ptrdiff_t Count(const std::string& call) {
    const Lines& lines = rig::Rig::Current()->trace.Lines();
    return std::count(lines.begin(), lines.end(), call);
  }
  void BeforeNt() { TheWorld().clock.version = 0xC0000A04; }
};

class StopServiceTest : public ClientServiceTest {};

#define EXPECT_CALLS(...) ::rig::CompareLines(__FILE__, __LINE__, "trace", Lines __VA_ARGS__, Calls())

TEST_F(StopServiceTest, IsStoppedWithoutANotice) {
  TheService();
  EXPECT_EQ(Run(1), 0u);
  EXPECT_CALLS({
      "OpenSCManagerA(null, null, 0xf003f) = service#1",
      R"(OpenServiceA(service#1, "Ostrel", 0xa4) = service#2)",
      "ControlService(service#2, 4, *) = 1",
      R"(MsiGetPropertyA(session, "REBOOT", *, *) = 0)",
      R"(MsiGetPropertyA(session, "PROP_SILENCE", *, *) = 0)",
      "ControlService(service#2, 1, *) = 1",
      "QueryServiceStatus(service#2, *) = 1",
      "CloseServiceHandle(service#2) = 1",
      "CloseServiceHandle(service#1) = 1",
  });
  EXPECT_TRUE(Installer().Messages().empty());
  EXPECT_EQ(TheService().state, DWORD{SERVICE_STOPPED});
}

TEST_F(StopServiceTest, ANoticeIsShown) {
  TheService();
  Installer().Set("PROP_SILENCE", "-1");
  EXPECT_EQ(Run(1), 0u);
  EXPECT_CALLS({
      "OpenSCManagerA(null, null, 0xf003f) = service#1",
      R"(OpenServiceA(service#1, "Ostrel", 0xa4) = service#2)",
      "ControlService(service#2, 4, *) = 1",
      R"(MsiGetPropertyA(session, "REBOOT", *, *) = 0)",
      R"(MsiGetPropertyA(session, "PROP_SILENCE", *, *) = 0)",
      "MsiCreateRecord(2) = record#1",
      "MsiRecordSetInteger(record#1, 1, 25003) = 0",
      "MsiProcessMessage(session, 0x3000040, record#1) = 1",
      "MsiCloseHandle(record#1) = 0",
      "ControlService(service#2, 1, *) = 1",
      "QueryServiceStatus(service#2, *) = 1",
      "CloseServiceHandle(service#2) = 1",
      "CloseServiceHandle(service#1) = 1",
  });
  EXPECT_LOG({});
}

TEST_F(StopServiceTest, WithoutARecordABoxIsShown) {
  TheService();
  Installer().Set("PROP_SILENCE", "-1");
  Installer().Set("ProductName", std::string(127, 'P'));
  Installer().refusesRecords = true;
  EXPECT_EQ(Run(1), 0u);
  EXPECT_EQ(TheWorld().desktop.boxes,
            (std::vector<rig::Desktop::Box>{{kText, std::string(127, 'P'), MB_ICONINFORMATION}}));
  EXPECT_EQ(TheService().controls, (std::vector<DWORD>{SERVICE_CONTROL_INTERROGATE, SERVICE_CONTROL_STOP}));
}

TEST_F(StopServiceTest, TheBoxHasAFixedTitleIfTheProductHasNoReadableName) {
  TheService();
  Installer().Set("PROP_SILENCE", "-1");
  Installer().refusesRecords = true;
  const rig::Desktop::Box box = {kText, kFallbackTitle, MB_ICONINFORMATION};
  EXPECT_EQ(Run(1), 0u);
  TheService().state = SERVICE_RUNNING;
  Installer().Set("ProductName", std::string(128, 'P'));
  EXPECT_EQ(Run(1), 0u);
  TheService().state = SERVICE_RUNNING;
  Installer().FailReading("ProductName");
  EXPECT_EQ(Run(1), 0u);
  EXPECT_EQ(TheWorld().desktop.boxes, (std::vector<rig::Desktop::Box>{box, box, box}));
}

struct GateCase {
  const char* reboot;  // Null: the read fails.
  const char* silence;
  bool isRead;  // PROP_SILENCE
  bool isSent;
};

class NoticeGateTest : public ClientServiceTest, public testing::WithParamInterface<GateCase> {};

TEST_P(NoticeGateTest, DecidesOnTheNoticeOnly) {
  const GateCase& row = GetParam();
  TheService();
  if (row.reboot != nullptr) {
    Installer().Set("REBOOT", row.reboot);
  } else {
    Installer().FailReading("REBOOT");
  }
  if (row.silence != nullptr) {
    Installer().Set("PROP_SILENCE", row.silence);
  } else {
    Installer().FailReading("PROP_SILENCE");
  }
  EXPECT_EQ(Run(1), 0u);
  const std::string read = R"(MsiGetPropertyA(session, "PROP_SILENCE", *, *) = )";
  EXPECT_EQ(Count(read + "0") + Count(read + "1627"), row.isRead ? 1 : 0);
  EXPECT_EQ(Installer().Messages().size(), row.isSent ? 1u : 0u);
  for (const rig::Message& message : Installer().Messages()) {
    EXPECT_EQ(message.type, kNoticeType);
    EXPECT_EQ(message.fields[1], "25003");
  }
  EXPECT_EQ(TheService().state, DWORD{SERVICE_STOPPED});
}

const GateCase kGates[] = {
    {"Force", "-1", false, false},
    {"force", "-1", false, false},
    {"FORCE", "-1", false, false},
    {"Force ", "-1", true, true},
    {"Forces", "-1", true, true},
    {"Forc", "-1", true, true},
    {"", "-1", true, true},
    {"Suppress", "-1", true, true},
    {"ReallySuppress", "-1", true, true},
    {nullptr, "-1", true, true},
    {"Suppress", "", true, false},
    {"Suppress", "1", true, false},
    {"Suppress", "-1 ", true, false},
    {"Suppress", nullptr, true, false},
    {nullptr, nullptr, true, false},
};
INSTANTIATE_TEST_SUITE_P(Gates, NoticeGateTest, testing::ValuesIn(kGates));

TEST_F(StopServiceTest, RebootIsReadIntoABufferOf128Bytes) {
  TheService();
  Installer().Set("PROP_SILENCE", "-1");
  std::vector<DWORD> rooms;
  TheWorld().On<::MsiGetPropertyA>([&](MSIHANDLE, LPCSTR, LPSTR buffer, LPDWORD count) -> UINT {
    rooms.push_back(*count);
    // What a failed read leaves in the buffer must be ignored.
    memcpy(buffer, "Force", sizeof "Force");
    return ERROR_MORE_DATA;
  });
  EXPECT_EQ(Run(1), 0u);
  EXPECT_EQ(rooms, (std::vector<DWORD>{128, 128}));
}

TEST_F(StopServiceTest, NothingHappensWithoutAManager) {
  TheService();
  TheWorld().services.managerError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Run(1), 0u);
  EXPECT_CALLS({"OpenSCManagerA(null, null, 0xf003f) = null"});
}

TEST_F(StopServiceTest, NothingHappensWithoutTheService) {
  EXPECT_EQ(Run(1), 0u);
  EXPECT_CALLS({
      "OpenSCManagerA(null, null, 0xf003f) = service#1",
      R"(OpenServiceA(service#1, "Ostrel", 0xa4) = null)",
      "CloseServiceHandle(service#1) = 1",
  });
}

TEST_F(StopServiceTest, NothingHappensBeforeTheNtFamily) {
  TheService();
  BeforeNt();
  EXPECT_EQ(Run(1), 0u);
  EXPECT_CALLS({});
}

TEST_F(StopServiceTest, AServiceThatCannotBeInterrogatedIsLeftAlone) {
  TheService().controlErrors[SERVICE_CONTROL_INTERROGATE] = ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
  Installer().Set("PROP_SILENCE", "-1");
  EXPECT_EQ(Run(1), 0u);
  EXPECT_CALLS({
      "OpenSCManagerA(null, null, 0xf003f) = service#1",
      R"(OpenServiceA(service#1, "Ostrel", 0xa4) = service#2)",
      "ControlService(service#2, 4, *) = 0",
      "CloseServiceHandle(service#2) = 1",
      "CloseServiceHandle(service#1) = 1",
  });
}

TEST_F(StopServiceTest, AServiceThatDoesNotRunIsLeftAlone) {
  Installer().Set("PROP_SILENCE", "-1");
  for (DWORD state : {SERVICE_STOPPED, SERVICE_START_PENDING, SERVICE_STOP_PENDING, SERVICE_CONTINUE_PENDING,
                      SERVICE_PAUSE_PENDING, SERVICE_PAUSED}) {
    SCOPED_TRACE(state);
    TheService().state = state;
    TheService().controls.clear();
    EXPECT_EQ(Run(1), 0u);
    EXPECT_EQ(TheService().controls, (std::vector<DWORD>{SERVICE_CONTROL_INTERROGATE}));
  }
  EXPECT_TRUE(Installer().Messages().empty());
}

TEST_F(StopServiceTest, AnyOtherStateEndsTheWait) {
  for (DWORD state : {SERVICE_STOPPED, SERVICE_START_PENDING, SERVICE_STOP_PENDING, SERVICE_CONTINUE_PENDING,
                      SERVICE_PAUSE_PENDING, SERVICE_PAUSED}) {
    SCOPED_TRACE(state);
    TheService().state = SERVICE_RUNNING;
    TheService().stateAfter[SERVICE_CONTROL_STOP] = state;
    EXPECT_EQ(Run(1), 0u);
  }
  EXPECT_EQ(Count("Sleep(500)"), 0);
}

TEST_F(StopServiceTest, AServiceThatStopsLateIsWaitedFor) {
  TheService().coming = {SERVICE_RUNNING, SERVICE_RUNNING, SERVICE_STOP_PENDING};
  TheRig().MakeLoud("GetTickCount");
  EXPECT_EQ(Run(1), 0u);
  Lines calls = Calls();
  // Each wait for a window would have asked for the time: there was none.
  calls.erase(calls.begin(), std::find(calls.begin(), calls.end(), "ControlService(service#2, 1, *) = 1"));
  const Lines expected = {
      "ControlService(service#2, 1, *) = 1",
      "GetTickCount() = 0xf4240",
      "QueryServiceStatus(service#2, *) = 1",
      "Sleep(500)",
      "GetTickCount() = 0xf4434",
      "QueryServiceStatus(service#2, *) = 1",
      "Sleep(500)",
      "GetTickCount() = 0xf4628",
      "QueryServiceStatus(service#2, *) = 1",
      "CloseServiceHandle(service#2) = 1",
      "CloseServiceHandle(service#1) = 1",
  };
  EXPECT_EQ(calls, expected);
}

TEST_F(StopServiceTest, AServiceMayStopAtTheLastPoll) {
  TheService().coming = std::deque<DWORD>(10, SERVICE_RUNNING);
  TheService().coming.push_back(SERVICE_STOPPED);
  EXPECT_EQ(Run(1), 0u);
  EXPECT_EQ(Count("Sleep(500)"), 10);
}

TEST_F(StopServiceTest, AServiceThatKeepsRunningStopsTheInstallation) {
  TheService().stateAfter.clear();
  EXPECT_EQ(Run(1), UINT{ERROR_INSTALL_FAILURE});
  EXPECT_EQ(Count("Sleep(500)"), 11);
  EXPECT_EQ(Count("QueryServiceStatus(service#2, *) = 1"), 11);
  const Lines& calls = TheRig().trace.Lines();
  EXPECT_EQ(Lines(calls.end() - 3, calls.end()), (Lines{
                                                     "Sleep(500)",
                                                     "CloseServiceHandle(service#2) = 1",
                                                     "CloseServiceHandle(service#1) = 1",
                                                 }));
  EXPECT_LOG({});
}

TEST_F(StopServiceTest, AFailedStopRequestIsIgnored) {
  TheService().controlErrors[SERVICE_CONTROL_STOP] = ERROR_SERVICE_REQUEST_TIMEOUT;
  TheService().coming = {SERVICE_RUNNING, SERVICE_STOPPED};
  EXPECT_EQ(Run(1), 0u);
  EXPECT_EQ(Count("Sleep(500)"), 1);
}

TEST_F(StopServiceTest, AServiceThatRefusesToStopStopsTheInstallation) {
  TheService().controlErrors[SERVICE_CONTROL_STOP] = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Run(1), UINT{ERROR_INSTALL_FAILURE});
}

TEST_F(StopServiceTest, AFirstQueryThatFailsEndsTheWait) {
  TheService().stateAfter.clear();
  TheService().statusError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Run(1), 0u);
  EXPECT_EQ(Count("Sleep(500)"), 0);
}

TEST_F(StopServiceTest, ALaterQueryThatFailsEndsTheWait) {
  TheService().coming = {SERVICE_RUNNING, SERVICE_RUNNING};
  TheService().statusError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Run(1), 0u);
  EXPECT_EQ(Count("Sleep(500)"), 2);
}

TEST_F(StopServiceTest, ADeadlineThatWrapsAroundEndsAtTheFirstPoll) {
  TheWorld().clock.ticks = 0xFFFFFFFF - 4999;
  TheService().stateAfter.clear();
  EXPECT_EQ(Run(1), UINT{ERROR_INSTALL_FAILURE});
  EXPECT_EQ(Count("Sleep(500)"), 1);
}

TEST_F(StopServiceTest, SurvivesTheFailureOfEachCall) {
  for (bool refusesRecords : {false, true}) {
    FailEachCall(1, [refusesRecords](rig::World& world) {
      world.services.Of("Ostrel").coming = {SERVICE_RUNNING, SERVICE_STOPPED};
      world.installer.Set("PROP_SILENCE", "-1");
      world.installer.Set("REBOOT", "Suppress");
      world.installer.refusesRecords = refusesRecords;
    });
  }
}

class ServiceControlTest : public ClientServiceTest {};

TEST_F(ServiceControlTest, IsSentToTheRunningService) {
  TheService();
  EXPECT_EQ(Run(29), 0u);
  EXPECT_TRACE({
      "OpenSCManagerA(null, null, 0xf003f) = service#1",
      R"(OpenServiceA(service#1, "Ostrel", 0x184) = service#2)",
      "ControlService(service#2, 4, *) = 1",
      "ControlService(service#2, 200, *) = 1",
      "CloseServiceHandle(service#2) = 1",
      "CloseServiceHandle(service#1) = 1",
  });
  EXPECT_EQ(TheService().controls, (std::vector<DWORD>{SERVICE_CONTROL_INTERROGATE, 200}));
  EXPECT_LOG({});
}

TEST_F(ServiceControlTest, PassesAZeroedStatus) {
  TheService();
  TheWorld().On<::ControlService>([](SC_HANDLE, DWORD control, SERVICE_STATUS* status) {
    if (control == SERVICE_CONTROL_INTERROGATE) {
      memset(status, 0x5A, sizeof *status);
      status->dwCurrentState = SERVICE_RUNNING;
    } else {
      const SERVICE_STATUS zeroed = {};
      EXPECT_EQ(memcmp(status, &zeroed, sizeof zeroed), 0);
    }
    return TRUE;
  });
  EXPECT_EQ(Run(29), 0u);
}

TEST_F(ServiceControlTest, ItsFailureIsIgnored) {
  TheService().controlErrors[200] = ERROR_INVALID_SERVICE_CONTROL;
  EXPECT_EQ(Run(29), 0u);
  EXPECT_EQ(TheService().controls, (std::vector<DWORD>{SERVICE_CONTROL_INTERROGATE, 200}));
}

TEST_F(ServiceControlTest, IsNotSentUnlessTheServiceIsRunning) {
  for (DWORD state : {SERVICE_STOPPED, SERVICE_START_PENDING, SERVICE_STOP_PENDING, SERVICE_PAUSED}) {
    SCOPED_TRACE(state);
    TheService().state = state;
    TheService().controls.clear();
    EXPECT_EQ(Run(29), 0u);
    EXPECT_EQ(TheService().controls, (std::vector<DWORD>{SERVICE_CONTROL_INTERROGATE}));
  }
}

TEST_F(ServiceControlTest, IsNotSentIfTheServiceCannotBeInterrogated) {
  TheService().controlErrors[SERVICE_CONTROL_INTERROGATE] = ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
  EXPECT_EQ(Run(29), 0u);
  EXPECT_EQ(TheService().controls, (std::vector<DWORD>{SERVICE_CONTROL_INTERROGATE}));
}

TEST_F(ServiceControlTest, NothingHappensWithoutTheService) {
  EXPECT_EQ(Run(29), 0u);
  EXPECT_TRACE({
      "OpenSCManagerA(null, null, 0xf003f) = service#1",
      R"(OpenServiceA(service#1, "Ostrel", 0x184) = null)",
      "CloseServiceHandle(service#1) = 1",
  });
}

TEST_F(ServiceControlTest, NothingHappensWithoutAManager) {
  TheService();
  TheWorld().services.managerError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Run(29), 0u);
  EXPECT_TRACE({"OpenSCManagerA(null, null, 0xf003f) = null"});
}

TEST_F(ServiceControlTest, NothingHappensBeforeTheNtFamily) {
  TheService();
  BeforeNt();
  EXPECT_EQ(Run(29), 0u);
  EXPECT_TRACE({});
}

TEST_F(ServiceControlTest, SurvivesTheFailureOfEachCall) {
  FailEachCall(29, [](rig::World& world) { world.services.Of("Ostrel"); });
}

}  // namespace closing_tools_service_test
