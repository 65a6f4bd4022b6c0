// The fixtures of the rig's own tests: they load the library with known faults.
#pragma once

#include "rig-subject/subject.h"
#include "rig/failures.h"
#include "rig/fixtures.h"
#include "rig/guarded_buffer.h"
#include "rig/guarded_heap.h"
#include "rig/internals.h"

namespace rig_test {

HX_INTERNAL(SubjectLeak);
HX_INTERNAL(SubjectFree);
HX_INTERNAL(SubjectWriteAt);
HX_INTERNAL(SubjectReadAt);
HX_INTERNAL(SubjectGrow);
HX_INTERNAL(SubjectFreeTwice);
HX_INTERNAL(SubjectFreeForeign);
HX_INTERNAL(SubjectReadNull);
HX_INTERNAL(SubjectRecurse);
HX_INTERNAL(SubjectTrap);
HX_INTERNAL(SubjectPeek);
HX_INTERNAL(SubjectReadConstant);
HX_INTERNAL(SubjectOverrunStack);
HX_INTERNAL(SubjectCount);
HX_INTERNAL(SubjectSum);
HX_INTERNAL(SubjectKey);
HX_INTERNAL(SubjectCloseLeftover);
HX_INTERNAL(SubjectKeepRecord);
HX_INTERNAL(SubjectDeleteKey);
HX_INTERNAL(SubjectDeleteTree);
HX_INTERNAL(SubjectWindowsDirectory);
HX_INTERNAL(SubjectFindUnknown);
HX_INTERNAL(SubjectErrorMode);
HX_INTERNAL(SubjectGetPropertyA);
HX_INTERNAL(SubjectGetPropertyW);
HX_INTERNAL(SubjectSetPropertyA);
HX_INTERNAL(SubjectSend);
HX_INTERNAL(SubjectBox);
HX_INTERNAL(SubjectReadValue);
HX_INTERNAL(SubjectWriteValue);
HX_INTERNAL(SubjectProfileInt);
HX_INTERNAL(SubjectProfileString);
HX_INTERNAL(SubjectStray);
HX_INTERNAL(SubjectVersion);
HX_INTERNAL(SubjectTicks);
HX_INTERNAL(SubjectKnownFolder);
HX_INTERNAL(SubjectFolder);
HX_INTERNAL(SubjectSplit);
HX_INTERNAL(SubjectStamp);
HX_INTERNAL(SubjectStampOther);
HX_INTERNAL(SubjectService);
HX_INTERNAL(SubjectStartService);
HX_INTERNAL(SubjectServiceAccount);
HX_INTERNAL(SubjectFindWindow);
HX_INTERNAL(SubjectTellWindow);
HX_INTERNAL(SubjectAction);
HX_INTERNAL(SubjectCom);

/// The test subject in a rigged world.
class RigTest : public rig::RiggedTest {
 protected:
  RigTest() : RiggedTest("rigsubject.dll", rig::Policy::kAnswered) {}

  /// Ends the action now. Returns what the ledger and the world report; they forget it.
  std::string EndOfAction() {
    rig::FailureCapture capture;
    TheWorld().CheckEnd(true);
    std::string text = capture.Joined();
    TheWorld().heap.Reclaim();
    return text;
  }

  /// Returns what is reported while `work` runs; a crash of the library ends it.
  template <class Work>
  std::string Reported(Work&& work) {
    rig::FailureCapture capture;
    try {
      work();
    } catch (const rig::LibraryCrash&) {
    }
    return capture.Joined();
  }
};

/// The test subject with everything real except the heap.
class RigRealTest : public rig::RiggedTest {
 protected:
  RigRealTest() : RiggedTest("rigsubject.dll", rig::Policy::kReal) {}
};

inline testing::AssertionResult Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos
             ? testing::AssertionSuccess()
             : testing::AssertionFailure() << "\"" << text << "\" does not contain \"" << part << "\"";
}

}  // namespace rig_test
