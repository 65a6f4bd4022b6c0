// The rig's own tests: services and windows.
#include "unit/rig/rig_subject.h"

namespace rig_test {

using Lines = std::vector<std::string>;

TEST_F(RigTest, AServiceTakesControls) {
  DWORD state = 0;
  TheWorld().services.Of("Subject");
  EXPECT_EQ(SubjectService("SUBJECT", SERVICE_STOP, SERVICE_CONTROL_STOP, &state, FALSE), 0U);
  EXPECT_EQ(state, DWORD{SERVICE_STOPPED});
  EXPECT_EQ(TheRig().trace.Lines(), (Lines{
                                        "OpenSCManagerA(null, null, 0x1) = service#1",
                                        "OpenServiceA(service#1, \"SUBJECT\", 0x20) = service#2",
                                        "ControlService(service#2, 1, *) = 1",
                                        "CloseServiceHandle(service#2) = 1",
                                        "CloseServiceHandle(service#1) = 1",
                                    }));
  EXPECT_EQ(SubjectService("Subject", SERVICE_STOP, SERVICE_CONTROL_STOP, &state, FALSE),
            DWORD{ERROR_SERVICE_NOT_ACTIVE});
  EXPECT_EQ(TheWorld().services.Of("subject").controls,
            (std::vector<DWORD>{SERVICE_CONTROL_STOP, SERVICE_CONTROL_STOP}));
}

TEST_F(RigTest, AServiceHandleAllowsWhatItWasOpenedFor) {
  DWORD state = 0;
  TheWorld().services.Of("Subject");
  for (const auto& [control, right] : {std::pair{SERVICE_CONTROL_STOP, SERVICE_STOP},
                                       {SERVICE_CONTROL_INTERROGATE, SERVICE_INTERROGATE},
                                       {SERVICE_CONTROL_PAUSE, SERVICE_PAUSE_CONTINUE},
                                       {128, SERVICE_USER_DEFINED_CONTROL}}) {
    DWORD others = SERVICE_ALL_ACCESS & ~static_cast<DWORD>(right);
    EXPECT_EQ(SubjectService("Subject", others, static_cast<DWORD>(control), &state, FALSE),
              DWORD{ERROR_ACCESS_DENIED});
    // A refused call leaves a misleading record.
    EXPECT_EQ(state, DWORD{SERVICE_RUNNING});
  }
  EXPECT_TRUE(TheWorld().services.Of("Subject").controls.empty());
}

TEST_F(RigTest, ServicesCanFail) {
  DWORD state = 0;
  EXPECT_EQ(SubjectService("Subject", SERVICE_STOP, SERVICE_CONTROL_STOP, &state, FALSE),
            DWORD{ERROR_SERVICE_DOES_NOT_EXIST});
  rig::Service& service = TheWorld().services.Of("Subject");
  service.controlErrors[SERVICE_CONTROL_STOP] = ERROR_SERVICE_REQUEST_TIMEOUT;
  EXPECT_EQ(SubjectService("Subject", SERVICE_STOP, SERVICE_CONTROL_STOP, &state, FALSE),
            DWORD{ERROR_SERVICE_REQUEST_TIMEOUT});
  service.openError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(SubjectService("Subject", SERVICE_STOP, SERVICE_CONTROL_STOP, &state, FALSE),
            DWORD{ERROR_ACCESS_DENIED});
  TheWorld().services.managerError = RPC_S_SERVER_UNAVAILABLE;
  EXPECT_EQ(SubjectService("Subject", SERVICE_STOP, SERVICE_CONTROL_STOP, &state, FALSE),
            DWORD{RPC_S_SERVER_UNAVAILABLE});
}

TEST_F(RigTest, ServiceHandlesMustBeClosed) {
  DWORD state = 0;
  TheWorld().services.Of("Subject");
  SubjectService("Subject", SERVICE_STOP, SERVICE_CONTROL_STOP, &state, TRUE);
  EXPECT_TRUE(Has(EndOfAction(), "service#2 was not released"));
}

TEST_F(RigTest, AStoppedServiceCanBeStarted) {
  DWORD state = 0;
  rig::Service& service = TheWorld().services.Of("Subject");
  EXPECT_EQ(SubjectStartService("Subject", nullptr, &state), DWORD{ERROR_SERVICE_ALREADY_RUNNING});
  service.state = SERVICE_STOPPED;
  service.startError = ERROR_SERVICE_DISABLED;
  EXPECT_EQ(SubjectStartService("Subject", nullptr, &state), DWORD{ERROR_SERVICE_DISABLED});
  EXPECT_EQ(state, DWORD{SERVICE_STOPPED});
  service.startError = ERROR_SUCCESS;
  service.stateAfterStart = SERVICE_START_PENDING;
  EXPECT_EQ(SubjectStartService("Subject", "quick", &state), 0U);
  EXPECT_EQ(state, DWORD{SERVICE_START_PENDING});
  EXPECT_EQ(service.starts, (std::vector<Lines>{{}, {}, {"quick"}}));
}

TEST_F(RigTest, ControlAndConfigurationShareAService) {
  rig::Service& service = TheWorld().services.Of("Subject");
  service.account = "PC7\\svc";
  DWORD state = 0;
  EXPECT_EQ(SubjectService("Subject", SERVICE_STOP, SERVICE_CONTROL_STOP, &state, FALSE), 0U);
  for (BOOL wide : {FALSE, TRUE}) {
    char account[64] = "none";
    EXPECT_EQ(SubjectServiceAccount("SUBJECT", SERVICE_QUERY_CONFIG, wide, account), 0U);
    EXPECT_STREQ(account, "PC7\\svc");
  }
}

TEST_F(RigTest, AConfigurationCanBeRefused) {
  rig::Service& service = TheWorld().services.Of("Subject");
  for (BOOL wide : {FALSE, TRUE}) {
    char account[64] = "none";
    service.account.reset();
    EXPECT_EQ(SubjectServiceAccount("Subject", SERVICE_QUERY_CONFIG, wide, account), 0U);
    service.account = "svc";
    EXPECT_EQ(SubjectServiceAccount("Subject", SERVICE_QUERY_STATUS, wide, account),
              DWORD{ERROR_ACCESS_DENIED});
    service.demand = 513;
    EXPECT_EQ(SubjectServiceAccount("Subject", SERVICE_QUERY_CONFIG, wide, account),
              DWORD{ERROR_INSUFFICIENT_BUFFER});
    service.demand = 0;
    service.configurationError = ERROR_SERVICE_MARKED_FOR_DELETE;
    EXPECT_EQ(SubjectServiceAccount("Subject", SERVICE_QUERY_CONFIG, wide, account),
              DWORD{ERROR_SERVICE_MARKED_FOR_DELETE});
    service.configurationError = ERROR_SUCCESS;
    EXPECT_STREQ(account, "none");
  }
}

TEST_F(RigTest, AServiceGoesThroughItsNextStatesAndThenCannotBeQueried) {
  DWORD state = 0;
  rig::Service& service = TheWorld().services.Of("Subject");
  service.state = SERVICE_STOPPED;
  service.coming = {SERVICE_START_PENDING, SERVICE_STOPPED};
  service.statusError = ERROR_INVALID_HANDLE;
  EXPECT_EQ(SubjectStartService("Subject", nullptr, &state), 0U);
  EXPECT_EQ(state, DWORD{SERVICE_START_PENDING});
  EXPECT_EQ(SubjectStartService("Subject", nullptr, &state), DWORD{ERROR_SERVICE_ALREADY_RUNNING});
  EXPECT_EQ(state, DWORD{SERVICE_STOPPED});
  EXPECT_EQ(SubjectStartService("Subject", nullptr, &state), DWORD{ERROR_INVALID_HANDLE});
  EXPECT_EQ(state, DWORD{SERVICE_RUNNING});
}

TEST_F(RigTest, WindowsAreFoundByClassAndTitle) {
  TheWorld().windows.Open("First", "Title").closesOn = rig::Window::kNone;
  EXPECT_TRUE(SubjectFindWindow("First", "Title"));
  EXPECT_TRUE(SubjectFindWindow("FIRST", "title"));
  EXPECT_FALSE(SubjectFindWindow("First", "Other"));
  EXPECT_FALSE(SubjectFindWindow("Other", "Title"));
  EXPECT_EQ(TheRig().trace.Lines().at(0), "FindWindowA(\"First\", \"Title\") = window:First");
  EXPECT_TRUE(Has(Reported([&] { SubjectFindWindow("First", nullptr); }), "without class or title"));
}

TEST_F(RigTest, AWindowClosesOnItsMessageSentOrPosted) {
  rig::Window& sent = TheWorld().windows.Open("Sent", "Title");
  rig::Window& posted = TheWorld().windows.Open("Posted", "Title");
  sent.closesOn = posted.closesOn = WM_USER;
  posted.isPosted = true;
  posted.lingers = 2;
  SubjectTellWindow("Sent", "Title", WM_CLOSE, FALSE);
  EXPECT_TRUE(SubjectTellWindow("Sent", "Title", WM_USER, TRUE));
  EXPECT_TRUE(SubjectFindWindow("Sent", "Title"));
  SubjectTellWindow("Sent", "Title", WM_USER, FALSE);
  EXPECT_FALSE(SubjectFindWindow("Sent", "Title"));
  SubjectTellWindow("Posted", "Title", WM_USER, FALSE);
  EXPECT_TRUE(SubjectTellWindow("Posted", "Title", WM_USER, TRUE));
  EXPECT_TRUE(SubjectFindWindow("Posted", "Title"));
  EXPECT_TRUE(SubjectFindWindow("Posted", "Title"));
  EXPECT_FALSE(SubjectFindWindow("Posted", "Title"));
  EXPECT_FALSE(SubjectTellWindow("Posted", "Title", WM_USER, TRUE));
  EXPECT_EQ(sent.got, (Lines{"send 16 3 4", "post 1024 1 2", "send 1024 3 4"}));
  EXPECT_EQ(posted.got, (Lines{"send 1024 3 4", "post 1024 1 2"}));
}

}  // namespace rig_test
