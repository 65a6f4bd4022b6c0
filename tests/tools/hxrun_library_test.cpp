// The library that hxrun finds beside it: missing, of the other processor, of another version, damaged.
#include <gtest/gtest.h>

#include <cstring>

#include "rig/print.h"
#include "tools/hxrun_rig.h"

namespace hxrun_test {
namespace {

const std::wstring kLibrary = std::wstring(kRunFolder) + L"\\hxsetup.dll";

#ifdef __aarch64__
constexpr WORD kOther = IMAGE_FILE_MACHINE_AMD64;
constexpr char kMismatch[] =
    " is for x64, and this hxrun is for ARM64. Take both from the same folder of a release.";
#else
constexpr WORD kOther = IMAGE_FILE_MACHINE_ARM64;
constexpr char kMismatch[] =
    " is for ARM64, and this hxrun is for x64. Take both from the same folder of a release.";
#endif

class HxRunLibraryTest : public testing::Test {
 protected:
  void SetUp() override { LayDownHxRun(); }

  // Runs hxrun, which must fail for this reason.
  static void ExpectFailure(const std::string& reason) {
    const HxRun run = RunHxRun(L"CustomAction12");
    EXPECT_EQ(run.status, 1u);
    EXPECT_EQ(run.errors, "hxrun: C:\\hxrun\\hxsetup.dll" + reason + "\n");
    EXPECT_EQ(run.output, "");
  }
};

TEST_F(HxRunLibraryTest, Missing) {
  DeleteFileW(kLibrary.c_str());
  ExpectFailure(" is missing: hxrun.exe must be in the folder of the library that it runs.");
}

TEST_F(HxRunLibraryTest, OfTheOtherProcessor) {
  std::string image = ReadBytes(kLibrary);
  DWORD headers;
  std::memcpy(&headers, image.data() + offsetof(IMAGE_DOS_HEADER, e_lfanew), sizeof headers);
  std::memcpy(&image[headers + sizeof(DWORD)], &kOther, sizeof kOther);
  WriteBytes(kLibrary, image);
  ExpectFailure(kMismatch);
}

TEST_F(HxRunLibraryTest, OlderAndNewer) {
  const std::string image = ReadBytes(kLibrary);
  const DWORD mark = 0xFEEF04BD;
  const size_t fixed = image.find(std::string(reinterpret_cast<const char*>(&mark), sizeof mark));
  ASSERT_NE(fixed, std::string::npos);
  for (const DWORD major : {0u, 9u}) {
    std::string other = image;
    const DWORD version = major << 16 | 7;
    std::memcpy(&other[fixed + offsetof(VS_FIXEDFILEINFO, dwFileVersionMS)], &version, sizeof version);
    WriteBytes(kLibrary, other);
    const HxRun run = RunHxRun(L"CustomAction12");
    EXPECT_EQ(run.status, 1u);
    EXPECT_NE(run.errors.find("has version " + std::to_string(major) + ".7."), std::string::npos)
        << run.errors;
    EXPECT_NE(run.errors.find("Take both from one release."), std::string::npos) << run.errors;
  }
}

TEST_F(HxRunLibraryTest, NoLibraryAtAll) {
  WriteBytes(kLibrary, "text");
  ExpectFailure(" is not a library of Windows.");
}

}  // namespace
}  // namespace hxrun_test
