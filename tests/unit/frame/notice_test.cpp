// Notices: the gate, the record, the fallback message box.

#include "frame/notice.h"

#include <cstring>
#include <string>

#include "rig/action_test.h"
#include "rig/internals.h"

namespace notice_test {

HX_INTERNAL(SendNotice);

constexpr INSTALLMESSAGE kUserInformation = static_cast<INSTALLMESSAGE>(0x03000040);
constexpr Notice kWhole = {26000, kUserInformation, "It did not move.", MB_ICONERROR,
                           NoticeTitle::kWholeBuffer};
constexpr Notice kReused = {27000, static_cast<INSTALLMESSAGE>(0x02000030), "No account.", MB_ICONEXCLAMATION,
                            NoticeTitle::kReusedCount};
constexpr char kFallbackTitle[] = "Halvorstead Vantor Platform Component";

class NoticeTest : public rig::RiggedInternalsTest {
 protected:
  void Arrange(rig::World& world) override { world.installer.Set("PROP_SILENCE", "-1"); }
  void Send(const Notice& notice) { SendNotice(TheRig().session, &notice); }
};

TEST_F(NoticeTest, IsARecordWithTheNumberOfItsText) {
  Send(kWhole);
  EXPECT_TRACE({
      R"(MsiGetPropertyA(session, "PROP_SILENCE", *, *) = 0)",
      R"(MsiCreateRecord(2) = record#1)",
      R"(MsiRecordSetInteger(record#1, 1, 26000) = 0)",
      R"(MsiProcessMessage(session, 0x3000040, record#1) = 1)",
      R"(MsiCloseHandle(record#1) = 0)",
  });
}

TEST_F(NoticeTest, CarriesItsMessageType) {
  Send(kReused);
  ASSERT_EQ(Installer().Messages().size(), 1u);
  EXPECT_EQ(Installer().Messages()[0].type, 0x02000030u);
  EXPECT_EQ(Installer().Messages()[0].fields[1], "27000");
}

TEST_F(NoticeTest, IsSentOnlyForMinusOne) {
  for (const std::string& value :
       {std::string(), std::string("1"), std::string("-1 "), std::string(" -1"), std::string("-10"),
        std::string("-"), std::string("+1"), std::string(127, '1'), std::string(128, '1'),
        std::string("-1") + std::string(200, ' ')}) {
    SCOPED_TRACE(value);
    TheRig().trace.Clear();
    Installer().Set("PROP_SILENCE", value);
    Send(kWhole);
    EXPECT_EQ(TheRig().trace.Lines().size(), 1u);
  }
  EXPECT_TRUE(Installer().Messages().empty());
}

TEST_F(NoticeTest, IsNotSentWhenTheGateCannotBeRead) {
  Installer().FailReading("PROP_SILENCE");
  Send(kWhole);
  EXPECT_TRACE({R"(MsiGetPropertyA(session, "PROP_SILENCE", *, *) = 1627)"});
}

TEST_F(NoticeTest, IgnoresTheBufferAfterAFailedRead) {
  for (UINT status : {UINT{ERROR_MORE_DATA}, UINT{ERROR_INVALID_HANDLE}, UINT{ERROR_FUNCTION_FAILED}}) {
    TheWorld().On<::MsiGetPropertyA>([&](MSIHANDLE, LPCSTR, LPSTR buffer, LPDWORD) -> UINT {
      memcpy(buffer, "-1", 3);
      return status;
    });
    Send(kWhole);
  }
  EXPECT_TRUE(Installer().Messages().empty());
}

TEST_F(NoticeTest, TheGateIsReadIntoABufferOf128Bytes) {
  DWORD room = 0;
  TheWorld().On<::MsiGetPropertyA>([&](MSIHANDLE, LPCSTR, LPSTR, LPDWORD count) -> UINT {
    room = *count;
    return ERROR_MORE_DATA;
  });
  Send(kWhole);
  EXPECT_EQ(room, 128u);
}

TEST_F(NoticeTest, WithoutARecordABoxTitledWithTheProductIsShown) {
  Installer().refusesRecords = true;
  Installer().Set("ProductName", "Vantor Server");
  Send(kWhole);
  EXPECT_TRACE({
      R"(MsiGetPropertyA(session, "PROP_SILENCE", *, *) = 0)",
      R"(MsiCreateRecord(2) = 0)",
      R"(MsiGetPropertyA(session, "ProductName", *, *) = 0)",
      R"(MessageBoxA(null, "It did not move.", "Vantor Server", 0x10) = 1)",
  });
}

TEST_F(NoticeTest, TheTitleIsFixedIfTheProductNameCannotBeRead) {
  Installer().refusesRecords = true;
  Send(kWhole);
  Installer().FailReading("ProductName");
  Send(kWhole);
  Installer().FailReading("ProductName", ERROR_SUCCESS);
  Installer().Set("ProductName", std::string(128, 'P'));
  Send(kWhole);
  const rig::Desktop::Box box = {"It did not move.", kFallbackTitle, MB_ICONERROR};
  EXPECT_EQ(TheWorld().desktop.boxes, (std::vector<rig::Desktop::Box>{box, box, box}));
}

TEST_F(NoticeTest, ATitleOf127BytesFitsTheWholeBuffer) {
  Installer().refusesRecords = true;
  Installer().Set("ProductName", std::string(127, 'P'));
  Send(kWhole);
  ASSERT_EQ(TheWorld().desktop.boxes.size(), 1u);
  EXPECT_EQ(TheWorld().desktop.boxes[0].title, std::string(127, 'P'));
}

// The count still has the length of "-1", so only one character and the terminator fit.
TEST_F(NoticeTest, AReusedCountLeavesRoomForOneCharacterOfTheTitle) {
  Installer().refusesRecords = true;
  for (const auto& [name, title] :
       {std::pair{"P", "P"}, {"PQ", kFallbackTitle}, {"Vantor Server", kFallbackTitle}}) {
    TheWorld().desktop.boxes.clear();
    Installer().Set("ProductName", name);
    Send(kReused);
    const rig::Desktop::Box box = {"No account.", title, MB_ICONEXCLAMATION};
    EXPECT_EQ(TheWorld().desktop.boxes, std::vector<rig::Desktop::Box>{box}) << name;
  }
}

TEST_F(NoticeTest, SurvivesTheFailureOfEachCall) {
  for (const Notice* notice : {&kWhole, &kReused}) {
    FailEachCall([&](rig::Scene& scene) -> UINT {
      SendNotice(scene.rig.session, notice);
      return 0;
    });
  }
}

}  // namespace notice_test
