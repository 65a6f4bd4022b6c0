// The service that runs scheduled tasks.
#include "client/schedule_service.h"

#include "rig/internals_test.h"

namespace schedule_service_test {

HX_INTERNAL(EnsureScheduleService);

class ScheduleServiceTest : public rig::RiggedInternalsTest {
 protected:
  void Arrange(rig::World& world) override { world.services.Of("Schedule").state = SERVICE_STOPPED; }
  rig::Service& Schedule() { return TheWorld().services.Of("Schedule"); }
};

TEST_F(ScheduleServiceTest, ARunningServiceIsLeftAlone) {
  Schedule().state = SERVICE_RUNNING;
  EXPECT_EQ(EnsureScheduleService(), 0u);
  EXPECT_TRACE({
      R"(OpenSCManagerA(null, null, 0x1) = service#1)",
      R"(OpenServiceA(service#1, "Schedule", 0x14) = service#2)",
      R"(CloseServiceHandle(service#1) = 1)",
      R"(QueryServiceStatus(service#2, *) = 1)",
      R"(CloseServiceHandle(service#2) = 1)",
  });
}

TEST_F(ScheduleServiceTest, AStoppedServiceIsStartedAndNotWaitedFor) {
  Schedule().stateAfterStart = SERVICE_START_PENDING;
  EXPECT_EQ(EnsureScheduleService(), 0u);
  EXPECT_TRACE({
      R"(OpenSCManagerA(null, null, 0x1) = service#1)",
      R"(OpenServiceA(service#1, "Schedule", 0x14) = service#2)",
      R"(CloseServiceHandle(service#1) = 1)",
      R"(QueryServiceStatus(service#2, *) = 1)",
      R"(StartServiceA(service#2, 0, null) = 1)",
      R"(CloseServiceHandle(service#2) = 1)",
  });
}

TEST_F(ScheduleServiceTest, AServiceThatIsAboutToStartCountsAsAFailure) {
  Schedule().state = SERVICE_START_PENDING;
  EXPECT_EQ(EnsureScheduleService(), DWORD{ERROR_SERVICE_ALREADY_RUNNING});
}

TEST_F(ScheduleServiceTest, EachErrorIsReturned) {
  TheWorld().services.managerError = ERROR_DATABASE_DOES_NOT_EXIST;
  EXPECT_EQ(EnsureScheduleService(), DWORD{ERROR_DATABASE_DOES_NOT_EXIST});
  TheWorld().services.managerError = ERROR_SUCCESS;
  Schedule().openError = ERROR_SERVICE_MARKED_FOR_DELETE;
  EXPECT_EQ(EnsureScheduleService(), DWORD{ERROR_SERVICE_MARKED_FOR_DELETE});
  Schedule().openError = ERROR_SUCCESS;
  Schedule().statusError = ERROR_BUSY;
  EXPECT_EQ(EnsureScheduleService(), DWORD{ERROR_BUSY});
  EXPECT_TRUE(Schedule().starts.empty());
  Schedule().statusError = ERROR_SUCCESS;
  Schedule().startError = ERROR_SERVICE_DISABLED;
  EXPECT_EQ(EnsureScheduleService(), DWORD{ERROR_SERVICE_DISABLED});
}

// Closing a handle may change the last error; the result must be the error of the failing call.
TEST_F(ScheduleServiceTest, ClosingDoesNotHideTheError) {
  TheWorld().On<::CloseServiceHandle>([](SC_HANDLE) {
    SetLastError(ERROR_INVALID_HANDLE);
    return TRUE;
  });
  Schedule().openError = ERROR_ACCESS_DISABLED_BY_POLICY;
  EXPECT_EQ(EnsureScheduleService(), DWORD{ERROR_ACCESS_DISABLED_BY_POLICY});
  Schedule().openError = ERROR_SUCCESS;
  Schedule().startError = ERROR_SERVICE_DISABLED;
  EXPECT_EQ(EnsureScheduleService(), DWORD{ERROR_SERVICE_DISABLED});
}

TEST_F(ScheduleServiceTest, EverythingIsFreedOnEachFailure) {
  rig::SweepOptions options;
  options.results = {0, ERROR_ACCESS_DENIED, ERROR_SERVICE_REQUEST_TIMEOUT};
  EXPECT_EQ(FailEachCall([](rig::Scene&) { return EnsureScheduleService(); }, {}, options), 4u);
}

}  // namespace schedule_service_test
