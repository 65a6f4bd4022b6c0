// Records what each entry point is seen to do: what it returns, which properties it reads and sets, which
// notices it sends, what it writes to the log. Used by the rig; tools/texts/observed-facts.py compares the
// records of the actions level with the table that the pages are compared with.
//
// Each fact is one line of the file "facts.txt" in the folder that HX_ARTIFACTS names (without it nothing is
// recorded), written when it is seen for the first time: the entry point, a kind and a text, with a tab
// between. A backslash, a tab and a line end in the text read "\\", "\t" and "\n".
//
//   returns  the result
//   reads    a property and its buffer's size, with "A" for bytes or "W" for characters ("PROP_CLEAN 256A");
//            a buffer on the heap has no size, because it grows until the value fits ("PROP_VERSION")
//   sets     a property
//   notice   the number of a message that is not a line of the log
//   box      the text of a message box
//   log      a line of the log, as it arrives there
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace rig {

class Declaration;

/// Starts the recording. The test programs call it first; other programs that use the rig record nothing.
void RecordFacts();

/// One call of an entry point of the shipped library; while it lives, facts are recorded for that entry
/// point. One at a time.
class ObservedCall {
 public:
  /// The entry point "CustomAction<number>" of the library `file` is called now. Only those of hxsetup.dll
  /// count.
  ObservedCall(const std::string& file, int number);
  ~ObservedCall();
  ObservedCall(const ObservedCall&) = delete;
  ObservedCall& operator=(const ObservedCall&) = delete;

  /// Records the result. A call that crashed has none.
  void Returned(UINT result) const;
};

/// Records what a call of a Windows function says about the entry point that is running; nothing if none is.
/// `words` are the arguments' bits. Called before the function is answered, so calls that a sweep makes fail
/// count too.
void ObserveCall(const Declaration& declaration, const uint64_t* words);

/// Records a message that reached the installer: its type, its text with the fields put in, and the fields.
void ObserveMessage(unsigned type, const std::string& text, const std::vector<std::string>& fields);

}  // namespace rig
