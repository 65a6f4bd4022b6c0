// The rig's own tests: reads past a constant of the library.
#include <cstdlib>

#include "rig/internals_test.h"
#include "unit/rig/rig_subject.h"

namespace rig_test {

TEST_F(RigTest, AConstantIsReadToItsLastByte) {
  EXPECT_EQ(SubjectReadConstant(kSubjectText, 0), 'p');
  EXPECT_EQ(SubjectReadConstant(kSubjectText, kSubjectTextSize - 1), 0);
  EXPECT_EQ(SubjectReadConstant(kSubjectWideText, 0), 'w');
  EXPECT_EQ(SubjectReadConstant(kSubjectWideText, kSubjectWideTextSize - 1), 0);
  EXPECT_EQ(SubjectReadConstant(kSubjectTable, kSubjectTableSize - sizeof(int)), 3);
}

TEST_F(RigTest, ReadingPastATextIsCaught) {
  const std::string text = Reported([] { SubjectReadConstant(kSubjectText, kSubjectTextSize); });
  EXPECT_TRUE(Has(text, "crash at rigsubject.dll+0x"));
  EXPECT_TRUE(Has(text, "(0 bytes past the end of a constant)"));
}

TEST_F(RigTest, ReadingPastAWideTextIsCaught) {
  EXPECT_TRUE(Has(Reported([] { SubjectReadConstant(kSubjectWideText, kSubjectWideTextSize + 1); }),
                  "(1 byte past the end of a constant)"));
}

TEST_F(RigTest, ReadingPastATableIsCaught) {
  EXPECT_TRUE(Has(Reported([] { SubjectReadConstant(kSubjectTable, kSubjectTableSize + 7); }),
                  "(7 bytes past the end of a constant)"));
}

TEST_F(RigTest, TheConstantsOfTheSubjectAreGuarded) {
  EXPECT_GE(rig::Library::Current()->GuardedConstants(), 3U);
}

/// The library itself.
class ConstantsTest : public rig::InternalsTest {};

TEST_F(ConstantsTest, TheCheckedLibraryForX64IsGuarded) {
  const char* const folder = std::getenv("HX_LIBRARY_DIR");
  ASSERT_NE(folder, nullptr);
  const std::string name = folder;
  // The checked build for x64, and the libraries of ./hx mutants.
  if (name.find("x64-checked") != std::string::npos || name.find("guarded") != std::string::npos) {
    // Several for each source.
    EXPECT_GE(rig::Library::Current()->GuardedConstants(), 200U);
  } else {
    EXPECT_EQ(rig::Library::Current()->GuardedConstants(), 0U);
  }
}

}  // namespace rig_test
