// Links to folders in the data of a server that is upgraded, which whoever may write the data can put there:
// the upgrade and its way back read, write and delete nothing outside of the folders that they are for.

#include "install/server_rig.h"

namespace install {
namespace {

class ServerLinksTest : public ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    WriteTree(secret, kSecret);
  }

  /// The older server with its data in `data`, of the format that cannot be converted where `fails` is true.
  Tree LayDown(const std::wstring& data, bool fails = false) {
    const Tree content = With({{"format.txt", fails ? "9\r\n" : "1\r\n"}, {"counts.dat", "17"}}, "Reports",
                              {{"first.txt", "1"}});
    WriteTree(server, OlderProgram());
    WriteTree(data, content);
    SetDataSetting(data);
    return content;
  }

  void ExpectSecretKept() { EXPECT_EQ(ReadTree(secret), kSecret); }

  static Tree WithLinks(Tree tree, const std::vector<std::string>& names) {
    for (const std::string& name : names) tree[name + "\\"] = kLink;
    return tree;
  }

  const Tree kSecret = {{"secret.txt", "nobody's business"}, {"More\\", ""}, {"More\\other.txt", "nor this"}};
  /// A folder that has nothing to do with the server.
  const std::wstring secret = elsewhere + L"\\Secret";
};

// Two links to the folder that they are in make a tree without an end of it.
TEST_F(ServerLinksTest, LinksInTheOlderDataAreNotCopied) {
  for (const std::wstring& data : {server + L"\\Data", outsideData}) {
    SCOPED_TRACE(FromWide(data));
    DeleteTree(programs);
    Tree older = LayDown(data);
    MakeLink(data + L"\\Reports\\linked", secret);
    MakeLink(data + L"\\again", L".");
    MakeLink(data + L"\\and again", L".");
    const InstallerRun& upgraded = Install(Server(), L"PROP_SILENCE=-1");
    ExpectInstalled(upgraded);
    EXPECT_EQ(upgraded.LinesWith(kCannotMerge).size(), 1u);
    EXPECT_EQ(ReadTree(data), Converted(older));
    std::wstring kept = ToWide(upgraded.Property("DIR_UPG_DATA"));
    kept.pop_back();
    EXPECT_EQ(ReadTree(kept), WithLinks(older, {"Reports\\linked", "again", "and again"}));
    ExpectSecretKept();
    EXPECT_EQ(Remove(Server()).exitCode, 0u);
  }
}

// A server of the earlier layout gets a new data folder. Somebody has made that before, with links under the
// names that the older data have, or as a link itself.
TEST_F(ServerLinksTest, NothingIsCopiedThroughLinksInTheNewDataFolder) {
  const std::wstring earlier = elsewhere + L"\\Vantor 7";
  const Tree data = With({{"format.txt", "2\r\n"}}, "Reports", {{"first.txt", "1"}});
  for (const bool isAllLink : {false, true}) {
    SCOPED_TRACE(isAllLink);
    DeleteTree(programs);
    DeleteTree(elsewhere + L"\\Vantor (previous)");
    WriteTree(earlier, With(OlderProgram(), "Data", data));
    WriteTree(server, {});
    Tree expected = {{"Data\\", kLink}};
    if (isAllLink) {
      MakeLink(server + L"\\Data", secret);
    } else {
      WriteTree(server + L"\\Data", {});
      MakeLink(server + L"\\Data\\Reports", secret);
      expected = With({}, "Data", {{"format.txt", "2\r\n"}, {"Reports\\", kLink}});
    }
    const InstallerRun& upgraded =
        Install(Server(), L"PROP_SILENCE=-1 PROP_PRE75SERVER=\"" + earlier + L"\"");
    ExpectInstalled(upgraded);
    EXPECT_EQ(upgraded.LinesWith(kCannotMerge).size(), 1u);
    for (const auto& [path, bytes] : NewProgram()) expected[path] = bytes;
    EXPECT_EQ(ReadTree(server), expected);
    EXPECT_EQ(ReadTree(elsewhere + L"\\Vantor (previous)"), With(OlderProgram(), "Data", data));
    ExpectSecretKept();
    EXPECT_EQ(Remove(Server()).exitCode, 0u);
  }
}

// Between the copy and the judgement: a folder of the new data becomes a link, and the conversion fails,
// which whoever may write there can bring about too. The way back takes the copies away by their folder's
// name only.
TEST_F(ServerLinksTest, NothingIsDeletedThroughALinkThatWasPutInDuringTheConversion) {
  for (const std::wstring& data : {server + L"\\Data", outsideData}) {
    SCOPED_TRACE(FromWide(data));
    DeleteTree(programs);
    const Tree older = LayDown(data, true);
    const bool isOutside = data == outsideData;
    const InstallerRun& failed = InstallInterrupted([&] {
      DeleteTree(data + L"\\Reports");
      MakeLink(data + L"\\Reports", secret);
    });
    EXPECT_EQ(failed.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
    ExpectRolledBack(failed);
    ExpectSecretKept();
    EXPECT_EQ(ReadTree(data), older);
    // What was copied is in the folder that had to give way.
    const std::wstring copy = isOutside
                                  ? elsewhere + L"\\" + ToWide(NameWithTime(elsewhere, "Data"))
                                  : programs + L"\\" + ToWide(NameWithTime(programs, "Vantor")) + L"\\Data";
    EXPECT_EQ(ReadTree(copy), WithLinks({{"format.txt", "9\r\n"}, {"counts.dat", "17"}}, {"Reports"}));
  }
}

// The search for a file in the data folder, by which a data folder counts as one that is in use.
TEST_F(ServerLinksTest, TheSearchForDataEndsOnLinks) {
  WriteTree(server + L"\\Data", {{"Reports\\", ""}});
  MakeLink(server + L"\\Data\\again", L".");
  MakeLink(server + L"\\Data\\Reports\\and again", L".");
  MakeLink(server + L"\\Data\\linked", secret);
  const InstallerRun& installed = Install(Server());
  ExpectInstalled(installed);
  ExpectPublished(installed, {{"PROP_DFPRESENT", L""}, {"PROP_UPGRADE", L""}});
  ExpectSecretKept();
}

}  // namespace
}  // namespace install
